// Describes the message of an event.
// SPDX-License-Identifier: Apache-2.0
#include "event.h"

#include "message_text.h"

namespace Console {
Event::Event(const Tools::Event& event) : Tools::Event(event)
{
    if (kind != Tools::StreamItem::Kind::Message)
        return;
    const MessageText described = describeMessage(message);
    text = described.text;
    isUnreadable = described.isUnreadable;
    problem = described.problem;
}
} // namespace Console
