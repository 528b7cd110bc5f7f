// Coalescing of layer reports, and the end of a patch.
// SPDX-License-Identifier: Apache-2.0
#include <citp_client/layers.h>

#include <citp/citp_msg_fptc.h>
#include <citp/citp_msg_msex_lsta.h>
#include <citp_client/values.h>

#include <algorithm>

namespace CITP {
// --- Layers ----------------------------------------------------------------------------------------------------------

Layers::Layers(Transport& transport, const QString& server, QObject* parent)
    : QObject(parent), m_transport(transport), m_server(server)
{
    connect(&transport, &Transport::layerStatus, this, [this](const QString& key, const Msg_MSEX_LSTA& message) {
        if (key == m_server) {
            // Converted only when it is shown: a server may send thousands a second.
            m_newest = std::make_unique<Msg_MSEX_LSTA>(message);
            m_reported = m_transport.now();
            m_isNew = true;
            wakeUp();
        }
    });
    connect(&transport, &Transport::serverDown, this, [this](const QString& key) {
        if (key == m_server) {
            m_newest.reset();
            m_layers.clear();
            m_reported = -1;
            m_isNew = true;
            wakeUp();
        }
    });
    connect(&transport, &Transport::wokenUp, this, &Layers::wakeUp);
}

Layers::~Layers() = default;

qint64 Layers::age() const
{
    return m_reported < 0 ? -1 : m_transport.now() - m_reported;
}

bool Layers::isStale() const
{
    return m_reported < 0 || age() >= staleTime;
}

void Layers::convert()
{
    if (!m_newest) {
        return;
    }
    const std::unique_ptr<Msg_MSEX_LSTA> message = std::move(m_newest);
    Msg_MSEX_SINF sinf;
    // The stack gives the information of any server that can report.
    m_transport.serverInfo(m_server, &sinf, nullptr);
    m_layers.clear();
    for (const auto& item : message->Layers) {
        Layer layer;
        layer.number = item.LayerNumber;
        layer.output = item.PhysicalOutput;
        layer.type = message->versionMinor == 0 ? quint8(1) : item.LibraryType;
        layer.library = libraryId(item.LibraryId, sinf.GetHighestMsexVersion());
        layer.element = item.MediaNumber;
        layer.name = item.MediaName;
        layer.position = item.MediaPosition;
        layer.length = item.MediaLength;
        layer.frameRate = item.MediaFrameRate;
        layer.flags = item.LayerStatusFlags;
        m_layers.push_back(layer);
    }
}

void Layers::wakeUp()
{
    const qint64 now = m_transport.now();
    if (m_reported >= 0 && !isStale()) {
        m_transport.wakeUpAt(m_reported + staleTime);
    }
    const bool isDue = m_emitted < 0 || now - m_emitted >= m_interval;
    if (m_isNew && !isDue) {
        m_transport.wakeUpAt(m_emitted + m_interval);
    }
    if ((m_isNew && isDue) || isStale() != m_wasStale) {
        m_isNew = false;
        convert();
        m_wasStale = isStale();
        m_emitted = now;
        Q_EMIT changed();
    }
}

// --- Patch -----------------------------------------------------------------------------------------------------------

Patch::Patch(Transport& transport, const QString& server, QObject* parent)
    : QObject(parent), m_transport(transport), m_server(server)
{
    connect(&transport, &Transport::patchMessage, this, [this](const QString& key, const Msg_FPTC_PTCH& message) {
        if (key == m_server) {
            take(message);
        }
    });
    connect(&transport, &Transport::serverDown, this, [this](const QString& key) {
        if (key == m_server && m_state == Receiving) {
            setState(Cut);
        }
    });
    connect(&transport, &Transport::serverUp, this, [this](const QString& key) {
        if (key == m_server && m_state != Receiving) {
            m_fixtures.clear();
            m_characters = 0;
            setState(Unknown);
        }
    });
    connect(&transport, &Transport::wokenUp, this, [this] {
        if (m_state != Receiving) {
            return;
        }
        if (m_transport.now() - m_received >= quietTime) {
            setState(Complete);
        } else {
            m_transport.wakeUpAt(m_received + quietTime);
        }
    });
    request();
}

Patch::~Patch() = default;

void Patch::request()
{
    if (m_transport.serverInfo(m_server, nullptr, nullptr)) {
        m_transport.send(m_server, Msg_FPTC_SPTC(nullptr));
    }
}

std::vector<Fixture> Patch::fixtures() const
{
    std::vector<Fixture> fixtures;
    for (const auto& fixture : m_fixtures) {
        fixtures.push_back(fixture.second);
    }
    return fixtures;
}

void Patch::setState(State state)
{
    if (state != m_state) {
        m_state = state;
        Q_EMIT changed();
    }
}

void Patch::take(const Msg_FPTC_PTCH& message)
{
    Fixture& fixture = m_fixtures[message.FixtureIdentifier];
    const auto charactersOf = [](const Fixture& of) { return of.make.size() + of.name.size(); };
    m_characters -= charactersOf(fixture);
    fixture = {message.FixtureIdentifier, message.Universe,    message.Channel,
               message.ChannelCount,      message.FixtureMake, message.FixtureName};
    m_characters += charactersOf(fixture);
    if (m_characters > maxCharacters) {
        m_characters -= charactersOf(fixture);
        m_fixtures.erase(message.FixtureIdentifier);
        setState(TooLarge);
        return;
    }
    m_received = m_transport.now();
    m_transport.wakeUpAt(m_received + quietTime);
    if (m_state != TooLarge) {
        setState(Receiving);
    }
}
} // namespace CITP
