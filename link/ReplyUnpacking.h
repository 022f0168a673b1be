#pragma once

// What a read reply means, apart from any transport: whether it is ours, and
// the data each read function hands on. Pure functions of the reply bytes;
// throughout, a byte past the end of a reply counts as 0, so a short reply is
// filled with zeros and is no error.

#include "FrameBytes.h"
#include "SorvikProtocol.h"

#include <QByteArray>

namespace ReplyUnpacking {

// Bytes 0 and 1 must repeat the request's; a one-byte reply is not ours.
inline bool isOwnReply(const QByteArray &reply)
{
    using namespace SorvikProtocol;
    return FrameBytes::byteAt(reply, 0) == kReadFunction && FrameBytes::byteAt(reply, 1) == kRequestByte1;
}

// A bit read: one reply byte per point, `count` of them.
inline void unpackBits(const QByteArray &reply, int count, QByteArray *out)
{
    FrameBytes::appendZeroFilled(out, reply, SorvikProtocol::kReplyHeadSize, count);
}

// A byte read of `length` bytes. On a bit area eight wire bytes, one per
// bit, make one data byte, wire element 0 being bit 0; elsewhere the bytes
// are handed on as they came.
inline void unpackBytes(const QByteArray &reply, int area, int length, QByteArray *out)
{
    using namespace SorvikProtocol;
    if (!isBitArea(area)) {
        FrameBytes::appendZeroFilled(out, reply, kReplyHeadSize, length);
        return;
    }
    const int packed = qMax(0, length / 8);
    const int start = out->size();
    out->resize(start + packed);
    char *to = out->data() + start;
    for (int i = 0; i < packed; ++i) {
        const qint64 base = kReplyHeadSize + 8 * qint64(i);
        unsigned byte = 0;
        for (int k = 0; k < 8; ++k)
            byte |= unsigned(FrameBytes::byteAt(reply, base + k)) << k;
        to[i] = static_cast<char>(byte & 0xFF);
    }
}

// A string read of `count` blocks of 256 bytes: each block gives its length
// byte and text, back to back; a negative length byte gives nothing at all.
inline void unpackStrings(const QByteArray &reply, int count, QByteArray *out)
{
    using namespace SorvikProtocol;
    for (int i = 0; i < count; ++i) {
        const qint64 base = kReplyHeadSize + qint64(kStringBlock) * i;
        const qint8 textLength = static_cast<qint8>(FrameBytes::byteAt(reply, base));
        if (textLength < 0)
            continue;
        // A block beyond the end of the reply gives a single length byte 0.
        if (base >= reply.size())
            out->append('\0');
        else
            FrameBytes::appendZeroFilled(out, reply, static_cast<int>(base), textLength + 1);
    }
}

} // namespace ReplyUnpacking
