// Recorder: writes down, on the stack's own thread and so in the true order, what the stack's signals say.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_stack.h>

#include <QMetaObject>
#include <QString>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

class Recorder
{
public:
    /// Connects directly to every signal but the internal one.
    explicit Recorder(CITP::citp_stack* stack);
    ~Recorder();

    /// The events so far, oldest first, as "signal key detail"; the detail is the message's library, layer or fixture.
    std::vector<std::string> events() const;
    int count(const std::string& event) const;
    void clear();

private:
    struct Events
    {
        std::mutex mutex;
        std::vector<std::string> list;
        void add(const char* signal, const QString& key, const QString& detail = {});
    };
    // Shared with the connections: one may still be in use when this object dies.
    std::shared_ptr<Events> m_events;
    std::vector<QMetaObject::Connection> m_connections;
};
