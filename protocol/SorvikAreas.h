#pragma once

// The memory areas of a controller, in one table: the prefix a tag names an
// area by, its code on the wire, the key the engine plans it under, its size,
// the width of one address, how frames address it and what an element index is
// multiplied by. Everything else about areas (masks, lists, lookups) is derived
// from these rows. Qt Core only, so that every layer may read it.

#include <QtGlobal>

#include <array>

namespace SorvikProtocol {

constexpr int kTransferLimit = 1468; // transfer lengths stay below this
constexpr int kStringBlock = 256;    // one string block of area SI

// How the frames address an area: by points, by 4-byte words, by 2-byte
// pairs, by string blocks, or plainly by bytes.
enum class AreaGroup { None, Bit, Word, Pair, Block };

struct Area {
    const char *prefix = nullptr;
    int code = 0;  // on the wire; 0 where the wire has none, so the drive refuses the tag
    int key = 0;   // the engine's; 0 where the engine plans nothing
    int size = 0;  // bytes
    int width = 0; // bytes of one address as the engine plans it; 1 plans by points
    AreaGroup group = AreaGroup::None;
    int factor = 1; // an element index times this is the byte address of a numeric read
};

// In the order in which a tag's prefix is tried: longer prefixes before the
// two-letter prefix that they begin with.
inline constexpr Area kAreaTable[] = {
    {"DI_F", 2, 2, 240, 1, AreaGroup::Bit, 1},
    {"DI_S", 3, 3, 240, 1, AreaGroup::Bit, 1},
    {"DO_F", 5, 5, 160, 1, AreaGroup::Bit, 1},
    {"DO_S", 6, 6, 160, 1, AreaGroup::Bit, 1},
    {"HAI", 21, 21, 2000, 4, AreaGroup::Word, 4},
    {"NDI", 15, 15, 2000, 1, AreaGroup::Bit, 1},
    {"NDO", 16, 16, 2000, 1, AreaGroup::Bit, 1},
    {"NAI", 17, 17, 8000, 4, AreaGroup::Word, 4},
    {"NAO", 18, 18, 8000, 4, AreaGroup::Word, 4},
    {"DI", 1, 1, 240, 1, AreaGroup::Bit, 1},
    {"DO", 4, 4, 160, 1, AreaGroup::Bit, 1},
    {"AI_F", 8, 8, 320, 4, AreaGroup::Word, 4},
    {"AI_S", 9, 9, 80, 1, AreaGroup::Word, 4},
    {"AI", 7, 7, 320, 4, AreaGroup::Word, 4},
    {"AO_F", 11, 11, 320, 4, AreaGroup::None, 1},
    {"AO_S", 12, 12, 80, 1, AreaGroup::None, 1},
    {"AO", 10, 10, 320, 4, AreaGroup::Word, 4},
    {"SD", 13, 13, 320, 1, AreaGroup::Bit, 1},
    {"SA", 14, 14, 640, 2, AreaGroup::Pair, 2},
    {"HDS", 19, 19, 500, 1, AreaGroup::Bit, 1},
    {"HDP", 20, 20, 500, 1, AreaGroup::Bit, 1},
    {"LD", 22, 22, 2000, 1, AreaGroup::Bit, 1},
    {"LA", 23, 23, 2000, 4, AreaGroup::Word, 4},
    {"LW", 24, 24, 8000, 4, AreaGroup::Word, 4},
    {"SI", 28, 25, 1280, kStringBlock, AreaGroup::Block, kStringBlock},
    {"Custom", 29, 0, 2097152, 0, AreaGroup::Pair, 1},
    // The string output area exists for the engine alone.
    {"SO", 0, 26, 0, kStringBlock, AreaGroup::None, 1},
};

// Codes that no prefix names still have a size.
struct UnnamedArea {
    int code;
    int size;
};
inline constexpr UnnamedArea kUnnamedAreas[] = {{25, 1}, {26, 100}, {27, 400}, {30, 1}, {31, 1}, {32, 7200}};
constexpr int kAreaCodeCount = 47; // codes 0..46 have a size, 0 where nothing is there

constexpr bool startsWith(const char *text, const char *prefix)
{
    while (*prefix && *text == *prefix)
        ++text, ++prefix;
    return *prefix == '\0';
}

constexpr int codeOf(const char *prefix)
{
    for (const Area &area : kAreaTable)
        if (startsWith(area.prefix, prefix) && startsWith(prefix, area.prefix))
            return area.code;
    return 0;
}

// The codes that rules of the drive name.
namespace AreaCode {
enum : int {
    None = 0, // a text that names no area, or a row without a wire code
    AO = codeOf("AO"),
    SA = codeOf("SA"),
    NAO = codeOf("NAO"),
    LA = codeOf("LA"),
    LW = codeOf("LW"),
    SI = codeOf("SI"),
    Custom = codeOf("Custom"),
};
} // namespace AreaCode

constexpr int kStringArea = AreaCode::SI;

// The areas that the wire knows, in the order of the table.
constexpr int kAreaCount = [] {
    int n = 0;
    for (const Area &area : kAreaTable)
        n += area.code != 0;
    return n;
}();
inline constexpr std::array<Area, kAreaCount> kAreas = [] {
    std::array<Area, kAreaCount> areas{};
    int n = 0;
    for (const Area &area : kAreaTable)
        if (area.code != 0)
            areas[n++] = area;
    return areas;
}();

// The place of each wire code in kAreas, looked up on every read and write;
// -1 for a code that no prefix names.
inline constexpr std::array<int, kAreaCodeCount> kIndexOfCode = [] {
    std::array<int, kAreaCodeCount> places{};
    for (int &place : places)
        place = -1;
    for (int i = 0; i < kAreaCount; ++i)
        places[kAreas[i].code] = i;
    return places;
}();

// (An index, not a pointer: a pointer's test for null is no constant
// expression in an instrumented build.)
constexpr int indexOfCode(int code)
{
    return code >= 0 && code < kAreaCodeCount ? kIndexOfCode[code] : -1;
}

// The row of a wire code; nullptr for a code that no prefix names.
inline const Area *areaOfCode(int code)
{
    const int i = indexOfCode(code);
    return i < 0 ? nullptr : &kAreas[i];
}

constexpr quint32 maskOf(AreaGroup group)
{
    quint32 mask = 0;
    for (const Area &area : kAreas)
        if (area.group == group)
            mask |= 1u << area.code;
    return mask;
}

// Bit n stands for code n.
constexpr quint32 kBitAreaMask = maskOf(AreaGroup::Bit);
constexpr quint32 kWordAreaMask = maskOf(AreaGroup::Word);
static_assert(kBitAreaMask == 0x59A07E, "the bit areas of the protocol");
static_assert(kWordAreaMask == 0x1A60780, "the word areas of the protocol");

// Sizes by area code 0..46, including the codes that have no prefix.
inline constexpr std::array<qint32, kAreaCodeCount> kAreaSizes = [] {
    std::array<qint32, kAreaCodeCount> sizes{};
    for (const Area &area : kAreas)
        sizes[area.code] = area.size;
    for (const UnnamedArea &area : kUnnamedAreas)
        sizes[area.code] = area.size;
    return sizes;
}();

constexpr bool isBitArea(int code)
{
    return code >= 0 && code < 32 && (kBitAreaMask >> code) & 1u;
}
constexpr bool isWordArea(int code)
{
    return code >= 0 && code < 32 && (kWordAreaMask >> code) & 1u;
}

constexpr AreaGroup groupOf(int code)
{
    const int i = indexOfCode(code);
    return i < 0 ? AreaGroup::None : kAreas[i].group;
}

constexpr bool isPairArea(int code)
{
    return groupOf(code) == AreaGroup::Pair;
}
constexpr bool isBlockArea(int code)
{
    return groupOf(code) == AreaGroup::Block;
}

// What an element index is multiplied by to give the byte address of a
// numeric read; writes never reach area SI by this road.
constexpr int addressFactor(int code)
{
    const int i = indexOfCode(code);
    return i < 0 ? 1 : kAreas[i].factor;
}

// A prefix is tried only after every longer prefix that begins with it, and
// no code or key stands for two areas.
constexpr bool tableIsSound()
{
    const int rows = int(sizeof(kAreaTable) / sizeof(kAreaTable[0]));
    for (int i = 0; i < rows; ++i) {
        for (int j = i + 1; j < rows; ++j) {
            const Area &first = kAreaTable[i];
            const Area &later = kAreaTable[j];
            if (startsWith(later.prefix, first.prefix) || (first.code && first.code == later.code) ||
                (first.key && first.key == later.key))
                return false;
        }
    }
    for (const UnnamedArea &unnamed : kUnnamedAreas)
        if (indexOfCode(unnamed.code) >= 0)
            return false;
    return true;
}
static_assert(tableIsSound(), "prefixes in the order they are tried, codes and keys each once");

static_assert(kAreaCount == 26 && kAreas[0].code == 2 && kAreas[kAreaCount - 1].code == AreaCode::Custom,
              "the wire areas in the order their prefixes are tried");
static_assert(kAreaSizes[AreaCode::Custom] == 2097152 && kAreaSizes[32] == 7200 && kAreaSizes[33] == 0,
              "sizes of named and unnamed codes");
static_assert(isPairArea(AreaCode::SA) && isPairArea(AreaCode::Custom) && isBlockArea(kStringArea),
              "the pair and block areas of the protocol");

} // namespace SorvikProtocol
