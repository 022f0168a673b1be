// Write frames: a head, the payload behind it, one exchange. Any reply in
// time counts as taken; its content is not judged.

#include "CmdSorvik.h"

#include "FrameBytes.h"
#include "LinkLog.h"
#include "LinkResult.h"
#include "SorvikProtocol.h"

using namespace SorvikProtocol;

namespace {

// Logged after the exchange, the command first, also when no reply came.
void logWrite(const CmdSorvik &link, CmdSorvik::WriteNaming naming, const QByteArray &frame, qint32 length,
              const QString &tag, const QByteArray &reply)
{
    const bool byTag = naming == CmdSorvik::WriteNaming::ByTag;
    LinkLog::debug(LinkLog::frameLine(byTag ? QStringLiteral("写命令 %1:%2 tag=%3  len = %4 msg : %5")
                                            : QStringLiteral("写命令 %1:%2 Area=%3  len = %4 msg : %5"),
                                      link.m_peerAddress, link.m_peerPort, tag, length, frame));
    LinkLog::debug(LinkLog::frameLine(byTag ? QStringLiteral("响应 %1:%2 tag=%3  len = %4 msg : %5")
                                            : QStringLiteral("响应 %1:%2 Area=%3  len = %4 msg : %5"),
                                      link.m_peerAddress, link.m_peerPort, tag, length, reply));
}

// Outside the bit areas the address counts bytes of the element's width;
// area SI is reached here byte by byte (blocks go through WriteBlock).
int writeFactor(int area)
{
    return isBlockArea(area) ? 1 : addressFactor(area);
}

// One wire byte per bit, eight for each whole payload byte that the length
// counts: wire byte j is bit j % 8 of payload byte j / 8. A length that is no
// multiple of eight sends its last, partial byte's bits not at all.
void appendSpreadBits(QByteArray *frame, const QByteArray &payload, int length)
{
    const int wireBytes = qBound(0, length / 8 * 8, FrameBytes::kMaxFieldValue);
    const int start = frame->size();
    frame->resize(start + wireBytes);
    char *to = frame->data() + start;
    for (int j = 0; j < wireBytes; ++j)
        to[j] = static_cast<char>((FrameBytes::byteAt(payload, j / 8) >> (j % 8)) & 1);
}

} // namespace

int CmdSorvik::SendWrite(const QByteArray &frame, int length, const QString &tag, WriteNaming naming)
{
    if (IsLinkOpen() != LinkResult::Ok)
        return LinkResult::NotOpen;
    QByteArray reply;
    const int result = Exchange(frame, frame.size(), &reply, kExchangeLimitMs);
    FrameBytes::cutReply(&reply, length);
    if (m_debug)
        logWrite(*this, naming, frame, length, tag, reply);
    return result == LinkResult::Ok ? LinkResult::Ok : LinkResult::NoReply;
}

int CmdSorvik::WriteBytes(int area, int index, int length, QByteArray payload, QString tag)
{
    const qint32 address = FrameBytes::scaledAddress(index, writeFactor(area));
    QByteArray frame = FrameBytes::requestHead(kWriteFunction, area, address, length, length);
    if (isBitArea(area))
        appendSpreadBits(&frame, payload, length);
    else
        // A short payload is padded with zeros: the frame keeps its length
        // field and never carries undefined bytes. (The drive refuses such
        // writes before they get here.) A longer one is cut to the length.
        FrameBytes::appendZeroFilled(&frame, payload, 0, length);
    return SendWrite(frame, length, tag, WriteNaming::ByTag);
}

int CmdSorvik::WriteBlock(int area, int index, int blocks, QByteArray payload, QString tag)
{
    const qint32 length = FrameBytes::scaledAddress(blocks, kStringBlock);
    // The whole payload follows the head, whatever the length field says.
    const qint32 address = FrameBytes::scaledAddress(index, kStringBlock);
    QByteArray frame = FrameBytes::requestHead(kWriteFunction, area, address, length, payload.size());
    frame.append(payload);
    return SendWrite(frame, length, tag, WriteNaming::ByTag);
}

int CmdSorvik::WriteBits(int area, int index, int count, QByteArray payload, QString tag)
{
    // The element index goes out unchanged on every area.
    QByteArray frame = FrameBytes::requestHead(kWriteFunction, area, index, count, count);
    // Padded with zeros when short, like WriteBytes.
    FrameBytes::appendZeroFilled(&frame, payload, 0, count);
    return SendWrite(frame, count, tag, WriteNaming::ByArea);
}
