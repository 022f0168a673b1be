#include "SimController.h"

#include "link/SorvikProtocol.h"
#include "protocol/ElementBytes.h"

namespace {

namespace P = SorvikProtocol;

using ElementBytes::byteAt;

SimAnswer refuse(const QString &reason)
{
    SimAnswer answer;
    answer.reason = reason;
    return answer;
}

QString outOfArea(const char *what, quint32 address, qint64 length, int area, int regionSize)
{
    return QStringLiteral("%1 of %2 bytes at address %3 lies beyond area %4 (%5 bytes)")
        .arg(QLatin1String(what))
        .arg(length)
        .arg(address)
        .arg(area)
        .arg(regionSize);
}

} // namespace

SimController::SimController()
{
    const char handshake[] = {char(P::kHandshake0), char(P::kHandshake1)};
    m_handshakeReply = QByteArray(handshake, P::kHandshakeSize);
}

SimAnswer SimController::answer(const QByteArray &frame)
{
    if (frame.isEmpty())
        return refuse(QStringLiteral("empty frame"));

    switch (byteAt(frame, 0)) {
    case P::kReadFunction: return answerRead(frame);
    case P::kWriteFunction: return answerWrite(frame);
    case P::kHandshake0:
        if (frame.size() != P::kHandshakeSize || byteAt(frame, 1) != P::kHandshake1)
            return refuse(QStringLiteral("handshake frame of %1 bytes is not 04 01").arg(frame.size()));
        return {SimAnswer::Kind::Handshake, m_handshakeReply, QString()};
    default: return refuse(QStringLiteral("unknown function byte 0x%1").arg(byteAt(frame, 0), 2, 16, QLatin1Char('0')));
    }
}

// Bytes 1 to 3 of a request are not judged: a controller may take them as it
// likes, and the reply repeats bytes 0 and 1 whatever they hold.
SimAnswer SimController::answerRead(const QByteArray &frame) const
{
    // A read carries nothing after its head; anything else is a broken frame,
    // not a read with extra bytes to ignore.
    if (frame.size() != P::kRequestHeadSize)
        return refuse(
            QStringLiteral("read request of %1 bytes, a read has %2").arg(frame.size()).arg(P::kRequestHeadSize));
    const int area = byteAt(frame, P::kOffsetArea);
    const int regionSize = m_memory.regionSize(area);
    if (regionSize == 0)
        return refuse(QStringLiteral("read of unknown area code %1").arg(area));
    const quint32 address = P::get24(frame.constData() + P::kOffsetAddress);
    const quint32 length = P::get24(frame.constData() + P::kOffsetLength);
    if (!m_memory.contains(area, address, length))
        return refuse(outOfArea("read", address, length, area, regionSize));

    SimAnswer answer{SimAnswer::Kind::Read, QByteArray(), QString()};
    answer.reply.reserve(P::kReplyHeadSize + int(length));
    answer.reply.append(frame.constData(), 2);
    answer.reply.append(2, '\0');
    m_memory.appendTo(&answer.reply, area, int(address), int(length));
    return answer;
}

// A write stores the bytes that follow its head; the length field is not
// judged, since block writes to area SI announce 256 times the bytes they carry.
SimAnswer SimController::answerWrite(const QByteArray &frame)
{
    if (frame.size() < P::kRequestHeadSize)
        return refuse(QStringLiteral("write request of %1 bytes is shorter than its head of %2")
                          .arg(frame.size())
                          .arg(P::kRequestHeadSize));
    const int area = byteAt(frame, P::kOffsetArea);
    const int regionSize = m_memory.regionSize(area);
    if (regionSize == 0)
        return refuse(QStringLiteral("write to unknown area code %1").arg(area));
    const quint32 address = P::get24(frame.constData() + P::kOffsetAddress);
    const int dataSize = frame.size() - P::kRequestHeadSize;
    if (!m_memory.write(area, int(address), frame.constData() + P::kRequestHeadSize, dataSize))
        return refuse(outOfArea("write", address, dataSize, area, regionSize));

    const char reply[] = {char(P::kWriteFunction), char(P::kRequestByte1), 0, 0};
    return {SimAnswer::Kind::Write, QByteArray(reply, P::kReplyHeadSize), QString()};
}
