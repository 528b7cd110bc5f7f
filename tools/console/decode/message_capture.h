// MessageCapture: writes the messages of a capture as packets of a new one, without their pictures if wanted.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <deque>
#include <map>
#include <utility>

#include "event.h"
#include "new_capture.h"

namespace Console {
/// The packets are bare IP packets with the times and endpoints of the messages, each message in as few TCP segments as
/// possible. Starts and ends of the connections are written too, and gaps as packets that the capture has cut off.
/// Other bytes that are no message are not.
///
/// Without pictures, an ELTh or EThn ends with the size of the picture, which is 0. What could hide one is left out:
/// messages that contain another one, and further parts of messages.
class MessageCapture
{
public:
    /// @throws Failure if @p file cannot be created
    MessageCapture(const QString& file, bool hasPictures);

    void add(const Event& event);
    /// Gives the file its name, and prints what was written.
    /// @throws Failure if the file could not be written, or contains no message
    void finish();

private:
    using Direction = std::pair<Tools::Endpoint, Tools::Endpoint>;
    struct CaptureCloser
    {
        void operator()(pcap_t* capture) const { pcap_close(capture); }
    };

    /// One direction of a connection.
    struct Flow
    {
        quint32 next = 0;       ///< sequence number
        bool isAwaited = false; ///< the peer has sent its SYN and nothing has come back yet
    };

    Flow& flow(const Direction& direction);
    void addNote(const Event& event);
    void addGap(const Event& event);
    void addMessage(const Event& event);
    void accept(const Direction& direction, qint64 timeUs);
    void writeSegment(const Direction& direction, quint8 flags, const QByteArray& data, qint64 timeUs, int missing = 0);
    void writePacket(const Direction& direction, quint8 protocol, const QByteArray& payload, qint64 timeUs,
                     int missing = 0);

    const bool m_hasPictures;
    const std::unique_ptr<pcap_t, CaptureCloser> m_capture;
    NewCapture m_file;
    std::map<Direction, Flow> m_flows;
    std::deque<Direction> m_ended; ///< their flows can be removed for new ones, oldest first
    quint32 m_first = 0;           ///< sequence number of the last connection
    qint64 m_messages = 0;
    qint64 m_pictures = 0; ///< left out
    qint64 m_others = 0;   ///< likewise: errors, notes, and what could hide a picture
};
} // namespace Console
