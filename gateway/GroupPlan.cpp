#include "GroupPlan.h"

#include "ConfigChecks.h"
#include "host/CDriveBaseClass.h"
#include "protocol/SorvikAreas.h"

#include <QHash>
#include <QSet>

namespace {

QString kindName(int kind)
{
    switch (kind) {
    case 1: return QStringLiteral("bytes");
    case 2: return QStringLiteral("points");
    default: return QStringLiteral("none");
    }
}

QString plural(int n, const char *one, const char *many)
{
    return QStringLiteral("%1 %2").arg(n).arg(QLatin1String(n == 1 ? one : many));
}

// The bytes the drive really moves for a byte block of `length` in the area
// the block's prefix names: word, pair and string areas move whole elements
// only, and an area outside those groups moves no bytes at all.
int transferredBytes(const QString &areaText, int length)
{
    using SorvikProtocol::AreaGroup;
    for (const SorvikProtocol::Area &area : SorvikProtocol::kAreas) {
        if (areaText != QLatin1String(area.prefix))
            continue;
        int bytes = 0;
        switch (area.group) {
        case AreaGroup::Word: bytes = length / 4 * 4; break;
        case AreaGroup::Pair: bytes = length / 2 * 2; break;
        case AreaGroup::Block: bytes = length / SorvikProtocol::kStringBlock * SorvikProtocol::kStringBlock; break;
        case AreaGroup::Bit:
        case AreaGroup::None: bytes = 0; break;
        }
        return bytes >= SorvikProtocol::kTransferLimit ? 0 : bytes;
    }
    return 0; // a prefix the drive does not know: the read is refused
}

// Where a tag of a byte block ends, in bytes from the block's start.
int tagEnd(const Induction::SReadInfo &info, const STagPlace &place)
{
    if (info.dataType == TYPE_BOOL)
        return place.offset / 8 + 1;
    const int size = info.dataType == TYPE_STRING ? place.width : dataTypeSize(info.dataType);
    return place.offset * place.width + size;
}

} // namespace

QString GroupPlan::connectParFor(const QString &controller, const QString &group)
{
    return controller + QLatin1Char('/') + group;
}

GroupPlan GroupPlan::make(CDriveBaseClass *drive, const QString &controller, const ScanGroupConfig &group)
{
    GroupPlan plan;
    plan.connectPar = connectParFor(controller, group.name);
    plan.tagCount = group.tags.size();

    // Several names may read the same tag text and type: the drive plans it
    // once, and every name gets its value.
    QList<Induction::SReadInfo> singles;
    QSet<QPair<QString, int>> given;
    for (int i = 0; i < group.tags.size(); ++i) {
        const TagConfig &tag = group.tags.at(i);
        const Induction::SReadInfo info{tag.tag, tag.dataType};
        plan.readInfo.append(info);
        if (tag.count > 1) {
            plan.countedTags.append(i);
            continue;
        }
        if (!given.contains({info.tag, info.dataType})) {
            given.insert({info.tag, info.dataType});
            singles.append(info);
        }
    }
    auto namesOf = [&](const Induction::SReadInfo &info) {
        QStringList names;
        for (int i = 0; i < group.tags.size(); ++i)
            if (group.tags.at(i).count <= 1 && plan.readInfo.at(i) == info)
                names.append(group.tags.at(i).name);
        return names;
    };

    drive->DelInductiveDrive_Read(plan.connectPar);
    drive->DelCannotInductiveDrive_Read(plan.connectPar);
    if (singles.isEmpty())
        return plan;
    const QList<QList<Induction::SReadInfo>> keys = drive->InductiveDrive_Read(plan.connectPar, singles);
    QSet<QPair<QString, int>> placed;
    for (const QList<Induction::SReadInfo> &key : keys) {
        PlannedBlock block;
        block.key = key;
        block.group = drive->GetInductiveDrive_Read(plan.connectPar, key);
        // A byte block whose length is no whole number of the area's
        // elements comes back shorter than planned, and the drive gives the
        // tags past its end a zero with status 0. Those tags are read alone
        // instead, and their zero from the block is never looked at.
        const int moved = block.group.kind == 1 ? transferredBytes(block.group.areaText, block.group.length) : -1;
        for (const Induction::SReadInfo &info : key) {
            if (moved >= 0 && tagEnd(info, block.group.tags.value(info)) > moved)
                continue;
            placed.insert({info.tag, info.dataType});
            block.names += namesOf(info);
            block.read.append(info);
        }
        if (!block.read.isEmpty())
            plan.blocks.append(block);
    }
    // Refused tags, and any tag that came back in no block, are read one at a
    // time, so that every configured tag is read each cycle.
    for (const Induction::SReadInfo &info : singles)
        if (!placed.contains({info.tag, info.dataType})) {
            placed.insert({info.tag, info.dataType});
            plan.pointTags.append(info);
            plan.pointNames += namesOf(info);
        }
    return plan;
}

QStringList GroupPlan::describe(const ScanGroupConfig &group) const
{
    QStringList lines;
    for (int b = 0; b < blocks.size(); ++b) {
        const SReadGroup &g = blocks.at(b).group;
        lines.append(QStringLiteral("block %1: %2%3, %4 %5, tags %6")
                         .arg(b + 1)
                         .arg(g.areaText, g.start.toString())
                         .arg(g.length)
                         .arg(kindName(g.kind), blocks.at(b).names.join(QStringLiteral(", "))));
    }
    for (const Induction::SReadInfo &info : pointTags)
        lines.append(QStringLiteral("alone: %1 (%2)").arg(info.tag, ConfigChecks::typeName(info.dataType)));
    for (int index : countedTags) {
        const TagConfig &tag = group.tags.at(index);
        lines.append(QStringLiteral("alone: %1 %2 (%3 x %4)")
                         .arg(tag.name, tag.tag, QString::number(tag.count), ConfigChecks::typeName(tag.dataType)));
    }
    lines.append(QStringLiteral("%1 in %2: %3 per cycle instead of %4")
                     .arg(plural(tagCount, "tag", "tags"), plural(blocks.size(), "block", "blocks"),
                          plural(requestsPerCycle(), "request", "requests"))
                     .arg(tagCount));
    return lines;
}

QList<ControllerPlan> planControllers(CDriveBaseClass *drive, const GatewayConfig &config)
{
    QList<ControllerPlan> result;
    for (const ControllerConfig &controller : config.controllers) {
        ControllerPlan plans;
        plans.controller = controller.name;
        for (const ScanGroupConfig &group : controller.groups) {
            plans.groups.append(group.name);
            plans.plans.append(GroupPlan::make(drive, controller.name, group));
        }
        result.append(plans);
    }
    return result;
}
