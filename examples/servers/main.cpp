// Prints the media servers on the network and the first library of each: servers [SECONDS], default 10.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_msg_msex_libraries.h>
#include <citp/citp_msg_msex_requests.h>
#include <citp/citp_stack.h>

#include <QCoreApplication>
#include <QTextStream>
#include <QTimer>

using CITP::citp_stack;

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const int seconds = argc > 1 ? QString(argv[1]).toInt() : 10;
    if (argc > 2 || seconds < 1 || seconds > 86400) {
        QTextStream(stderr) << "servers: usage error: expected at most one number of seconds, 1 to 86400\n";
        return 2;
    }
    citp_stack* const stack = citp_stack::Get();

    // With the application as context object, the slots run in this thread, not in the stack's.
    QObject::connect(stack, &citp_stack::serverUp, &application, [stack](const QString& server) {
        CITP::Msg_MSEX_SINF info;
        CITP::Msg_PEER_PLOC location;
        if (!stack->getServerInfo(server, &info, &location))
            return; // the server has gone since
        QTextStream(stdout) << "up    " << server << "  \"" << location.name << "\"  " << info.ProductName << Qt::endl;

        // Type 1 is media. An empty list of numbers requests all libraries below "0,0,0,0", the root.
        constexpr unsigned char Media = 1;
        const unsigned char version = info.GetHighestMsexVersion();
        stack->sendMsg(server, CITP::Msg_MSEX_GELI(version, Media, "0,0,0,0", {}));
    });
    QObject::connect(stack, &citp_stack::libraryInfo, &application,
                     [](const QString& server, const CITP::Msg_MSEX_ELIN& answer) {
                         QTextStream out(stdout);
                         out << "      " << server << "  ";
                         if (answer.Libraries.empty()) {
                             out << "has no library" << Qt::endl;
                             return;
                         }
                         const auto& first = answer.Libraries.front();
                         out << "first library " << first.LIBID << "  \"" << first.Name << "\"  " << first.ElementCount
                             << " elements" << Qt::endl;
                     });
    QObject::connect(stack, &citp_stack::serverDown, &application,
                     [](const QString& server) { QTextStream(stdout) << "down  " << server << Qt::endl; });

    // Enable the stack after the connections: servers that are already up are not reported again.
    stack->setEnabled(true);
    QTimer::singleShot(seconds * 1000, &application, &QCoreApplication::quit);
    return QCoreApplication::exec();
}
