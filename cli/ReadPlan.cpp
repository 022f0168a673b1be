#include "ReadPlan.h"

#include "host/CDriveBaseClass.h"

#include <QPair>
#include <QSet>

namespace {

using TagKey = QPair<QString, int>;

TagKey keyOf(const Induction::SReadInfo &info)
{
    return {info.tag, info.dataType};
}

} // namespace

ReadPlan ReadPlan::make(CDriveBaseClass *drive, const QString &connectPar, const QList<TagItem> &items)
{
    ReadPlan plan;
    QSet<TagKey> given;
    for (const TagItem &item : items) {
        const Induction::SReadInfo info{item.tag, item.dataType};
        if (!given.contains(keyOf(info))) {
            given.insert(keyOf(info));
            plan.tags.append(info);
        }
    }

    drive->DelInductiveDrive_Read(connectPar);
    drive->DelCannotInductiveDrive_Read(connectPar);
    plan.keys = drive->InductiveDrive_Read(connectPar, plan.tags);
    QSet<TagKey> placed;
    for (const QList<Induction::SReadInfo> &key : qAsConst(plan.keys)) {
        plan.groups.append(drive->GetInductiveDrive_Read(connectPar, key));
        for (const Induction::SReadInfo &info : key)
            placed.insert(keyOf(info));
    }

    // Refused tags, and any tag that came back in neither list, are read one
    // at a time, so that every tag asked for is read.
    for (const Induction::SReadInfo &info : drive->GetCannotInductiveDrive_Read(connectPar))
        if (!placed.contains(keyOf(info))) {
            placed.insert(keyOf(info));
            plan.pointTags.append(info);
        }
    for (const Induction::SReadInfo &info : qAsConst(plan.tags))
        if (!placed.contains(keyOf(info))) {
            placed.insert(keyOf(info));
            plan.pointTags.append(info);
        }
    return plan;
}
