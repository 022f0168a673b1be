#include "CInductiveDrive.h"

#include "EngineAreas.h"

#include <algorithm>
#include <limits>
#include <vector>

using Induction::SReadInfo;

namespace {

using Bucket = QMap<SReadInfo, STagAddress>;

struct PlannedTag {
    const SReadInfo *info;
    int number;
    int size; // tagSize; the word-family pass only
};

// A block being filled; `start` stays a number until the block is finished.
struct OpenBlock {
    int first = 0;
    qint64 extent = 0; // bit family: last number; word family: largest reach
    std::vector<const PlannedTag *> tags;
};

SReadGroup closedBlock(const QString &areaText, int first, qint64 length, int kind)
{
    SReadGroup group;
    group.areaText = areaText;
    group.start = first;
    group.length = static_cast<int>(qBound<qint64>(-1, length, std::numeric_limits<int>::max()));
    group.kind = kind;
    return group;
}

} // namespace

QList<QList<SReadInfo>> CInductiveDrive::InductiveDrive_Read(const QString &connectPar, const QList<SReadInfo> &infos)
{
    QMap<int, Bucket> buckets;
    for (const SReadInfo &info : infos) {
        const STagAddress address = analyseTag(info.tag, info.dataType);
        if (address.isBlank())
            m_cannotRead[connectPar].append(info);
        else
            buckets[address.area].insert(info, address);
    }

    QList<SReadGroup> blocks;
    for (auto bucket = buckets.cbegin(); bucket != buckets.cend(); ++bucket) {
        const Bucket &tags = bucket.value();
        // One spelling for the whole area: that of the tag last in key order.
        const QString areaText = tags.last().areaText;
        std::vector<PlannedTag> entries;
        entries.reserve(static_cast<size_t>(tags.size()));
        for (auto tag = tags.cbegin(); tag != tags.cend(); ++tag)
            entries.push_back({&tag.key(), tag.value().number, 0});

        QList<SReadGroup> planned;
        std::vector<OpenBlock> open;
        if (EngineAreas::family(bucket.key()) == EngineAreas::Family::Bit) {
            std::stable_sort(entries.begin(), entries.end(),
                             [](const PlannedTag &a, const PlannedTag &b) { return a.number < b.number; });
            for (const PlannedTag &entry : entries) {
                const qint64 span = qint64(entry.number) - (open.empty() ? entry.number : open.back().first) + 1;
                if (open.empty() || (span > m_readPointLimit && !open.back().tags.empty()))
                    open.push_back({entry.number, entry.number, {}});
                open.back().tags.push_back(&entry);
                open.back().extent = entry.number;
            }
            for (const OpenBlock &block : open)
                planned.append(closedBlock(areaText, block.first, block.extent - block.first + 1, 2));
        } else {
            for (PlannedTag &entry : entries)
                entry.size = tagSize(*entry.info);
            std::stable_sort(entries.begin(), entries.end(), [](const PlannedTag &a, const PlannedTag &b) {
                return a.number != b.number ? a.number < b.number : a.size > b.size;
            });
            const int addressWidth = EngineAreas::width(bucket.key());
            if (entries.size() == 1) {
                const PlannedTag &only = entries.front();
                open.push_back({only.number, only.size == 1 ? 2 : only.size, {&only}});
            } else {
                for (const PlannedTag &entry : entries) {
                    const int first = open.empty() ? entry.number : open.back().first;
                    qint64 reach = (qint64(entry.number) - first) * addressWidth + entry.size;
                    if (open.empty() || (reach > m_readByteLimit && !open.back().tags.empty())) {
                        open.push_back({entry.number, 0, {}});
                        reach = entry.size;
                    }
                    open.back().tags.push_back(&entry);
                    open.back().extent = qMax(open.back().extent, reach);
                }
                // Byte blocks ask for an even number of bytes, so one may end 1 above the limit.
                for (OpenBlock &block : open)
                    block.extent += block.extent % 2;
            }
            for (const OpenBlock &block : open)
                planned.append(closedBlock(areaText, block.first, block.extent, 1));
        }

        // Finish: place every tag and turn the start into text.
        // The width of a place follows the block's spelling: a lower-case prefix has none.
        const int placeWidth = EngineAreas::width(areaCode(areaText));
        for (int i = 0; i < planned.size(); ++i) {
            SReadGroup &group = planned[i];
            const int first = open[static_cast<size_t>(i)].first;
            for (const PlannedTag *entry : open[static_cast<size_t>(i)].tags)
                group.tags.insert(*entry->info, {EngineAreas::offsetInBlock(bucket.key(), entry->number, first,
                                                                            entry->info->dataType),
                                                 placeWidth});
            group.start = QString::number(first);
        }
        blocks.append(planned);
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
        // no pattern still gives a block, of kind 0, that is never read.
        const STagAddress address = analyseTag(block.tag, TYPE_NONE);
        SReadGroup group;
        group.areaText = address.areaText;
        group.start = QString::number(address.number);
        group.length = block.length;
        switch (EngineAreas::family(address.area)) {
        case EngineAreas::Family::Bit: group.kind = 2; break;
        case EngineAreas::Family::Word: group.kind = 1; break;
        case EngineAreas::Family::None: group.kind = 0; break;
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
