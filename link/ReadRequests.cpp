// Read frames: the request, the logged exchange beneath it, the identity
// check of the reply and the unpacking of its data.

#include "CmdSorvik.h"

#include "FrameBytes.h"
#include "LinkLog.h"
#include "LinkResult.h"
#include "ReplyUnpacking.h"
#include "SorvikProtocol.h"

using namespace SorvikProtocol;

namespace {

// Sends one read request and checks that the reply is ours: Ok with the cut
// reply in *reply, NoReply for no reply or a foreign one, NotOpen.
int readFrame(CmdSorvik &link, int area, qint32 address, qint32 length, const QString &tag, QByteArray *reply)
{
    const QByteArray request = FrameBytes::requestHead(kReadFunction, area, address, length);
    const int result = link.ReadExchange(request, reply, length, tag);
    if (result == LinkResult::NotOpen)
        return LinkResult::NotOpen;
    if (result == LinkResult::Ok) {
        if (ReplyUnpacking::isOwnReply(*reply))
            return LinkResult::Ok;
        LinkLog::warning(LinkLog::frameLine(QStringLiteral("lib[Sorvik]返回的序号错误 %1:%2  %3 len = %4 msg : %5"),
                                            link.m_peerAddress, link.m_peerPort, tag, length, *reply));
    }
    LinkLog::warning(LinkLog::frameLine(QStringLiteral("lib[Sorvik]返回的报文长度为0 %1:%2  %3 len = %4 msg : %5"),
                                        link.m_peerAddress, link.m_peerPort, tag, length, *reply));
    return LinkResult::NoReply;
}

} // namespace

int CmdSorvik::ReadExchange(QByteArray request, QByteArray *reply, int length, QString tag)
{
    if (m_debug)
        LinkLog::debug(LinkLog::frameLine(QStringLiteral("lib[Sorvik]读命令 %1:%2  %3 len = %4 msg : %5"),
                                          m_peerAddress, m_peerPort, tag, length, request));
    if (IsLinkOpen() != LinkResult::Ok)
        return LinkResult::NotOpen;

    QByteArray received;
    const int result = Exchange(request, request.size(), &received, kExchangeLimitMs);
    FrameBytes::cutReply(&received, length);
    if (reply)
        reply->append(received);

    if (m_debug)
        LinkLog::debug(LinkLog::frameLine(QStringLiteral("lib[Sorvik]读响应 %1:%2  %3 len = %4 msg : %5"),
                                          m_peerAddress, m_peerPort, tag, length, received));
    return result;
}

int CmdSorvik::ReadBits(int area, int index, int count, QByteArray *out, QString tag)
{
    QByteArray reply;
    const int result = readFrame(*this, area, index, count, tag, &reply);
    if (result == LinkResult::Ok && out)
        ReplyUnpacking::unpackBits(reply, count, out);
    return result;
}

int CmdSorvik::ReadBytes(int area, int index, int length, QByteArray *out, QString tag)
{
    QByteArray reply;
    const qint32 address = FrameBytes::scaledAddress(index, addressFactor(area));
    const int result = readFrame(*this, area, address, length, tag, &reply);
    if (result == LinkResult::Ok && out)
        ReplyUnpacking::unpackBytes(reply, area, length, out);
    return result;
}

int CmdSorvik::ReadStrings(int area, int index, int count, QByteArray *out, QString tag)
{
    const qint32 length = FrameBytes::scaledAddress(count, kStringBlock);
    QByteArray reply;
    const qint32 address = FrameBytes::scaledAddress(index, kStringBlock);
    const int result = readFrame(*this, area, address, length, tag, &reply);
    if (result == LinkResult::Ok && out)
        ReplyUnpacking::unpackStrings(reply, count, out);
    return result;
}
