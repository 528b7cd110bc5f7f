// The answers, which are prepared and differ only in the identifiers.
// SPDX-License-Identifier: Apache-2.0
#include "media.h"

#include "wire.h"

#include <QtEndian>

#include <poll.h>
#include <sys/socket.h>

#include <chrono>
#include <cstring>
#include <string>

namespace {
constexpr int HeaderSize = 26; // of CITP and MSEX
constexpr int CodeOffset = 22;
constexpr int TypeAndId = 5;
// In a GETh: format, width, height, time; then type and identifier, the number of elements, and the elements.
constexpr int PictureFormatSize = 9;

void replace(QByteArray& message, int at, const char* bytes, int size)
{
    std::memcpy(message.data() + at, bytes, static_cast<std::size_t>(size));
}
} // namespace

Media::Media(std::vector<Connection*> connections, const Content& content)
    : m_connections(std::move(connections)), m_pictureTime(content.pictureTime)
{
    QByteArray libraries;
    for (int number = 1; number <= content.libraries; ++number) {
        libraries += Wire::u8(1) + Wire::u8(static_cast<unsigned>(number)) + Wire::u16(0) + Wire::u32(7) + Wire::u8(0) +
                     Wire::u8(255) + Wire::ucs2(("Library " + std::to_string(number)).c_str()) + Wire::u16(0) +
                     Wire::u16(static_cast<unsigned>(content.elements));
    }
    m_libraries = Wire::msex(2, "ELIn", Wire::u8(1) + Wire::u16(static_cast<unsigned>(content.libraries)) + libraries);
    QByteArray elements;
    for (int number = 0; number < content.elements; ++number) {
        elements += Wire::u8(static_cast<unsigned>(number)) + Wire::u32(9) + Wire::u8(0) + Wire::u8(255) +
                    Wire::ucs2(("Moving clouds over sea " + std::to_string(number)).c_str()) + Wire::u32(1) +
                    Wire::u32(0) + Wire::u16(1920) + Wire::u16(1080) + Wire::u32(500) + Wire::u8(25);
    }
    m_elements = Wire::msex(2, "MEIn", Wire::u32(0) + Wire::u16(static_cast<unsigned>(content.elements)) + elements);
    m_picture =
        Wire::msex(2, "EThn",
                   Wire::u8(1) + Wire::u32(0) + Wire::u8(0) + QByteArray("JPEG") + Wire::u16(320) + Wire::u16(240) +
                       Wire::u16(static_cast<unsigned>(content.picture.size())) + content.picture);
    m_thread = std::thread([this] { run(); });
}

Media::~Media()
{
    for (Connection* const connection : m_connections) {
        ::shutdown(connection->descriptor(), SHUT_RDWR);
    }
    m_thread.join();
}

void Media::run()
{
    std::vector<pollfd> polled;
    for (const Connection* const connection : m_connections) {
        polled.push_back({connection->descriptor(), POLLIN, 0});
    }
    std::vector<QByteArray> received(polled.size());
    std::size_t open = polled.size();
    QByteArray out;
    while (open > 0) {
        // Of a single connection recv() waits by itself.
        if (polled.size() > 1) {
            ::poll(polled.data(), polled.size(), -1);
        }
        for (std::size_t i = 0; i < polled.size(); ++i) {
            if (polled[i].fd < 0 || (polled.size() > 1 && polled[i].revents == 0)) {
                continue;
            }
            char buffer[65536];
            const ssize_t size = ::recv(polled[i].fd, buffer, sizeof buffer, 0);
            if (size <= 0) {
                polled[i].fd = -1;
                --open;
                continue;
            }
            QByteArray& input = received[i];
            input.append(buffer, static_cast<int>(size));
            int at = 0;
            out.clear();
            while (input.size() - at >= HeaderSize) {
                const auto length = static_cast<int>(qFromLittleEndian<quint32>(input.constData() + at + 8));
                if (input.size() - at < length) {
                    break;
                }
                answer(input.constData() + at, out);
                at += length;
                ++m_requests;
                if (m_pictureTime > 0) {
                    m_bytes += out.size();
                    m_connections[i]->trySend(out);
                    out.clear();
                }
            }
            input.remove(0, at);
            if (!out.isEmpty()) {
                m_bytes += out.size();
                m_connections[i]->trySend(out);
            }
        }
    }
}

void Media::answer(const char* request, QByteArray& out)
{
    const char* const body = request + HeaderSize;
    if (std::memcmp(request + CodeOffset, "GELI", 4) == 0) {
        out += m_libraries;
    } else if (std::memcmp(request + CodeOffset, "GEIn", 4) == 0) {
        replace(m_elements, HeaderSize, body + 1, TypeAndId - 1);
        out += m_elements;
    } else if (std::memcmp(request + CodeOffset, "GETh", 4) == 0) {
        const char* const asked = body + PictureFormatSize;
        replace(m_picture, HeaderSize, asked, TypeAndId);
        replace(m_picture, HeaderSize + TypeAndId, asked + TypeAndId + 2, 1);
        out += m_picture;
        ++m_pictureRequests;
        std::this_thread::sleep_for(std::chrono::milliseconds(m_pictureTime));
    }
}
