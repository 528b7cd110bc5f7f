// PatchReceiver: counts patch messages by the older, string-based kind of connection. The message is only declared
// here, as it is for the stack, so that this header does not register it.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_stack.h>

#include <QObject>

#include <atomic>

class PatchReceiver : public QObject
{
    Q_OBJECT

public:
    std::atomic<int> count{0};

public Q_SLOTS:
    void patch(const CITP::citp_stack::SERV_ID&, const CITP::Msg_FPTC_PTCH&);
};
