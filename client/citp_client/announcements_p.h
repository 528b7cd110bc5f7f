// Announcements: hears the media servers announce themselves, on the adapter that the stack uses. Private.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QObject>
#include <QString>
#include <QTimer>
#include <QUdpSocket>

#include <cstdint>
#include <memory>
#include <string>

namespace CITP {
class Announcements : public QObject
{
    Q_OBJECT

public:
    Announcements();

Q_SIGNALS:
    void heard(const QString& server, const QString& name);

private:
    void checkAdapter();
    void read();

    QTimer m_adapterTimer;
    std::unique_ptr<QUdpSocket> m_socket;
    std::string m_adapter;
    std::uint32_t m_address = 0;
};
} // namespace CITP
