// Msg_Header: parsing, validating, writing and printing the CITP header.
// SPDX-License-Identifier: Apache-2.0
#include <citp/citp_msg_header.h>

#include "citp_log_p.h"
#include "citp_wire_p.h"

#include <citp/citp_codecs.h>

namespace CITP {
namespace {
constexpr int headerLength = 20;
constexpr int requestIndexOffset = 6;
constexpr int contentTypeOffset = 16;
} // namespace

Msg_Header::Msg_Header(unsigned short index, const QString& layer)
    : citpMajor(1), requestIndex(index), m_contentType(layer)
{
}

Msg_Header::Msg_Header(const QByteArray& msg)
{
    try {
        if (msg.size() < headerLength) {
            throw "too short for a CITP message";
        }
        WireReader reader(msg);
        cookie = reader.code();
        reader.run<12>([this](auto& fields) {
            citpMajor = fields.u8();
            citpMinor = fields.u8();
            requestIndex = fields.u16();
            size = fields.u32();
            partCount = fields.u16();
            part = fields.u16();
        });
        m_contentType = reader.code();
        if (!msg.startsWith("CITP")) {
            throw "header is not CITP";
        }
        if (citpMajor != 1) {
            throw "wrong CITP major";
        }
        if (citpMinor != 0) {
            throw "wrong CITP minor";
        }
        if (qint64(msg.size()) != qint64(size)) {
            throw "header size != datagram size";
        }
    } catch (const char* text) {
        // The source location in the log line is part of its documented format and does not follow the code.
        CITP_LOG(messageLogContext(), Os::Log::Failure, "citp_msg_header", 166,
                 "CITP::Msg_Header::Msg_Header(const QByteArray&)", "error reading CITP header: " << text);
        valid = false;
    }
}

Msg_Header::~Msg_Header() = default;

Msg_Header& Msg_Header::operator=(const Msg_Header& other)
{
    size = other.size;
    citpMajor = other.citpMajor;
    citpMinor = other.citpMinor;
    requestIndex = other.requestIndex;
    m_contentType = other.m_contentType;
    cookie = other.cookie;
    return *this;
}

int Msg_Header::messageSize(const QByteArray& buffer)
{
    if (buffer.size() < headerLength) {
        return 0;
    }
    return static_cast<int>(sizeField(buffer.constData()));
}

QString Msg_Header::contentType(const QByteArray& buffer)
{
    if (buffer.size() < headerLength) {
        return {};
    }
    return WireReader(buffer, contentTypeOffset).code();
}

void Msg_Header::setSize(QByteArray& buffer)
{
    if (buffer.size() >= sizeOffset + 4) {
        qToLittleEndian(static_cast<quint32>(buffer.size()), buffer.data() + sizeOffset);
    }
}

QByteArray& operator>>(QByteArray& out, const Msg_Header& header)
{
    // Most messages fit, so that the buffer does not grow again.
    constexpr int usualLength = 64;
    out.clear();
    out.reserve(usualLength);
    // The cookie, version 1.0, part 0 of 1. The request index and the size are filled in below.
    char fields[contentTypeOffset] = {'C', 'I', 'T', 'P', 1, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0};
    qToLittleEndian(header.requestIndex, fields + requestIndexOffset);
    qToLittleEndian(quint32(headerLength), fields + sizeOffset);
    out.append(fields, contentTypeOffset);
    appendCode(out, header.contentType());
    return out;
}

QString& operator>>(QString& text, const Msg_Header& header)
{
    text.append(QLatin1String("( "));
    if (header.valid) {
        addToStr(text, "rindex=", header.requestIndex);
    } else {
        addToStr(text, "top=", header.cookie);
        addToStr(text, " CitpMajor=", header.citpMajor);
        addToStr(text, " CitpMinor=", header.citpMinor);
    }
    addToStr(text, " size=", header.size);
    addToStr(text, " content=", header.contentType());
    return text.append(QLatin1String(" ) "));
}
} // namespace CITP
