// Recorder: writes down, on the stack's own thread and so in the true order, what the stack's signals say.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "worker_call.h"

#include <citp/citp_stack.h>

#include <QString>

#include <mutex>
#include <string>
#include <vector>

class Recorder
{
public:
    /// Connects directly to every signal but the internal one.
    explicit Recorder(CITP::citp_stack* stack);

    /// The events so far, oldest first, as "signal key detail"; the detail is the message's library, layer or fixture.
    std::vector<std::string> events() const;
    int count(const std::string& event) const;
    void clear();

private:
    struct Events
    {
        mutable std::mutex mutex;
        std::vector<std::string> list;
        void add(const char* signal, const QString& key, const QString& detail = {});
    };
    Events m_events;
    DirectReceiver<CITP::citp_stack> m_receiver;
};
