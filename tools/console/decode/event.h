// Event: a message of a capture as the library reads it, or something else found in the capture.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "capture/decoder.h"

namespace Console {
struct Event : Tools::Event
{
    Event() = default;
    /// Sets #text to the debug text of a message. Implicit, so that a function that takes an Event can be passed to
    /// the decoder.
    Event(const Tools::Event& event); // NOLINT(google-explicit-constructor)

    QString problem;           ///< why the library would discard a message; empty if it accepts it
    bool isUnreadable = false; ///< the fields of the message have no values
};
} // namespace Console
