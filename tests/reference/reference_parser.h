// The MSEX answers read a second time, straight from their wire tables with QDataStream: what the library's own parsers
// are held against, field by field, over cut and damaged messages.
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <citp/citp_msg_msex_elements.h>
#include <citp/citp_msg_msex_libraries.h>
#include <citp/citp_msg_msex_lsta.h>
#include <citp/citp_msg_msex_sinf.h>
#include <citp/citp_msg_msex_thumbnails.h>

#include <QByteArray>

namespace reference {
/// Fills a default-constructed @p out from the whole message @p msg: `valid`, the MSEX version and code, and the body.
/// The other members of the CITP header are left alone.
void parse(const QByteArray& msg, CITP::Msg_MSEX_ELIN& out);
void parse(const QByteArray& msg, CITP::Msg_MSEX_ELUP& out);
void parse(const QByteArray& msg, CITP::Msg_MSEX_MEIN& out);
void parse(const QByteArray& msg, CITP::Msg_MSEX_EEIN& out);
void parse(const QByteArray& msg, CITP::Msg_MSEX_GLEI& out);
void parse(const QByteArray& msg, CITP::Msg_MSEX_LSTA& out);
void parse(const QByteArray& msg, CITP::Msg_MSEX_ELTH& out);
void parse(const QByteArray& msg, CITP::Msg_MSEX_ETHN& out);
/// Without GetHighestMsexVersion(), which nobody but the library can set.
void parse(const QByteArray& msg, CITP::Msg_MSEX_SINF& out);

/// Whether what parse() fills is the same in both.
bool same(const CITP::Msg_MSEX_ELIN& a, const CITP::Msg_MSEX_ELIN& b);
bool same(const CITP::Msg_MSEX_ELUP& a, const CITP::Msg_MSEX_ELUP& b);
bool same(const CITP::Msg_MSEX_MEIN& a, const CITP::Msg_MSEX_MEIN& b);
bool same(const CITP::Msg_MSEX_EEIN& a, const CITP::Msg_MSEX_EEIN& b);
bool same(const CITP::Msg_MSEX_GLEI& a, const CITP::Msg_MSEX_GLEI& b);
bool same(const CITP::Msg_MSEX_LSTA& a, const CITP::Msg_MSEX_LSTA& b);
bool same(const CITP::Msg_MSEX_ELTH& a, const CITP::Msg_MSEX_ELTH& b);
bool same(const CITP::Msg_MSEX_ETHN& a, const CITP::Msg_MSEX_ETHN& b);
bool same(const CITP::Msg_MSEX_SINF& a, const CITP::Msg_MSEX_SINF& b);
} // namespace reference
