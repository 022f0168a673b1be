#pragma once

// The wire protocol in numbers: function bytes, frame sizes, timing and the
// 24-bit fields, beside the table of memory areas. The link, the drive, the
// simulator and the tests all take these from here.

#include "../protocol/SorvikAreas.h"

#include <QtEndian>
#include <QtGlobal>

namespace SorvikProtocol {

constexpr quint8 kReadFunction = 0x01;
constexpr quint8 kWriteFunction = 0x02;
// Bytes 1 to 3 of every request; bytes 0 and 1 of a read reply must repeat the request's.
constexpr quint8 kRequestByte1 = 0x01;
constexpr quint8 kRequestByte2 = 0x01;
constexpr quint8 kRequestByte3 = 0x00;

constexpr quint8 kHandshake0 = 0x04;
constexpr quint8 kHandshake1 = 0x01;
constexpr int kHandshakeSize = 2;

constexpr int kRequestHeadSize = 11; // function, 3 fixed bytes, area, address[3], length[3]
constexpr int kReplyHeadSize = 4;    // 2 identity bytes, 2 unread bytes
constexpr int kOffsetArea = 4;
constexpr int kOffsetAddress = 5;
constexpr int kOffsetLength = 8;

constexpr int kPaddedReplySize = kReplyHeadSize + kTransferLimit; // 1472, a fixed-size reply

constexpr quint16 kLocalUdpPort = 500; // the drive binds its UDP socket to this local port
constexpr int kExchangeLimitMs = 50;
constexpr int kExchangeTickMs = 10;
constexpr int kUdpWriteWaitMs = 200;
constexpr int kSerialWriteWaitMs = 100;
constexpr int kReadyReadWaitMs = 300;

// A 24-bit field goes high byte first, then the low 16 bits least significant
// byte first.
inline void put24(char *at, qint32 value)
{
    const quint32 v = static_cast<quint32>(value);
    at[0] = static_cast<char>((v >> 16) & 0xFF);
    qToLittleEndian(static_cast<quint16>(v & 0xFFFF), at + 1);
}

inline quint32 get24(const char *at)
{
    return (quint32(static_cast<quint8>(at[0])) << 16) | qFromLittleEndian<quint16>(at + 1);
}

} // namespace SorvikProtocol
