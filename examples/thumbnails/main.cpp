// Lists the media servers and saves the thumbnails of the first library of each: thumbnails [SECONDS], default 10.
// SPDX-License-Identifier: Apache-2.0
#include <citp_client/directory.h>
#include <citp_client/requests.h>

#include <QCoreApplication>
#include <QFile>
#include <QTextStream>
#include <QTimer>

using namespace CITP;

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const int seconds = argc > 1 ? QString(argv[1]).toInt() : 10;
    if (argc > 2 || seconds < 1 || seconds > 86400) {
        QTextStream(stderr) << "thumbnails: usage error: expected at most one number of seconds, 1 to 86400\n";
        return 2;
    }
    StackTransport transport;
    Directory directory(transport);
    Requests requests(transport);
    QTextStream out(stdout);
    // Every request ends, so that nothing more is needed than to look at how it ended.
    const auto hasFailed = [&out](const Reply* reply) {
        if (reply->status() != Reply::Answered)
            out << reply->errorString() << Qt::endl;
        return reply->status() != Reply::Answered;
    };

    QObject::connect(&directory, &Directory::changed, [&](const QString& key) {
        const Server server = directory.server(key);
        out << key << "  \"" << server.name << "\"  state " << server.state << "  " << server.product << Qt::endl;
        if (server.state != Server::Up)
            return;
        Reply* const libraries = requests.libraries(key, 1); // of media
        QObject::connect(libraries, &Reply::finished, [&, libraries, key] {
            if (hasFailed(libraries) || libraries->libraries().empty())
                return;
            Reply* const elements = requests.elements(key, 1, libraries->libraries().front().id);
            QObject::connect(elements, &Reply::finished, [&, elements, key] {
                hasFailed(elements);
                for (const Element& element : elements->elements()) {
                    Reply* const picture = requests.picture(key, 1, elements->request().library, element.number);
                    QObject::connect(picture, &Reply::finished, [&, picture, element, key] {
                        QFile file(QString("%1-%2.jpg").arg(key).arg(element.number));
                        if (!hasFailed(picture) && file.open(QIODevice::WriteOnly))
                            out << file.fileName() << "  " << file.write(picture->picture().data) << Qt::endl;
                    });
                }
            });
        });
    });
    citp_stack::Get()->setEnabled(true);
    QTimer::singleShot(seconds * 1000, &application, &QCoreApplication::quit);
    return QCoreApplication::exec();
}
