// A console program with its own system library (desk_system.cpp): prints servers that come up and go down. The library
// logs to the desk's logger and uses the adapter of the desk's settings:
//
//     DESK_SHOW_ADAPTER=lo DESK_TRACE=1 own_system [SECONDS]     default 10
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
        QTextStream(stderr) << "own_system: usage error: expected at most one number of seconds, 1 to 86400\n";
        return 2;
    }
    const ArtNet::Adapter adapter = ArtNet::Adapter::Get();
    if (!adapter.IsValid()) {
        QTextStream(stderr) << "own_system: no adapter " << QString::fromStdString(adapter.GetName())
                            << "; set DESK_SHOW_ADAPTER to the show network's adapter\n";
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
