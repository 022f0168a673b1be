#pragma once

// The wire protocol in numbers: function bytes, frame sizes, limits and the
// table of memory areas. The link, the drive, the simulator and the tests all
// take these from here.

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

constexpr int kTransferLimit = 1468;                              // transfer lengths stay below this
constexpr int kPaddedReplySize = kReplyHeadSize + kTransferLimit; // 1472, a fixed-size reply
constexpr int kStringBlock = 256;                                 // one string block of area 28

constexpr quint16 kLocalUdpPort = 500; // the drive binds its UDP socket to this local port
constexpr int kExchangeLimitMs = 50;
constexpr int kExchangeTickMs = 10;
constexpr int kUdpWriteWaitMs = 200;
constexpr int kSerialWriteWaitMs = 100;
constexpr int kReadyReadWaitMs = 300;

// A 24-bit field goes high byte, low byte, middle byte.
inline void put24(char *at, qint32 value)
{
    const quint32 v = static_cast<quint32>(value);
    at[0] = static_cast<char>((v >> 16) & 0xFF);
    at[1] = static_cast<char>(v & 0xFF);
    at[2] = static_cast<char>((v >> 8) & 0xFF);
}

inline quint32 get24(const char *at)
{
    const auto b = [at](int i) { return static_cast<quint32>(static_cast<quint8>(at[i])); };
    return (b(0) << 16) | b(1) | (b(2) << 8);
}

enum class AreaGroup { None, Bit, Word, Pair, Block };

struct Area {
    const char *prefix;
    int code;
    int size; // bytes
    AreaGroup group;
};

// In the order in which a tag's prefix is tried: longer prefixes before the
// two-letter prefix that they begin with.
constexpr Area kAreas[] = {
    {"DI_F", 2, 240, AreaGroup::Bit},     {"DI_S", 3, 240, AreaGroup::Bit},
    {"DO_F", 5, 160, AreaGroup::Bit},     {"DO_S", 6, 160, AreaGroup::Bit},
    {"HAI", 21, 2000, AreaGroup::Word},   {"NDI", 15, 2000, AreaGroup::Bit},
    {"NDO", 16, 2000, AreaGroup::Bit},    {"NAI", 17, 8000, AreaGroup::Word},
    {"NAO", 18, 8000, AreaGroup::Word},   {"DI", 1, 240, AreaGroup::Bit},
    {"DO", 4, 160, AreaGroup::Bit},       {"AI_F", 8, 320, AreaGroup::Word},
    {"AI_S", 9, 80, AreaGroup::Word},     {"AI", 7, 320, AreaGroup::Word},
    {"AO_F", 11, 320, AreaGroup::None},   {"AO_S", 12, 80, AreaGroup::None},
    {"AO", 10, 320, AreaGroup::Word},     {"SD", 13, 320, AreaGroup::Bit},
    {"SA", 14, 640, AreaGroup::Pair},     {"HDS", 19, 500, AreaGroup::Bit},
    {"HDP", 20, 500, AreaGroup::Bit},     {"LD", 22, 2000, AreaGroup::Bit},
    {"LA", 23, 2000, AreaGroup::Word},    {"LW", 24, 8000, AreaGroup::Word},
    {"SI", 28, 1280, AreaGroup::Block},   {"Custom", 29, 2097152, AreaGroup::Pair},
};

constexpr int kAreaCount = sizeof(kAreas) / sizeof(kAreas[0]);
constexpr int kStringArea = 28;
constexpr quint32 kBitAreaMask = 0x59A07E;
constexpr quint32 kWordAreaMask = 0x1A60780;

// Sizes by area code 0..46, including the codes that have no prefix.
constexpr qint32 kAreaSizes[47] = {
    0,                                          // 0
    240,  240,  240,  160,  160,  160,          // 1..6    DI DI_F DI_S DO DO_F DO_S
    320,  320,  80,   320,  320,  80,           // 7..12   AI AI_F AI_S AO AO_F AO_S
    320,  640,  2000, 2000, 8000, 8000,         // 13..18  SD SA NDI NDO NAI NAO
    500,  500,  2000, 2000, 2000, 8000,         // 19..24  HDS HDP HAI LD LA LW
    1,    100,  400,  1280, 2097152,            // 25..29  -, -, -, SI, Custom
    1,    1,    7200,                           // 30..32
    0,    0,    0,    0,    0,    0,    0,      // 33..39
    0,    0,    0,    0,    0,    0,    0,      // 40..46
};

constexpr bool isBitArea(int code) { return code >= 0 && code < 32 && (kBitAreaMask >> code) & 1u; }
constexpr bool isWordArea(int code) { return code >= 0 && code < 32 && (kWordAreaMask >> code) & 1u; }
constexpr bool isPairArea(int code) { return code == 14 || code == 29; }
constexpr bool isBlockArea(int code) { return code == kStringArea; }

constexpr AreaGroup groupOf(int code)
{
    return isBitArea(code)    ? AreaGroup::Bit
           : isWordArea(code) ? AreaGroup::Word
           : isPairArea(code) ? AreaGroup::Pair
           : isBlockArea(code) ? AreaGroup::Block
                               : AreaGroup::None;
}

// What an element index is multiplied by to give the byte address of a
// numeric read; writes never reach area 28 by this road.
constexpr int addressFactor(int code)
{
    return isWordArea(code) ? 4 : code == 14 ? 2 : code == kStringArea ? kStringBlock : 1;
}

} // namespace SorvikProtocol
