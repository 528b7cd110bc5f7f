// The random requests of the model and of the tests over sockets: the same for the same random numbers.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp_client/requests.h>

#include <random>

/// Less than @p bound, at least 0.
inline int randomBelow(std::mt19937& random, int bound)
{
    return static_cast<int>(random() % static_cast<unsigned>(bound));
}

/// A request of any kind to @p server of MSEX 1.@p minor, for one of few libraries and elements, so that many requests
/// look alike.
inline CITP::Request randomRequest(std::mt19937& random, const QString& server, int minor)
{
    const auto chance = [&random](int percent) { return randomBelow(random, 100) < percent; };
    CITP::Request request;
    request.server = server;
    request.kind = static_cast<CITP::Request::Kind>(randomBelow(random, 4));
    request.type = static_cast<quint8>(1 + randomBelow(random, 4));
    request.library = QStringLiteral("1,%1,0,0").arg(randomBelow(random, 3));
    if (request.kind == CITP::Request::Libraries && (minor == 0 || chance(30)))
        request.library = CITP::rootLibrary();
    if (request.kind == CITP::Request::ElementPicture || (request.kind != CITP::Request::LibraryPicture && chance(30)))
        request.numbers = {static_cast<quint8>(randomBelow(random, 6))};
    request.size = chance(80) ? QSize(320, 240) : QSize(64, 48);
    request.isByHand = chance(20);
    return request;
}
