// Recorder: one direct connection for each signal.
// SPDX-License-Identifier: Apache-2.0
#include "recorder.h"

#include <citp/citp_msg_fptc.h>
#include <citp/citp_msg_msex_elements.h>
#include <citp/citp_msg_msex_libraries.h>
#include <citp/citp_msg_msex_lsta.h>
#include <citp/citp_msg_msex_thumbnails.h>

#include <algorithm>

using CITP::citp_stack;

void Recorder::Events::add(const char* signal, const QString& key, const QString& detail)
{
    std::string event = std::string(signal) + " " + key.toStdString();
    if (!detail.isEmpty()) {
        event += " " + detail.toStdString();
    }
    const std::lock_guard<std::mutex> lock(mutex);
    list.push_back(event);
}

Recorder::Recorder(citp_stack* stack) : m_receiver(stack)
{
    Events* const events = &m_events;
    const auto listen = [&](auto signal, auto slot) { m_receiver.connect(signal, slot); };
    listen(&citp_stack::serverUp, [events](const QString& key) { events->add("serverUp", key); });
    listen(&citp_stack::serverDown, [events](const QString& key) { events->add("serverDown", key); });
    listen(&citp_stack::libraryInfo, [events](const QString& key, const CITP::Msg_MSEX_ELIN& m) {
        events->add("libraryInfo", key, m.Libraries.empty() ? QStringLiteral("none") : m.Libraries.front().LIBID);
    });
    listen(&citp_stack::mediaInfo,
           [events](const QString& key, const CITP::Msg_MSEX_MEIN& m) { events->add("mediaInfo", key, m.LibraryId); });
    listen(&citp_stack::effectInfo,
           [events](const QString& key, const CITP::Msg_MSEX_EEIN& m) { events->add("effectInfo", key, m.LibraryId); });
    listen(&citp_stack::genericInfo, [events](const QString& key, const CITP::Msg_MSEX_GLEI& m) {
        events->add("genericInfo", key, m.LibraryId);
    });
    listen(&citp_stack::libraryUpdated, [events](const QString& key, const CITP::Msg_MSEX_ELUP& m) {
        events->add("libraryUpdated", key, m.LibraryId);
    });
    listen(&citp_stack::layerStatus, [events](const QString& key, const CITP::Msg_MSEX_LSTA& m) {
        events->add("layerStatus", key, m.Layers.empty() ? QString() : QString::number(m.Layers.front().LayerNumber));
    });
    listen(&citp_stack::libraryThumbnail, [events](const QString& key, const CITP::Msg_MSEX_ELTH& m) {
        events->add("libraryThumbnail", key,
                    m.LibraryId + QLatin1Char('/') + QString::number(m.ThumbnailBuffer.size()));
    });
    listen(&citp_stack::elementThumbnail, [events](const QString& key, const CITP::Msg_MSEX_ETHN& m) {
        events->add("elementThumbnail", key,
                    m.LibraryId + QLatin1Char('/') + QString::number(m.ThumbnailBuffer.size()));
    });
    listen(&citp_stack::patchMessage, [events](const QString& key, const CITP::Msg_FPTC_PTCH& m) {
        events->add("patchMessage", key, QString::number(m.FixtureIdentifier));
    });
}

std::vector<std::string> Recorder::events() const
{
    const std::lock_guard<std::mutex> lock(m_events.mutex);
    return m_events.list;
}

int Recorder::count(const std::string& event) const
{
    const std::lock_guard<std::mutex> lock(m_events.mutex);
    return static_cast<int>(std::count(m_events.list.begin(), m_events.list.end(), event));
}

void Recorder::clear()
{
    const std::lock_guard<std::mutex> lock(m_events.mutex);
    m_events.list.clear();
}
