// Planning read blocks: tag lists cut into blocks by area and limit, and blocks laid out by the caller.

#include "CInductiveDrive.h"

#include "BlockKind.h"
#include "EngineAreas.h"

#include <algorithm>
#include <vector>

using Induction::SReadInfo;

namespace {

// One addressable tag of the list. Tags are bucketed by sorting: by area, then
// address, the wider tag first at one address, then by key, so that a tag
// given twice lies next to itself.
struct PlannedTag {
    int area;
    int number;
    int size; // tagSize in the word family, 0 in the bit family
    const SReadInfo *info;
    QString areaText;
};

bool plannedBefore(const PlannedTag &a, const PlannedTag &b)
{
    if (a.area != b.area)
        return a.area < b.area;
    if (a.number != b.number)
        return a.number < b.number;
    if (a.size != b.size)
        return a.size > b.size;
    return *a.info < *b.info;
}

using Run = std::vector<PlannedTag>::const_iterator;

// A block being cut: its tags are the run [begin, end).
struct CutBlock {
    Run begin;
    Run end;
    int first;
    qint64 length;
};

// Points from the first address to the last; a new block where the span passes the limit.
std::vector<CutBlock> cutPoints(Run begin, Run end, qint64 limit)
{
    std::vector<CutBlock> blocks;
    for (Run entry = begin; entry != end; ++entry) {
        if (blocks.empty() || qint64(entry->number) - blocks.back().first + 1 > limit)
            blocks.push_back({entry, entry, entry->number, 0});
        blocks.back().end = entry + 1;
        blocks.back().length = qint64(entry->number) - blocks.back().first + 1;
    }
    return blocks;
}

// Bytes up to the farthest reach; a new block where a reach passes the limit.
std::vector<CutBlock> cutBytes(Run begin, Run end, int width, qint64 limit)
{
    std::vector<CutBlock> blocks;
    if (end - begin == 1) {
        // A lone tag asks for its own size, and never for a single byte.
        blocks.push_back({begin, end, begin->number, begin->size == 1 ? 2 : begin->size});
        return blocks;
    }
    for (Run entry = begin; entry != end; ++entry) {
        qint64 reach = blocks.empty() ? 0 : (qint64(entry->number) - blocks.back().first) * width + entry->size;
        if (blocks.empty() || reach > limit) {
            blocks.push_back({entry, entry, entry->number, 0});
            reach = entry->size;
        }
        blocks.back().end = entry + 1;
        // The farthest reach, not the last: a wide tag may end beyond a narrow one after it.
        blocks.back().length = qMax(blocks.back().length, reach);
    }
    // Byte blocks ask for an even number of bytes, so one may end 1 above the limit.
    for (CutBlock &block : blocks)
        block.length += block.length % 2;
    return blocks;
}

} // namespace

QList<QList<SReadInfo>> CInductiveDrive::InductiveDrive_Read(const QString &connectPar, const QList<SReadInfo> &infos)
{
    std::vector<PlannedTag> tags;
    tags.reserve(static_cast<size_t>(infos.size()));
    QList<SReadInfo> *refused = nullptr; // made only when a tag is refused
    for (const SReadInfo &info : infos) {
        const STagAddress address = analyseTag(info.tag, info.dataType);
        if (address.isBlank()) {
            if (!refused)
                refused = &m_cannotRead[connectPar];
            refused->append(info);
            continue;
        }
        const bool bytes = EngineAreas::family(address.area) == EngineAreas::Family::Word;
        tags.push_back({address.area, address.number, bytes ? tagSize(info) : 0, &info, address.areaText});
    }
    std::stable_sort(tags.begin(), tags.end(), plannedBefore);
    tags.erase(std::unique(tags.begin(), tags.end(),
                           [](const PlannedTag &a, const PlannedTag &b) { return *a.info == *b.info; }),
               tags.end());

    QList<SReadGroup> blocks;
    for (Run areaBegin = tags.cbegin(); areaBegin != tags.cend();) {
        const int area = areaBegin->area;
        const Run areaEnd =
            std::find_if(areaBegin, tags.cend(), [area](const PlannedTag &tag) { return tag.area != area; });
        // One spelling for the whole area: that of the tag last in key order.
        Run last = areaBegin;
        for (Run tag = areaBegin; tag != areaEnd; ++tag)
            if (*last->info < *tag->info)
                last = tag;
        const QString areaText = last->areaText;

        const bool points = EngineAreas::family(area) == EngineAreas::Family::Bit;
        const std::vector<CutBlock> cut = points
                                              ? cutPoints(areaBegin, areaEnd, m_readPointLimit)
                                              : cutBytes(areaBegin, areaEnd, EngineAreas::width(area), m_readByteLimit);
        // The width of a place follows the block's spelling: a lower-case prefix has none.
        const int placeWidth = EngineAreas::width(areaCode(areaText));
        for (const CutBlock &block : cut) {
            SReadGroup group;
            group.areaText = areaText;
            group.start = QString::number(block.first);
            group.length = static_cast<int>(block.length);
            group.kind = points ? BlockKind::Points : BlockKind::Bytes;
            for (Run tag = block.begin; tag != block.end; ++tag)
                group.tags.insert(
                    *tag->info,
                    {EngineAreas::offsetInBlock(area, tag->number, block.first, tag->info->dataType), placeWidth});
            blocks.append(group);
        }
        areaBegin = areaEnd;
    }

    QList<QList<SReadInfo>> keys;
    if (blocks.isEmpty())
        return keys;
    ReadPlan &plan = m_readPlans[connectPar];
    for (const SReadGroup &group : qAsConst(blocks)) {
        const QList<SReadInfo> key = group.tags.keys();
        plan.insert(key, group);
        keys.append(key);
    }
    return keys;
}

QList<QList<SReadInfo>> CInductiveDrive::InductiveDrive_Read(const QString &connectPar,
                                                             const QList<Induction::SReadInfo_manual> &blocks)
{
    QList<QList<SReadInfo>> keys;
    if (blocks.isEmpty())
        return keys;
    ReadPlan &plan = m_readPlans[connectPar];
    for (const Induction::SReadInfo_manual &block : blocks) {
        // Taken on trust: only the start tag is analysed, and a start that fits
        // no pattern still gives a block, of the unread kind.
        const STagAddress address = analyseTag(block.tag, TYPE_NONE);
        SReadGroup group;
        group.areaText = address.areaText;
        group.start = QString::number(address.number);
        group.length = block.length;
        switch (EngineAreas::family(address.area)) {
        case EngineAreas::Family::Bit: group.kind = BlockKind::Points; break;
        case EngineAreas::Family::Word: group.kind = BlockKind::Bytes; break;
        case EngineAreas::Family::None: group.kind = BlockKind::Unread; break;
        }
        const int width = EngineAreas::width(address.area);
        for (const SReadItem_manual &item : block.items)
            group.tags.insert({item.tag, item.dataType}, {item.offset, width});
        const QList<SReadInfo> key = group.tags.keys();
        plan.insert(key, group);
        keys.append(key);
    }
    return keys;
}
