// A console's program on its own system library (desk_system.cpp): prints the servers that come and go. What the
// library logs comes out of the desk's logger, and the adapter is the one of the desk's settings:
//
//     DESK_SHOW_ADAPTER=lo DESK_TRACE=1 own_system [SECONDS]     10 seconds unless given
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_stack.h>
#include <citp_system/artnet_adapter.h>

#include <QCoreApplication>
#include <QTextStream>
#include <QTimer>

using CITP::citp_stack;

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const int seconds = argc > 1 ? QString(argv[1]).toInt() : 10;
    if (argc > 2 || seconds < 1 || seconds > 86400) {
        QTextStream(stderr) << "own_system: wrong use; give one number of seconds, 1 to 86400, or nothing\n";
        return 2;
    }
    const ArtNet::Adapter adapter = ArtNet::Adapter::Get();
    if (!adapter.IsValid()) {
        QTextStream(stderr) << "own_system: no adapter " << QString::fromStdString(adapter.GetName())
                            << "; set DESK_SHOW_ADAPTER to the one of the show network\n";
        return 1;
    }
    QTextStream(stdout) << "show adapter " << QString::fromStdString(adapter.GetName()) << Qt::endl;

    citp_stack* const stack = citp_stack::Get();
    QObject::connect(stack, &citp_stack::serverUp, &application, [stack](const QString& server) {
        CITP::Msg_MSEX_SINF info;
        if (stack->getServerInfo(server, &info, nullptr))
            QTextStream(stdout) << "up    " << server << "  " << info.ProductName << Qt::endl;
    });
    QObject::connect(stack, &citp_stack::serverDown, &application,
                     [](const QString& server) { QTextStream(stdout) << "down  " << server << Qt::endl; });
    stack->setEnabled(true);
    QTimer::singleShot(seconds * 1000, &application, &QCoreApplication::quit);
    return QCoreApplication::exec();
}
