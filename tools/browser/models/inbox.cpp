// Conversion of the messages to values, and the pauses between bundles.
// SPDX-License-Identifier: Apache-2.0
#include "inbox.h"

#include <citp/citp_codecs.h>
#include <citp/citp_msg_fptc.h>
#include <citp/citp_msg_msex_elements.h>
#include <citp/citp_msg_msex_libraries.h>
#include <citp/citp_msg_msex_lsta.h>
#include <citp/citp_msg_msex_thumbnails.h>

#include <QSet>

#include "decoding.h"

namespace Browser {
namespace {
using CITP::citp_stack;

constexpr int LayerPauseMs = 40;
constexpr int FixturePauseMs = 50;
// What is kept of a name; a person never sees more of it at once.
constexpr int LongestName = 1000;
constexpr int LongestProduct = 200;
constexpr int MostParameters = 255;
constexpr quint8 LatestMinor = 2;

QString kept(const QString& name)
{
    return name.size() <= LongestName ? name : name.left(LongestName) + QChar(0x2026);
}

QString pictureFormatOf(const CITP::Msg_MSEX_SINF& sinf)
{
    QStringList formats;
    for (const unsigned int format : sinf.ThumbnailFormats) {
        QString text;
        formats << CITP::fromGraphicFormat(text, format).trimmed();
    }
    for (const char* const wanted : {"JPEG", "PNG", "RGB8"}) {
        if (formats.contains(QLatin1String(wanted)))
            return QString::fromLatin1(wanted);
    }
    return QStringLiteral("JPEG");
}

Element toElement(const CITP::Msg_MSEX_MEIN::MediaInformation& item)
{
    Element element;
    element.number = item.Number;
    element.dmxMin = item.DMXRangeMin;
    element.dmxMax = item.DMXRangeMax;
    element.name = kept(item.Name);
    element.serial = item.SerialNumber;
    element.timestamp = item.Timestamp;
    element.width = item.Width;
    element.height = item.Height;
    element.length = item.Length;
    element.frameRate = item.FrameRate;
    return element;
}

Element toElement(const CITP::Msg_MSEX_EEIN::EffectInformation& item)
{
    Element element;
    element.number = item.Number;
    element.dmxMin = item.DMXRangeMin;
    element.dmxMax = item.DMXRangeMax;
    element.name = kept(item.EffectName);
    element.serial = item.SerialNumber;
    for (const QString& parameter : item.ParameterNames) {
        if (element.parameters.size() < MostParameters)
            element.parameters << oneLine(parameter);
    }
    return element;
}

Element toElement(const CITP::Msg_MSEX_GLEI::GenericInformation& item)
{
    Element element;
    element.number = item.Number;
    element.dmxMin = item.DMXRangeMin;
    element.dmxMax = item.DMXRangeMax;
    element.name = kept(item.Name);
    element.serial = item.SerialNumber;
    element.timestamp = item.Timestamp;
    return element;
}

const auto& itemsOf(const CITP::Msg_MSEX_MEIN& message)
{
    return message.Media;
}
const auto& itemsOf(const CITP::Msg_MSEX_EEIN& message)
{
    return message.Effects;
}
const auto& itemsOf(const CITP::Msg_MSEX_GLEI& message)
{
    return message.Elements;
}

Kind kindOf(const CITP::Msg_MSEX_MEIN& /*message*/)
{
    return Kind::Media;
}
Kind kindOf(const CITP::Msg_MSEX_EEIN& /*message*/)
{
    return Kind::Effects;
}
Kind kindOf(const CITP::Msg_MSEX_GLEI& /*message*/)
{
    return Kind::Generic;
}

std::bitset<256> toBits(const std::array<unsigned char, 32>& bytes)
{
    std::bitset<256> bits;
    for (std::size_t i = 0; i < bits.size(); ++i)
        bits[i] = (bytes[i / 8] >> (i % 8) & 1) != 0;
    return bits;
}
} // namespace

Inbox::Inbox()
{
    registerValues();
    // Left to the application by the library; without it no fixture reaches another thread.
    qRegisterMetaType<CITP::Msg_FPTC_PTCH>("CITP::Msg_FPTC_PTCH");
    m_thread.setObjectName(QStringLiteral("citp-inbox"));
    moveToThread(&m_thread);
    connect(&m_thread, &QThread::started, this, &Inbox::begin);
    connect(&m_thread, &QThread::finished, this, &Inbox::end, Qt::DirectConnection);
}

Inbox::~Inbox()
{
    // What still waits for its thread is decoded for nobody.
    follow({});
    m_thread.quit();
    m_thread.wait();
}

void Inbox::follow(const QString& key)
{
    const QMutexLocker lock(&m_mutex);
    m_followed = key;
}

void Inbox::start()
{
    m_thread.start();
}

bool Inbox::isFollowed(const QString& key)
{
    const QMutexLocker lock(&m_mutex);
    return key == m_followed;
}

void Inbox::begin()
{
    m_announcements = new Announcements(this);
    connect(m_announcements, &Announcements::heard, this, &Inbox::serverHeard);
    connect(m_announcements, &Announcements::adapterChanged, this, &Inbox::adapterChanged);
    m_announcements->start();
    m_layerPause = new QTimer(this);
    m_layerPause->setSingleShot(true);
    connect(m_layerPause, &QTimer::timeout, this, &Inbox::tellLayers);
    m_fixturePause = new QTimer(this);
    m_fixturePause->setSingleShot(true);
    connect(m_fixturePause, &QTimer::timeout, this, &Inbox::tellFixtures);

    citp_stack* const stack = citp_stack::Get();
    connect(stack, &citp_stack::serverUp, this, &Inbox::tellUp);
    connect(stack, &citp_stack::serverDown, this, &Inbox::serverDown);
    connect(stack, &citp_stack::libraryInfo, this, &Inbox::takeLibraries);
    connect(stack, &citp_stack::mediaInfo, this, &Inbox::takeElements<CITP::Msg_MSEX_MEIN>);
    connect(stack, &citp_stack::effectInfo, this, &Inbox::takeElements<CITP::Msg_MSEX_EEIN>);
    connect(stack, &citp_stack::genericInfo, this, &Inbox::takeElements<CITP::Msg_MSEX_GLEI>);
    connect(stack, &citp_stack::elementThumbnail, this, &Inbox::takePicture);
    connect(stack, &citp_stack::libraryUpdated, this, &Inbox::takeUpdate);
    connect(stack, &citp_stack::layerStatus, this, &Inbox::takeLayers);
    connect(stack, &citp_stack::patchMessage, this, &Inbox::takeFixture);
    // Those that were up before are not reported again.
    for (const QString& key : stack->getServers())
        tellUp(key);
}

// Sockets and timers go in the thread that they live in.
void Inbox::end()
{
    citp_stack::Get()->disconnect(this);
    delete m_announcements;
    delete m_layerPause;
    delete m_fixturePause;
}

void Inbox::tellUp(const QString& key)
{
    CITP::Msg_MSEX_SINF sinf;
    CITP::Msg_PEER_PLOC ploc;
    // Gone again already: its serverDown() is on its way.
    if (!citp_stack::Get()->getServerInfo(key, &sinf, &ploc))
        return;
    Server server;
    server.key = key;
    server.name = oneLine(ploc.name);
    server.product = oneLine(sinf.ProductName, LongestProduct);
    server.msexMinor = sinf.GetHighestMsexVersion();
    server.version = QStringLiteral("%1.%2").arg(sinf.ProductVersionMajor).arg(sinf.ProductVersionMinor);
    if (server.msexMinor >= 2)
        server.version += QStringLiteral(".%1").arg(sinf.ProductVersionBugfix);
    server.layers = static_cast<int>(sinf.LayerDMXSources.size());
    server.libraryTypes = sinf.SupportedLibraryTypes;
    server.pictureFormat = pictureFormatOf(sinf);
    Q_EMIT serverUp(server);
}

void Inbox::takeLibraries(const QString& key, const CITP::Msg_MSEX_ELIN& message)
{
    if (!isFollowed(key))
        return;
    const auto list = std::make_shared<LibraryList>();
    list->server = key;
    list->type = message.LibraryType;
    if (message.versionMinor > LatestMinor)
        list->unknownMinor = message.versionMinor;
    QSet<QString> known;
    for (const auto& info : message.Libraries) {
        // An answer that was cut short reads as zeros behind the cut: the same library again and again.
        if (known.contains(info.LIBID))
            continue;
        known.insert(info.LIBID);
        list->libraries.push_back({info.LIBID, kept(info.Name), info.DMXRangeMin, info.DMXRangeMax, info.ElementCount,
                                   info.SubLibraryCount, info.SerialNumber});
    }
    Q_EMIT librariesArrived(list);
}

template <typename Message>
void Inbox::takeElements(const QString& key, const Message& message)
{
    if (!isFollowed(key))
        return;
    const auto list = std::make_shared<ElementList>();
    list->server = key;
    list->library = message.LibraryId;
    list->kind = kindOf(message);
    if (message.versionMinor > LatestMinor)
        list->unknownMinor = message.versionMinor;
    list->elements.reserve(itemsOf(message).size());
    const Element nothing;
    for (const auto& item : itemsOf(message)) {
        Element element = toElement(item);
        // Numbers may repeat in a long list, but an entry without any content is behind the cut of a damaged answer.
        if (element == nothing && !list->elements.empty())
            ++list->dropped;
        else
            list->elements.push_back(std::move(element));
    }
    Q_EMIT elementsArrived(list);
}

void Inbox::takePicture(const QString& key, const CITP::Msg_MSEX_ETHN& message)
{
    if (!isFollowed(key))
        return;
    const Decoded decoded = decode(message);
    Q_EMIT pictureArrived(
        {key, message.LibraryType, message.LibraryId, message.ElementNumber, decoded.image, decoded.problem});
}

void Inbox::takeUpdate(const QString& key, const CITP::Msg_MSEX_ELUP& message)
{
    if (!isFollowed(key))
        return;
    LibraryUpdate update;
    update.server = key;
    update.type = message.LibraryType;
    update.library = message.LibraryId;
    update.elementsUpdated = (message.UpdateFlags & 0x01) != 0;
    update.elementsMoved = (message.UpdateFlags & 0x02) != 0;
    update.librariesUpdated = (message.UpdateFlags & 0x04) != 0;
    update.librariesMoved = (message.UpdateFlags & 0x08) != 0;
    update.elements = toBits(message.AffectedElements);
    update.libraries = toBits(message.AffectedLibraries);
    update.areElementsNamed = update.elements.any() && (message.UpdateFlags & 0x10) == 0;
    update.areLibrariesNamed = update.libraries.any() && (message.UpdateFlags & 0x20) == 0;
    Q_EMIT libraryUpdated(update);
}

void Inbox::takeLayers(const QString& key, const CITP::Msg_MSEX_LSTA& message)
{
    if (!isFollowed(key))
        return;
    m_layersOf = key;
    m_layers.clear();
    for (const auto& status : message.Layers) {
        LayerState layer;
        layer.layer = status.LayerNumber;
        layer.output = status.PhysicalOutput;
        // MSEX 1.0 does not tell the type: what plays there is media.
        layer.type = message.versionMinor == 0 ? quint8(1) : status.LibraryType;
        layer.library = status.LibraryId;
        layer.element = status.MediaNumber;
        layer.name = oneLine(status.MediaName);
        layer.position = status.MediaPosition;
        layer.length = status.MediaLength;
        layer.frameRate = status.MediaFrameRate;
        layer.flags = status.LayerStatusFlags;
        m_layers.push_back(layer);
    }
    m_hasLayers = true;
    if (!m_layerPause->isActive())
        tellLayers();
}

void Inbox::tellLayers()
{
    if (!m_hasLayers)
        return;
    m_hasLayers = false;
    Q_EMIT layersArrived(m_layersOf, m_layers);
    m_layerPause->start(LayerPauseMs);
}

void Inbox::takeFixture(const QString& key, const CITP::Msg_FPTC_PTCH& message)
{
    if (!isFollowed(key))
        return;
    if (key != m_fixturesOf)
        m_fixtures.clear();
    m_fixturesOf = key;
    m_fixtures.push_back({message.FixtureIdentifier, message.Universe, message.Channel, message.ChannelCount,
                          oneLine(message.FixtureMake), oneLine(message.FixtureName)});
    if (!m_fixturePause->isActive())
        m_fixturePause->start(FixturePauseMs);
}

void Inbox::tellFixtures()
{
    Q_EMIT fixturesArrived(m_fixturesOf, m_fixtures);
    m_fixtures.clear();
}
} // namespace Browser
