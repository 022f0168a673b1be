#pragma once

// The areas as the engine plans them, read from the one area table by engine
// key: 1 to 24 equal the wire codes, SI and SO are 25 and 26. The family
// decides how an area is planned: by points where one address is one byte,
// by bytes where it is wider.

#include "../host/DataType.h"
#include "../protocol/SorvikAreas.h"

#include <QString>
#include <QtGlobal>

#include <array>
#include <limits>

namespace EngineAreas {

using SorvikProtocol::Area;

enum class Family { None, Bit, Word };

constexpr int kNoArea = 0; // the key a refused tag carries

constexpr int kStringBytes = SorvikProtocol::kStringBlock; // one string address of SI and SO

// The highest key; every key from 1 to it has a row.
constexpr int kCount = [] {
    int most = 0;
    for (const Area &area : SorvikProtocol::kAreaTable)
        most = qMax(most, area.key);
    return most;
}();

// Places in the area table by key; -1 at 0.
inline constexpr std::array<int, kCount + 1> kRowOfKey = [] {
    std::array<int, kCount + 1> rows{};
    for (int &row : rows)
        row = -1;
    const int count = int(sizeof(SorvikProtocol::kAreaTable) / sizeof(SorvikProtocol::kAreaTable[0]));
    for (int i = 0; i < count; ++i)
        if (SorvikProtocol::kAreaTable[i].key != 0)
            rows[SorvikProtocol::kAreaTable[i].key] = i;
    return rows;
}();

constexpr bool isArea(int code)
{
    return code >= 1 && code <= kCount;
}

// Bytes of one address; 0 for anything that is no area.
constexpr int width(int code)
{
    return isArea(code) ? SorvikProtocol::kAreaTable[kRowOfKey[code]].width : 0;
}

constexpr Family family(int code)
{
    return width(code) == 1 ? Family::Bit : width(code) > 1 ? Family::Word : Family::None;
}

// The upper-case name; nullptr for anything that is no area.
constexpr const char *name(int code)
{
    return isArea(code) ? SorvikProtocol::kAreaTable[kRowOfKey[code]].prefix : nullptr;
}

// Whether a tag text names one of the string areas, by its upper-case prefix
// alone: the length of a string tag follows from that.
inline bool startsWithStringArea(const QString &tag)
{
    for (int code = 1; code <= kCount; ++code)
        if (width(code) == kStringBytes && tag.startsWith(QLatin1String(name(code))))
            return true;
    return false;
}

// The longest prefix of any area the engine plans.
constexpr int kLongestPrefix = [] {
    int longest = 0;
    for (int code = 1; code <= kCount; ++code) {
        int length = 0;
        while (name(code)[length])
            ++length;
        longest = qMax(longest, length);
    }
    return longest;
}();

constexpr quint32 maskOf(Family wanted)
{
    quint32 mask = 0;
    for (int code = 1; code <= kCount; ++code)
        if (family(code) == wanted)
            mask |= 1u << code;
    return mask;
}

static_assert(
    kCount == 26 &&
        [] {
            for (int code = 1; code <= kCount; ++code)
                if (kRowOfKey[code] < 0)
                    return false;
            return true;
        }(),
    "a row for every key from 1 to 26");
static_assert(maskOf(Family::Bit) == 0x59b27e, "the areas planned by points");
static_assert(maskOf(Family::Word) == 0x7a64d80, "the areas planned by bytes");
static_assert(kLongestPrefix == 4, "DI_F and its kin");

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
