// Media: a fake server's answers to requests for libraries, elements and pictures, as fast as they can be sent.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "fake_server.h"

#include <QByteArray>

#include <atomic>
#include <thread>
#include <vector>

/// Answers the MSEX 1.2 requests on some connections, from one thread, until they end. Every library has the same
/// elements, and they have the same picture.
class Media
{
public:
    /// The number of libraries and of the elements of each, and the picture.
    struct Content
    {
        int libraries = 40;
        int elements = 250;
        QByteArray picture = QByteArray(4096, 'p');
        int pictureTime = 0; ///< ms before each picture; they are sent one after the other
    };

    /// @param connections must outlive this object
    Media(std::vector<Connection*> connections, const Content& content);
    /// Ends the connections.
    ~Media();
    Media(const Media&) = delete;
    Media& operator=(const Media&) = delete;

    /// The number of GETh that have come.
    int pictureRequests() const { return m_pictureRequests; }
    /// The number of all requests.
    int requests() const { return m_requests; }
    /// The bytes of all answers.
    qint64 bytes() const { return m_bytes; }

private:
    void run();
    void answer(const char* request, QByteArray& out);

    std::vector<Connection*> m_connections;
    QByteArray m_libraries;
    QByteArray m_elements;
    QByteArray m_picture;
    const int m_pictureTime;
    std::atomic<int> m_pictureRequests{0};
    std::atomic<int> m_requests{0};
    std::atomic<qint64> m_bytes{0};
    std::thread m_thread;
};
