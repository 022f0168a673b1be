#pragma once

// Byte-level pieces shared by the read and the write frames: the frame head,
// safe access to reply bytes, and the cut of a reply to its useful length.

#include "../protocol/ElementBytes.h"
#include "SorvikProtocol.h"

#include <QByteArray>

#include <cstring>

namespace FrameBytes {

// The largest value a 24-bit length field carries.
constexpr int kMaxFieldValue = 0xFFFFFF;

// Element index (or count) times factor, wrapped to 32 bits like the signed
// number it stands for; only the low 24 bits reach the wire.
inline qint32 scaledAddress(int index, int factor)
{
    return static_cast<qint32>(static_cast<quint32>(index) * static_cast<quint32>(factor));
}

// The 11-byte head of a request, with room reserved for `dataSize` more bytes.
inline QByteArray requestHead(quint8 function, int area, qint32 address, qint32 length, int dataSize = 0)
{
    using namespace SorvikProtocol;
    // Allocated once with room for the data; a shorter size keeps that room.
    QByteArray frame(kRequestHeadSize + qMax(0, dataSize), Qt::Uninitialized);
    if (dataSize > 0)
        frame.resize(kRequestHeadSize);
    char *head = frame.data();
    head[0] = static_cast<char>(function);
    head[1] = static_cast<char>(kRequestByte1);
    head[2] = static_cast<char>(kRequestByte2);
    head[3] = static_cast<char>(kRequestByte3);
    head[kOffsetArea] = static_cast<char>(area);
    put24(head + kOffsetAddress, address);
    put24(head + kOffsetLength, length);
    return frame;
}

// A byte past the end of a reply counts as 0.
using ElementBytes::byteAt;

// Appends `count` bytes of `source` from `offset` on, zeros where the source
// ends. No frame carries more than a 24-bit field counts, so neither does this.
inline void appendZeroFilled(QByteArray *out, const QByteArray &source, int offset, int count)
{
    if (count <= 0)
        return;
    count = qMin(count, kMaxFieldValue);
    const int present = qBound(0, source.size() - offset, count);
    const int start = out->size();
    out->resize(start + count);
    char *to = out->data() + start;
    if (present > 0)
        memcpy(to, source.constData() + offset, static_cast<size_t>(present));
    memset(to + present, 0, static_cast<size_t>(count - present));
}

// A controller may pad every reply to a fixed 1472 bytes: what lies between
// the useful 4 + length bytes and that size is dropped; anything beyond it stays.
inline void cutReply(QByteArray *reply, int length)
{
    using namespace SorvikProtocol;
    if (length >= kTransferLimit)
        return;
    const qint64 from = qint64(length) + kReplyHeadSize;
    if (from < 0 || from >= reply->size())
        return;
    reply->remove(static_cast<int>(from), static_cast<int>(qint64(kTransferLimit) - length));
}

} // namespace FrameBytes
