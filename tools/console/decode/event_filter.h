// EventFilter: selects the events of a capture by server, message and time.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDate>

#include "event.h"
#include "options.h"

namespace Console {
class EventFilter
{
public:
    /// Both parameters must outlive this object.
    EventFilter(const Options& options, const Tools::Classifier& classifier)
        : m_options(options), m_classifier(classifier)
    {
    }

    /// Whether the options select @p event. A time of day refers to the local day of the first event.
    bool accepts(const Event& event);

private:
    bool isFromServer(const Event& event) const;
    bool isWantedMessage(const Event& event) const;

    const Options& m_options;
    const Tools::Classifier& m_classifier;
    QDate m_day;
};
} // namespace Console
