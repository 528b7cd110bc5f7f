// Handles every signal and sends every request, in a thread of the application with its own event loop:
// every_signal [SECONDS], default 10.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_msg_fptc.h>
#include <citp/citp_msg_msex_elements.h>
#include <citp/citp_msg_msex_libraries.h>
#include <citp/citp_msg_msex_lsta.h>
#include <citp/citp_msg_msex_requests.h>
#include <citp/citp_msg_msex_thumbnails.h>
#include <citp/citp_stack.h>

#include <QCoreApplication>
#include <QTextStream>
#include <QThread>
#include <QTimer>

using namespace CITP;

namespace {
// Library types: media and effects have their own element messages, all other types share one.
constexpr unsigned char Media = 1;
constexpr unsigned char Effects = 2;
constexpr unsigned char Generic = 3;
constexpr unsigned char LibraryTypes[] = {Media, Effects, Generic};

// Writes each line with one call: other threads write the stack's log lines at the same time.
void print(const QString& server, const QString& text)
{
    QTextStream(stdout) << QString("%1  %2\n").arg(server, text);
}
} // namespace

/// Receives the stack's signals. It lives in a thread of the application: all slots run there, none in the stack's
/// thread.
class MediaServers : public QObject
{
public:
    MediaServers()
    {
        // Without this registration a patch does not reach other threads. It must precede the connection: Qt does not
        // retry a connection whose argument type was unknown.
        qRegisterMetaType<Msg_FPTC_PTCH>("CITP::Msg_FPTC_PTCH");

        citp_stack* const stack = citp_stack::Get();
        connect(stack, &citp_stack::serverUp, this, &MediaServers::serverUp);
        connect(stack, &citp_stack::serverDown, this, &MediaServers::serverDown);
        connect(stack, &citp_stack::libraryInfo, this, &MediaServers::libraryInfo);
        connect(stack, &citp_stack::mediaInfo, this, &MediaServers::mediaInfo);
        connect(stack, &citp_stack::effectInfo, this, &MediaServers::effectInfo);
        connect(stack, &citp_stack::genericInfo, this, &MediaServers::genericInfo);
        connect(stack, &citp_stack::libraryThumbnail, this, &MediaServers::libraryThumbnail);
        connect(stack, &citp_stack::elementThumbnail, this, &MediaServers::elementThumbnail);
        connect(stack, &citp_stack::libraryUpdated, this, &MediaServers::libraryUpdated);
        connect(stack, &citp_stack::layerStatus, this, &MediaServers::layerStatus);
        connect(stack, &citp_stack::patchMessage, this, &MediaServers::patchMessage);
    }

private:
    void serverUp(const QString& server)
    {
        Msg_MSEX_SINF info;
        Msg_PEER_PLOC location;
        if (!citp_stack::Get()->getServerInfo(server, &info, &location))
            return; // the server has gone since
        print(server, QString("serverUp: \"%1\", %2 %3.%4, MSEX 1.%5, %6 layers")
                          .arg(location.name, info.ProductName)
                          .arg(info.ProductVersionMajor)
                          .arg(info.ProductVersionMinor)
                          .arg(info.GetHighestMsexVersion())
                          .arg(info.LayerDMXSources.size()));

        // The stack has already sent PNam, CInf and SPtc; an application may send them again.
        request(server, "PNam", Msg_PEER_PNAM(QString("Example console")));
        request(server, "CInf", Msg_MSEX_CInf());
        request(server, "SPtc", Msg_FPTC_SPTC(nullptr)); // the whole patch
        for (const unsigned char type : LibraryTypes) {
            // MSEX 1.0 has no sub-libraries: the parent is not sent to such a server.
            request(server, "GELI", Msg_MSEX_GELI(info.GetHighestMsexVersion(), type, "0,0,0,0", {}));
        }
    }

    void serverDown(const QString& server) { print(server, "serverDown"); }

    void libraryInfo(const QString& server, const Msg_MSEX_ELIN& answer)
    {
        print(server,
              QString("libraryInfo: %1 libraries of type %2").arg(answer.Libraries.size()).arg(answer.LibraryType));
        if (answer.Libraries.empty())
            return;
        const Msg_MSEX_ELIN::ElementLibraryInformation& first = answer.Libraries.front();
        const unsigned char version = answer.versionMinor;
        request(server, "GELT", Msg_MSEX_GELT(version, answer.LibraryType, {first.LIBID}, 60, 80, "JPEG"));
        request(server, "GEIn", Msg_MSEX_GEIN(version, answer.LibraryType, first.LIBID, {}));
    }

