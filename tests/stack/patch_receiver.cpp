// PatchReceiver: see its header.
// SPDX-License-Identifier: Apache-2.0
#include "patch_receiver.h"

void PatchReceiver::patch(const CITP::citp_stack::SERV_ID&, const CITP::Msg_FPTC_PTCH&)
{
    ++count;
}
