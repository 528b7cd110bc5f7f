// Comparison of events with the options --server, --message, --since and --until.
// SPDX-License-Identifier: Apache-2.0
#include "event_filter.h"

#include "event_text.h"

namespace Console {
bool EventFilter::accepts(const Event& event)
{
    if (!m_day.isValid())
        m_day = QDateTime::fromMSecsSinceEpoch(event.timeUs / 1000).date();
    const qint64 time = event.timeUs / 1000;
    const auto momentOf = [this](const Moment& moment) {
        return QDateTime(moment.date.isValid() ? moment.date : m_day, moment.time).toMSecsSinceEpoch();
    };
    return (!m_options.since.time.isValid() || time >= momentOf(m_options.since)) &&
           (!m_options.until.time.isValid() || time <= momentOf(m_options.until)) && isFromServer(event) &&
           isWantedMessage(event);
}

bool EventFilter::isFromServer(const Event& event) const
{
    const QString& wanted = m_options.filteredServer;
    return wanted.isEmpty() || m_classifier.isMatch(event.server, wanted);
}

bool EventFilter::isWantedMessage(const Event& event) const
{
    const QStringList& wanted = m_options.messages;
    const bool isMessage = event.kind == Tools::StreamItem::Kind::Message;
    const QString kind = isMessage ? event.code : kindText(event.kind);
    // The messages of a new file keep their connections.
    const bool isWritten = !m_options.write.isEmpty() && !isMessage;
    return wanted.isEmpty() || isWritten || wanted.contains(kind, Qt::CaseInsensitive) ||
           (!event.layer.isEmpty() && wanted.contains(event.layer, Qt::CaseInsensitive));
}
} // namespace Console
