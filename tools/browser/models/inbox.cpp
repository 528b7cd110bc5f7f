// Converts messages to values and batches frequent ones.
// SPDX-License-Identifier: Apache-2.0
#include "inbox.h"

#include <citp/citp_codecs.h>
#include <citp/citp_msg_fptc.h>
#include <citp/citp_msg_msex_elements.h>
#include <citp/citp_msg_msex_libraries.h>
#include <citp/citp_msg_msex_lsta.h>
#include <citp/citp_msg_msex_thumbnails.h>
#include <citp_images/images.h>

#include <QSet>

namespace Browser {
namespace {
using CITP::citp_stack;

constexpr int LayerIntervalMs = 40;
constexpr int FixtureBatchMs = 50;
// No view shows more of a name than this.
constexpr int MaxNameLength = 1000;
constexpr int MaxProductLength = 200;
constexpr int MaxParameters = 255;
constexpr quint8 LatestKnownMinor = 2;

QString truncated(const QString& name)
{
    return name.size() <= MaxNameLength ? name : name.left(MaxNameLength) + QChar(0x2026);
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

/// The fields that elements of all kinds have.
template <typename Item>
Element commonFields(const Item& item, const QString& name)
{
    Element element;
    element.number = item.Number;
    element.dmxMin = item.DMXRangeMin;
    element.dmxMax = item.DMXRangeMax;
    element.name = truncated(name);
    element.serial = item.SerialNumber;
    return element;
}

Element toElement(const CITP::Msg_MSEX_MEIN::MediaInformation& item)
{
    Element element = commonFields(item, item.Name);
    element.timestamp = item.Timestamp;
    element.width = item.Width;
    element.height = item.Height;
    element.length = item.Length;
    element.frameRate = item.FrameRate;
    return element;
}

Element toElement(const CITP::Msg_MSEX_EEIN::EffectInformation& item)
{
    Element element = commonFields(item, item.EffectName);
    for (const QString& parameter : item.ParameterNames) {
        if (element.parameters.size() < MaxParameters)
            element.parameters << toSingleLine(parameter);
    }
    return element;
}

Element toElement(const CITP::Msg_MSEX_GLEI::GenericInformation& item)
{
    Element element = commonFields(item, item.Name);
    element.timestamp = item.Timestamp;
    return element;
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
    // The library leaves this registration to the application; without it no fixture reaches another thread.
    qRegisterMetaType<CITP::Msg_FPTC_PTCH>("CITP::Msg_FPTC_PTCH");
    m_thread.setObjectName(QStringLiteral("citp-inbox"));
    moveToThread(&m_thread);
    connect(&m_thread, &QThread::started, this, &Inbox::initialize);
    connect(&m_thread, &QThread::finished, this, &Inbox::cleanUp, Qt::DirectConnection);
}

Inbox::~Inbox()
{
    // Pictures that are still queued for the thread are not decoded any more.
    setServer({});
    m_thread.quit();
    m_thread.wait();
}

void Inbox::setServer(const QString& key)
{
    const QMutexLocker lock(&m_mutex);
    m_server = key;
}

void Inbox::start(const Tools::StackOptions& options)
{
    m_options = options;
    m_thread.start();
}

bool Inbox::isCurrent(const QString& key)
{
    const QMutexLocker lock(&m_mutex);
    return key == m_server;
}

void Inbox::initialize()
{
    m_announcements = new Announcements(this);
    connect(m_announcements, &Announcements::announced, this, &Inbox::serverAnnounced);
    connect(m_announcements, &Announcements::adapterChanged, this, &Inbox::adapterChanged);
    m_announcements->start(m_options);
    m_layerTimer = new QTimer(this);
    m_layerTimer->setSingleShot(true);
    connect(m_layerTimer, &QTimer::timeout, this, &Inbox::emitLayers);
    m_fixtureTimer = new QTimer(this);
    m_fixtureTimer->setSingleShot(true);
    connect(m_fixtureTimer, &QTimer::timeout, this, &Inbox::emitFixtures);

    citp_stack* const stack = citp_stack::Get();
    connect(stack, &citp_stack::serverUp, this, &Inbox::reportServerUp);
    connect(stack, &citp_stack::serverDown, this, &Inbox::serverDown);
    connect(stack, &citp_stack::libraryInfo, this, &Inbox::handleLibraries);
    connect(stack, &citp_stack::mediaInfo, this, [this](const QString& key, const CITP::Msg_MSEX_MEIN& message) {
        handleElements(key, message, message.Media, Kind::Media);
    });
    connect(stack, &citp_stack::effectInfo, this, [this](const QString& key, const CITP::Msg_MSEX_EEIN& message) {
        handleElements(key, message, message.Effects, Kind::Effects);
    });
    connect(stack, &citp_stack::genericInfo, this, [this](const QString& key, const CITP::Msg_MSEX_GLEI& message) {
        handleElements(key, message, message.Elements, Kind::Generic);
    });
    connect(stack, &citp_stack::elementThumbnail, this, &Inbox::handlePicture);
    connect(stack, &citp_stack::libraryUpdated, this, &Inbox::handleUpdate);
    connect(stack, &citp_stack::layerStatus, this, &Inbox::handleLayers);
    connect(stack, &citp_stack::patchMessage, this, &Inbox::handleFixture);
    // The stack does not report again servers that are already up.
    for (const QString& key : stack->getServers())
        reportServerUp(key);
}

// Sockets and timers must be deleted in their own thread.
void Inbox::cleanUp()
{
    citp_stack::Get()->disconnect(this);
    delete m_announcements;
    delete m_layerTimer;
    delete m_fixtureTimer;
}

void Inbox::reportServerUp(const QString& key)
{
    CITP::Msg_MSEX_SINF sinf;
    CITP::Msg_PEER_PLOC ploc;
    // The server has already gone; its serverDown() follows.
    if (!citp_stack::Get()->getServerInfo(key, &sinf, &ploc))
        return;
    Server server;
    server.key = key;
    server.name = toSingleLine(ploc.name);
    server.product = toSingleLine(sinf.ProductName, MaxProductLength);
    server.msexMinor = sinf.GetHighestMsexVersion();
    server.version = QStringLiteral("%1.%2").arg(sinf.ProductVersionMajor).arg(sinf.ProductVersionMinor);
    if (server.msexMinor >= 2)
        server.version += QStringLiteral(".%1").arg(sinf.ProductVersionBugfix);
    server.layers = static_cast<int>(sinf.LayerDMXSources.size());
    server.libraryTypes = sinf.SupportedLibraryTypes;
    server.pictureFormat = pictureFormatOf(sinf);
    Q_EMIT serverUp(server);
}

void Inbox::handleLibraries(const QString& key, const CITP::Msg_MSEX_ELIN& message)
{
    if (!isCurrent(key))
        return;
    const auto list = std::make_shared<LibraryList>();
    list->server = key;
    list->type = message.LibraryType;
    if (message.versionMinor > LatestKnownMinor)
        list->unknownMinor = message.versionMinor;
    QSet<QString> known;
    for (const auto& info : message.Libraries) {
        // The rest of a truncated answer is read as zeros, which makes the same library repeat.
        if (known.contains(info.LIBID))
            continue;
        known.insert(info.LIBID);
        list->libraries.push_back({info.LIBID, truncated(info.Name), info.DMXRangeMin, info.DMXRangeMax,
                                   info.ElementCount, info.SubLibraryCount, info.SerialNumber});
    }
    Q_EMIT librariesArrived(list);
}

template <typename Message, typename Items>
void Inbox::handleElements(const QString& key, const Message& message, const Items& items, Kind kind)
{
    if (!isCurrent(key))
        return;
    const auto list = std::make_shared<ElementList>();
    list->server = key;
    list->library = message.LibraryId;
    list->kind = kind;
    if (message.versionMinor > LatestKnownMinor)
        list->unknownMinor = message.versionMinor;
    list->elements.reserve(items.size());
    const Element empty;
    for (const auto& item : items) {
        Element element = toElement(item);
        // Numbers may repeat in a long list, but an entry of zeros comes from the missing rest of a truncated answer.
        if (element == empty && !list->elements.empty())
            ++list->dropped;
        else
            list->elements.push_back(std::move(element));
    }
    Q_EMIT elementsArrived(list);
}

void Inbox::handlePicture(const QString& key, const CITP::Msg_MSEX_ETHN& message)
{
    if (!isCurrent(key))
        return;
    const CITP::DecodedPicture decoded = CITP::decodePicture(CITP::pictureOf(message), PreviewPixels);
    Q_EMIT pictureArrived({key, message.LibraryType, message.LibraryId, message.ElementNumber, decoded.image,
                           toSingleLine(decoded.problem)});
}

void Inbox::handleUpdate(const QString& key, const CITP::Msg_MSEX_ELUP& message)
{
    if (!isCurrent(key))
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

void Inbox::handleLayers(const QString& key, const CITP::Msg_MSEX_LSTA& message)
{
    if (!isCurrent(key))
        return;
    m_layersOf = key;
    m_layers.clear();
    for (const auto& status : message.Layers) {
        LayerState layer;
        layer.layer = status.LayerNumber;
        layer.output = status.PhysicalOutput;
        // MSEX 1.0 has no library type here: its layers play media.
        layer.type = message.versionMinor == 0 ? quint8(1) : status.LibraryType;
        layer.library = status.LibraryId;
        layer.element = status.MediaNumber;
        layer.name = toSingleLine(status.MediaName);
        layer.position = status.MediaPosition;
        layer.length = status.MediaLength;
        layer.frameRate = status.MediaFrameRate;
        layer.flags = status.LayerStatusFlags;
        m_layers.push_back(layer);
    }
    m_hasLayers = true;
    if (!m_layerTimer->isActive())
        emitLayers();
}

void Inbox::emitLayers()
{
    if (!m_hasLayers)
        return;
    m_hasLayers = false;
    Q_EMIT layersArrived(m_layersOf, m_layers);
    m_layerTimer->start(LayerIntervalMs);
}

void Inbox::handleFixture(const QString& key, const CITP::Msg_FPTC_PTCH& message)
{
    if (!isCurrent(key))
        return;
    if (key != m_fixturesOf)
        m_fixtures.clear();
    m_fixturesOf = key;
    m_fixtures.push_back({message.FixtureIdentifier, message.Universe, message.Channel, message.ChannelCount,
                          toSingleLine(message.FixtureMake), toSingleLine(message.FixtureName)});
    if (!m_fixtureTimer->isActive())
        m_fixtureTimer->start(FixtureBatchMs);
}

void Inbox::emitFixtures()
{
    Q_EMIT fixturesArrived(m_fixturesOf, m_fixtures);
    m_fixtures.clear();
}
} // namespace Browser
