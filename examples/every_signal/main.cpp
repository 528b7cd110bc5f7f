// Every signal and every request, handled in a thread of the application that has an event loop of its own:
// every_signal [SECONDS], 10 unless given.
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
// Library types: media and effects have messages of their own, all others share one.
constexpr unsigned char Media = 1;
constexpr unsigned char Effects = 2;
constexpr unsigned char Generic = 3;
constexpr unsigned char LibraryTypes[] = {Media, Effects, Generic};

// Written with one call, since the stack's log lines come from other threads.
void say(const QString& server, const QString& text)
{
    QTextStream(stdout) << QString("%1  %2\n").arg(server, text);
}
} // namespace

/// The application's side of CITP. It lives in its own thread: all slots run there, never on the stack's.
class MediaServers : public QObject
{
public:
    MediaServers()
    {
        // By default a patch does not reach other threads than the stack's. Before the connection is made: Qt remembers
        // of a connection that it could not deliver.
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
            return; // it has gone since
        say(server, QString("serverUp: \"%1\", %2 %3.%4, MSEX 1.%5, %6 layers")
                        .arg(location.name, info.ProductName)
                        .arg(info.ProductVersionMajor)
                        .arg(info.ProductVersionMinor)
                        .arg(info.GetHighestMsexVersion())
                        .arg(info.LayerDMXSources.size()));

        // The stack has sent PNam, CInf and SPtc itself; an application may send them again.
        request(server, "PNam", Msg_PEER_PNAM(QString("Example console")));
        request(server, "CInf", Msg_MSEX_CInf());
        request(server, "SPtc", Msg_FPTC_SPTC(nullptr)); // the whole patch
        for (const unsigned char type : LibraryTypes) {
            // A server of MSEX 1.0 knows no sub-libraries; the parent is not sent to it.
            request(server, "GELI", Msg_MSEX_GELI(info.GetHighestMsexVersion(), type, "0,0,0,0", {}));
        }
    }

    void serverDown(const QString& server) { say(server, "serverDown"); }

    void libraryInfo(const QString& server, const Msg_MSEX_ELIN& answer)
    {
        say(server,
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
        say(server, QString("mediaInfo: %1 media in library %2").arg(answer.Media.size()).arg(answer.LibraryId));
        if (answer.Media.empty())
            return;
        const Msg_MSEX_MEIN::MediaInformation& first = answer.Media.front();
        request(server, "GETh",
                Msg_MSEX_GETH(answer.versionMinor, Media, answer.LibraryId, 60, 80, "PNG", {first.Number}));
    }

    void effectInfo(const QString& server, const Msg_MSEX_EEIN& answer)
    {
        say(server, QString("effectInfo: %1 effects in library %2").arg(answer.Effects.size()).arg(answer.LibraryId));
    }

    void genericInfo(const QString& server, const Msg_MSEX_GLEI& answer)
    {
        say(server,
            QString("genericInfo: %1 elements in library %2").arg(answer.Elements.size()).arg(answer.LibraryId));
    }

    void libraryThumbnail(const QString& server, const Msg_MSEX_ELTH& answer)
    {
        say(server, QString("libraryThumbnail: library %1: %2").arg(answer.LibraryId, picture(answer)));
    }

    void elementThumbnail(const QString& server, const Msg_MSEX_ETHN& answer)
    {
        say(server, QString("elementThumbnail: library %1, element %2: %3")
                        .arg(answer.LibraryId)
                        .arg(answer.ElementNumber)
                        .arg(picture(answer)));
    }

    // The empty buffer is how a failure is told.
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

    // What was fetched of the library before is out of date; a console would ask for it again.
    void libraryUpdated(const QString& server, const Msg_MSEX_ELUP& notice)
    {
        say(server, QString("libraryUpdated: library %1 of type %2, flags %3")
                        .arg(notice.LibraryId)
                        .arg(notice.LibraryType)
                        .arg(notice.UpdateFlags));
    }

    void layerStatus(const QString& server, const Msg_MSEX_LSTA& status)
    {
        for (const Msg_MSEX_LSTA::LayerStatus& layer : status.Layers) {
            say(server, QString("layerStatus: layer %1 plays \"%2\", frame %3 of %4")
                            .arg(layer.LayerNumber)
                            .arg(layer.MediaName)
                            .arg(layer.MediaPosition)
                            .arg(layer.MediaLength));
        }
    }

    void patchMessage(const QString& server, const Msg_FPTC_PTCH& fixture)
    {
        say(server, QString("patchMessage: fixture %1, %2 %3, universe %4, channel %5")
                        .arg(fixture.FixtureIdentifier)
                        .arg(fixture.FixtureMake, fixture.FixtureName)
                        .arg(fixture.Universe)
                        .arg(fixture.Channel));
    }

    // True means passed down, not received: an answer may never come, and a console counts on that.
    static void request(const QString& server, const char* code, const Msg_Header& message)
    {
        const bool passedDown = citp_stack::Get()->sendMsg(server, message);
        say(server, QString("request %1 %2").arg(QString(code), QString(passedDown ? "passed down" : "refused")));
    }
};

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const int seconds = argc > 1 ? QString(argv[1]).toInt() : 10;
    if (argc > 2 || seconds < 1 || seconds > 86400) {
        QTextStream(stderr) << "every_signal: wrong use; give one number of seconds, 1 to 86400, or nothing\n";
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

    // The thread first: its object disconnects from the stack as it goes. The stack itself is never deleted.
    thread.quit();
    thread.wait();
    return status;
}
