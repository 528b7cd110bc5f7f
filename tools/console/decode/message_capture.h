// MessageCapture: writes the messages of a capture as packets of a new one, without their pictures if wanted.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <utility>

#include "event.h"
#include "new_capture.h"

namespace Console {
/// @p message without the picture of an ELTh or EThn: it ends with the size of the picture, which is 0. Other messages
/// are returned as they are.
QByteArray withoutPicture(const QByteArray& message, const QString& code);

/// The packets are bare IP packets with the times and endpoints of the messages, each message in as few TCP segments as
/// possible. Starts, ends and gaps of the connections are written too; other bytes that are no message are not.
class MessageCapture
{
public:
    /// @throws Failure if @p file cannot be created
    MessageCapture(const QString& file, bool hasPictures);

    void add(const Event& event);
    /// Gives the file its name, and prints what was written.
    /// @throws Failure if the file could not be written
    void finish();

private:
    using Direction = std::pair<Tools::Endpoint, Tools::Endpoint>;
    struct CaptureCloser
    {
        void operator()(pcap_t* capture) const { pcap_close(capture); }
    };

    void addNote(const Event& event);
    void addMessage(const Event& event);
    void writeSegment(const Direction& direction, quint8 flags, const QByteArray& data, qint64 timeUs);
    void writePacket(const Direction& direction, quint8 protocol, const QByteArray& payload, qint64 timeUs);

    const bool m_hasPictures;
    const std::unique_ptr<pcap_t, CaptureCloser> m_capture;
    NewCapture m_file;
    std::map<Direction, quint32> m_next; ///< sequence numbers
    qint64 m_messages = 0;
    qint64 m_pictures = 0; ///< left out
    qint64 m_marks = 0;    ///< likewise
};
} // namespace Console
