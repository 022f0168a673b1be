// Planning write blocks: each entry turned into its bytes, then merged into gapless runs.

#include "CInductiveDrive.h"

#include "../host/ValueLists.h"
#include "../protocol/ElementBytes.h"
#include "BlockKind.h"
#include "EngineAreas.h"
#include "WriteBytes.h"

#include <algorithm>
#include <map>
#include <type_traits>
#include <vector>

using Induction::SWriteInfo;

namespace {

// One entry of the caller turned into exactly the bytes, or the one point, it writes.
struct WriteItem {
    const SWriteInfo *entry = nullptr; // names the item in the key of its block
    int area = EngineAreas::kNoArea;
    int start = 0;
    int length = 0;     // bytes; 1 for a point; -1 for a string of unknown size
    bool point = false; // a bool item: `on` is its point and `bytes` stays empty
    bool on = false;
    QByteArray bytes;
};

// Fills the data of `item` from the entry's value. False when the DataType has
// no list type (0, 41, outside 1..40), when the value does not convert to that
// list type, or when the list is empty: such an entry cannot become exactly its
// bytes, so it is refused instead of planned with missing or shifted data.
bool takeValue(const SWriteInfo &info, int stringSize, WriteItem &item)
{
    bool taken = false;
    SorvikValues::visitElementType(info.dataType, [&](auto element) {
        using T = typename decltype(element)::type;
        if (!SorvikValues::holdsConvertible<T>(info.value))
            return;
        const QList<T> list = SorvikValues::listFrom<T>(info.value);
        if (list.isEmpty())
            return;
        taken = true;
        if constexpr (std::is_same_v<T, bool>) {
            item.point = true;
            item.on = list.first();
            item.length = 1;
        } else if constexpr (std::is_same_v<T, QString>) {
            // Every string of the list writes the same address: the last one stands.
            // A string of unknown size (-1, outside SI and SO) keeps empty data and a
            // block of its own; the write path refuses its length.
            item.bytes = WriteBytes::fixedLatin1(list.last(), stringSize);
            item.length = stringSize;
        } else {
            // A tag writes one element, as a point write does; more would not fit
            // the length, and Int8/UInt8 (2, 3) give one byte an element.
            ElementBytes::append(item.bytes, list.first());
            item.length = item.bytes.size();
        }
    });
    return taken;
}

struct ByEntry {
    bool operator()(const SWriteInfo *a, const SWriteInfo *b) const { return *a < *b; }
};

// Areas, then bytes before points, then addresses; equal addresses (two ways
// of naming one address) fall back to the key order, so the plan never
// depends on the order of the caller's list.
bool planOrder(const WriteItem &a, const WriteItem &b)
{
    if (a.area != b.area)
        return a.area < b.area;
    if (a.point != b.point)
        return b.point;
    if (a.start != b.start)
        return a.start < b.start;
    return *a.entry < *b.entry;
}

} // namespace

QList<QList<SWriteInfo>> CInductiveDrive::InductiveDrive_Write(const QString &connectPar,
                                                               const QList<SWriteInfo> &infos)
{
    std::vector<WriteItem> items;
    items.reserve(static_cast<size_t>(infos.size()));
    std::map<const SWriteInfo *, size_t, ByEntry> itemOfEntry;
    QList<SWriteInfo> refused;

    for (const SWriteInfo &info : infos) {
        if (info.tag.isEmpty())
            continue;
        const STagAddress address = analyseTag(info.tag, info.dataType);
        WriteItem item;
        item.area = address.area;
        item.start = address.number;
        if (address.area == EngineAreas::kNoArea || !takeValue(info, tagSize(info), item)) {
            refused.append(info); // reported with its value, in the order given
            continue;
        }
        item.entry = &info;
        const auto known = itemOfEntry.emplace(&info, items.size());
        if (known.second) {
            items.push_back(std::move(item));
        } else {
            // The same tag and DataType again: its data replaces the older, the older key stays.
            WriteItem &older = items[known.first->second];
            item.entry = older.entry;
            older = std::move(item);
        }
    }
    std::sort(items.begin(), items.end(), planOrder);

    WritePlan plan;
    for (size_t i = 0; i < items.size();) {
        const WriteItem &first = items[i];
        const int limit = first.point ? m_writePointLimit : m_writeByteLimit;
        const int width = first.point ? 1 : EngineAreas::width(first.area);
        // The frames count eight points a byte on a bit-family area, so bytes
        // merged there would land on the wrong points: each stands alone.
        const bool alone = !first.point && EngineAreas::family(first.area) == EngineAreas::Family::Bit;

        QList<SWriteInfo> key{*first.entry};
        int length = first.length;
        QByteArray bytes = first.bytes;
        QList<bool> points;
        if (first.point)
            points.append(first.on);

        size_t next = i + 1;
        for (; next < items.size(); ++next) {
            const WriteItem &item = items[next];
            // An item joins only a block below its limit that ends on a whole
            // address, and only right at that end: a gap, an overlap or a ragged
            // end closes the block, so no byte is ever shifted. A string of no
            // known size adds no bytes and leaves a ragged length, which the
            // write path refuses for the whole block.
            const bool joins = !alone && item.area == first.area && item.point == first.point && length < limit &&
                               length >= 1 && length % width == 0 && item.start == first.start + length / width;
            if (!joins)
                break;
            key.append(*item.entry);
            length += item.length;
            if (item.point)
                points.append(item.on);
            else
                bytes.append(item.bytes);
        }

        SWriteGroup group;
        group.areaText = areaName(first.area);
        group.start = QString::number(first.start);
        group.length = length;
        group.kind = first.point ? BlockKind::Points : BlockKind::Bytes;
        group.data =
            first.point ? SorvikValues::toVariant(points) : SorvikValues::toVariant(WriteBytes::charList(bytes));
        plan.insert(key, group);
        i = next;
    }

    // Every connection's refusals go, not only ours. Swapping in the new map
    // last keeps `infos` and `connectPar` valid even if they live in the old one.
    QMap<QString, QList<SWriteInfo>> cannotWrite;
    if (!refused.isEmpty())
        cannotWrite.insert(connectPar, refused);
    m_cannotWrite.swap(cannotWrite);
    m_writePlans.insert(connectPar, plan); // replaced whole, also by an empty plan
    return plan.keys();
}
