// Replay: plays a recorded server: its announcements, its answers to what is asked, and its layer states in time.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QByteArray>
#include <QElapsedTimer>
#include <QHash>
#include <QMap>
#include <QString>
#include <QStringList>

#include "answers.h"
#include "recording.h"

namespace MediaServer {
class Replay
{
public:
    /// What was never asked in the recording is answered with nothing, or lists with an empty list.
    enum class Unknown { Silence, Empty };

    /// How often each question was asked, of which the recording has several answers: one for each connection.
    using Turns = QHash<QByteArray, std::size_t>;

    /// @param spool contains the messages of the recording; must outlive this object
    /// @param speed how fast announcements and notifications are played; 1 is as recorded
    Replay(std::unique_ptr<Recording> recording, const Spool& spool, Unknown unknown, double speed);

    /// The name of the server; its key if no announcement was recorded.
    QString name() const;
    /// What is replayed, and what is missing in the recording.
    QStringList report() const;
    /// What was asked and is not in the recording, with counts; the most frequent first.
    QStringList unknownQuestions() const;

    /// The next announcement, with the port @p port; synthetic if none was recorded.
    /// @param waitMs set to the time until the one after it
    QByteArray nextAnnouncement(quint16 port, int& waitMs);

    /// What is sent to a console when it has connected.
    std::vector<QByteArray> greeting() const;
    /// The answers to a request. If several were recorded, they take turns, and then the last one stays.
    /// @param message the bytes of @p request
    Answers answersTo(const Request& request, const QByteArray& message, Turns& turns);

    /// Starts the announcements and the notifications from the beginning.
    void rewind();
    void rewindNotifications();
    /// The next notification that is due; empty if none is. When all have been sent, the layer states start again.
    /// @param waitMs set to the time until the next one, -1 if there is none
    QByteArray nextNotification(int& waitMs);

private:
    QByteArray read(const Stored& stored, quint16 index) const;
    // Appends what was recorded for the question @p key, of lists only @p numbers unless that is empty.
    // @return whether it was asked in the recording
    bool append(const QByteArray& key, quint16 index, const std::vector<quint8>& numbers, Turns& turns,
                Answers& answers) const;
    // Appends what was recorded for each thumbnail or fixture of the request for all with the key @p all.
    // @return whether there is any
    bool appendEach(const QByteArray& all, quint16 index, Turns& turns, Answers& answers) const;
    Answers answerUnknown(const Request& request);
    qint64 playedUs(const QElapsedTimer& since) const;

    const std::unique_ptr<Recording> m_recording;
    const Spool& m_spool;
    const Unknown m_unknown;
    const double m_speed;
    QMap<QString, qint64> m_unknownCounts; ///< by the text of the question
    qint64 m_otherUnknown = 0;             ///< of those beyond the limit
    QElapsedTimer m_announcing;
    std::size_t m_announced = 0;
    qint64 m_announceRound = 0;
    QElapsedTimer m_notifying;
    std::size_t m_notified = 0;
    qint64 m_notifyRound = 0;
    qint64 m_statusPeriodUs = 0; ///< of the layer states; 0: there are none
};
} // namespace MediaServer
