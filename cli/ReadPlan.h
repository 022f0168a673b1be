#pragma once

#include "TagItems.h"
#include "host/InductionRecords.h"

#include <QList>
#include <QMap>
#include <QString>

class CDriveBaseClass;

// The read blocks the drive made of a tag list, and the tags it did not take
// into a block: those are read one at a time.
struct ReadPlan {
    QList<Induction::SReadInfo> tags; // the list as given, each tag once
    QList<QList<Induction::SReadInfo>> keys;
    QList<SReadGroup> groups; // one per key
    QList<Induction::SReadInfo> pointTags;

    static ReadPlan make(CDriveBaseClass *drive, const QString &connectPar, const QList<TagItem> &items);
    int requestsPerCycle() const { return keys.size() + pointTags.size(); }
};
