#pragma once

// The engine's own table of areas. Its codes are the engine's keys: 1 to 24
// equal the wire codes, SI and SO are 25 and 26 here. The family decides how
// an area is planned (points or bytes); the width is the bytes of one address.

#include "../host/DataType.h"

#include <QtGlobal>

#include <limits>

namespace EngineAreas {

enum class Family { None, Bit, Word };

struct Area {
    const char *name;
    int width;
};

constexpr int kCount = 26;
constexpr int kStringBytes = 256; // one string address of SI and SO

// Indexed by code minus 1.
constexpr Area kAreas[kCount] = {{"DI", 1},           {"DI_F", 1}, {"DI_S", 1}, {"DO", 1},   {"DO_F", 1},
                                 {"DO_S", 1},         {"AI", 4},   {"AI_F", 4}, {"AI_S", 1}, {"AO", 4},
                                 {"AO_F", 4},         {"AO_S", 1}, {"SD", 1},   {"SA", 2},   {"NDI", 1},
                                 {"NDO", 1},          {"NAI", 4},  {"NAO", 4},  {"HDS", 1},  {"HDP", 1},
                                 {"HAI", 4},          {"LD", 1},   {"LA", 4},   {"LW", 4},   {"SI", kStringBytes},
                                 {"SO", kStringBytes}};

// Bit n stands for code n.
constexpr quint32 kBitFamilyMask = 0x59b27e;
constexpr quint32 kWordFamilyMask = 0x7a64d80;

constexpr bool isArea(int code)
{
    return code >= 1 && code <= kCount;
}

constexpr Family family(int code)
{
    return !isArea(code)                    ? Family::None
           : (kBitFamilyMask >> code) & 1u  ? Family::Bit
           : (kWordFamilyMask >> code) & 1u ? Family::Word
                                            : Family::None;
}

// Bytes of one address; 0 for anything that is no area.
constexpr int width(int code)
{
    return isArea(code) ? kAreas[code - 1].width : 0;
}

// The upper-case name; nullptr for anything that is no area.
constexpr const char *name(int code)
{
    return isArea(code) ? kAreas[code - 1].name : nullptr;
}

// Place of address `number` in a block of `area` that begins at `start`: a
// count of addresses, but of bits for a bool in a word-family area, and 0 for
// a bool outside every area. Saturates instead of overflowing.
inline int offsetInBlock(int area, int number, int start, int dataType)
{
    qint64 offset = qint64(number) - start;
    if (dataType == TYPE_BOOL) {
        if (family(area) == Family::Word)
            offset *= qint64(width(area)) * 8;
        else if (family(area) == Family::None)
            offset = 0;
    }
    return static_cast<int>(qBound<qint64>(std::numeric_limits<int>::min(), offset, std::numeric_limits<int>::max()));
}

} // namespace EngineAreas