    void mediaInfo(const QString& server, const Msg_MSEX_MEIN& answer)
    {
        print(server, QString("mediaInfo: %1 media in library %2").arg(answer.Media.size()).arg(answer.LibraryId));
        if (answer.Media.empty())
            return;
        const Msg_MSEX_MEIN::MediaInformation& first = answer.Media.front();
        request(server, "GETh",
                Msg_MSEX_GETH(answer.versionMinor, Media, answer.LibraryId, 60, 80, "PNG", {first.Number}));
    }

    void effectInfo(const QString& server, const Msg_MSEX_EEIN& answer)
    {
        print(server, QString("effectInfo: %1 effects in library %2").arg(answer.Effects.size()).arg(answer.LibraryId));
    }

    void genericInfo(const QString& server, const Msg_MSEX_GLEI& answer)
    {
        print(server,
              QString("genericInfo: %1 elements in library %2").arg(answer.Elements.size()).arg(answer.LibraryId));
    }

    void libraryThumbnail(const QString& server, const Msg_MSEX_ELTH& answer)
    {
        print(server, QString("libraryThumbnail: library %1: %2").arg(answer.LibraryId, picture(answer)));
    }

    void elementThumbnail(const QString& server, const Msg_MSEX_ETHN& answer)
    {
        print(server, QString("elementThumbnail: library %1, element %2: %3")
                          .arg(answer.LibraryId)
                          .arg(answer.ElementNumber)
                          .arg(picture(answer)));
    }

    // An empty buffer means that the library could not read the picture.
    static QString picture(const Msg_MSEX_Thumbnail_Response_Base& answer)
    {
        if (answer.ThumbnailBuffer.isEmpty())
            return "no picture";
        return QString("%1x%2 %3, %4 bytes")
            .arg(answer.ThumbnailWidth)
            .arg(answer.ThumbnailHeight)
            .arg(answer.ThumbnailFormat.trimmed())
            .arg(answer.ThumbnailBuffer.size());
    }

    // What was fetched of the library is outdated; a console would request it again.
    void libraryUpdated(const QString& server, const Msg_MSEX_ELUP& notice)
    {
        print(server, QString("libraryUpdated: library %1 of type %2, flags %3")
                          .arg(notice.LibraryId)
                          .arg(notice.LibraryType)
                          .arg(notice.UpdateFlags));
    }

    void layerStatus(const QString& server, const Msg_MSEX_LSTA& status)
    {
        for (const Msg_MSEX_LSTA::LayerStatus& layer : status.Layers) {
            print(server, QString("layerStatus: layer %1 plays \"%2\", frame %3 of %4")
                              .arg(layer.LayerNumber)
                              .arg(layer.MediaName)
                              .arg(layer.MediaPosition)
                              .arg(layer.MediaLength));
        }
    }

    void patchMessage(const QString& server, const Msg_FPTC_PTCH& fixture)
    {
        print(server, QString("patchMessage: fixture %1, %2 %3, universe %4, channel %5")
                          .arg(fixture.FixtureIdentifier)
                          .arg(fixture.FixtureMake, fixture.FixtureName)
                          .arg(fixture.Universe)
                          .arg(fixture.Channel));
    }

    // True means that the stack has accepted the request. An answer may never come; an application must expect that.
    static void request(const QString& server, const char* code, const Msg_Header& message)
    {
        const bool accepted = citp_stack::Get()->sendMsg(server, message);
        print(server, QString("request %1 %2").arg(QString(code), QString(accepted ? "passed down" : "refused")));
    }
};

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const int seconds = argc > 1 ? QString(argv[1]).toInt() : 10;
    if (argc > 2 || seconds < 1 || seconds > 86400) {
        QTextStream(stderr) << "every_signal: usage error: expected at most one number of seconds, 1 to 86400\n";
        return 2;
    }

    QThread thread;
    auto* const servers = new MediaServers;
    servers->moveToThread(&thread);
    QObject::connect(&thread, &QThread::finished, servers, &QObject::deleteLater);
    thread.start();

    citp_stack::Get()->setEnabled(true);
    QTimer::singleShot(seconds * 1000, &application, &QCoreApplication::quit);
    const int status = QCoreApplication::exec();

    // Stop the thread: its object is deleted and thereby disconnected. The stack itself is never deleted.
    thread.quit();
    thread.wait();
    return status;
}
