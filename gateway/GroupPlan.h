#pragma once

// How one scan group is read each cycle: the blocks the drive planned for it
// (one request each, whatever the number of tags), the tags the planner
// refused (read one at a time), and the tags of more than one element (one
// request each, since neither block nor point reading carries a count).
#include "GatewayConfig.h"
#include "host/InductionRecords.h"

#include <QList>
#include <QString>
#include <QStringList>

class CDriveBaseClass;

struct PlannedBlock {
    QList<Induction::SReadInfo> key;  // the group key BlockReading takes
    SReadGroup group;                 // area, start, length, kind and tag places as the drive planned them
    QList<Induction::SReadInfo> read; // the tags whose values are taken from the block's reply
    QStringList names;                // the configured names the block carries, in configuration order
};

struct GroupPlan {
    QString connectPar; // the key the drive holds this group's plan under
    int tagCount = 0;   // configured tags, each name once
    QList<PlannedBlock> blocks;
    QList<Induction::SReadInfo> pointTags; // refused by the planner, or past the end of what a block
                                           // moves; PointReading, one request each
    QStringList pointNames;
    QList<int> countedTags; // indexes into the group's tags of count > 1: ReadVariable with the count
    // Each configured tag (by index into the group's tags) and the read it comes from.
    QList<Induction::SReadInfo> readInfo;

    int requestsPerCycle() const { return blocks.size() + pointTags.size() + countedTags.size(); }

    // The key of a group's plan: "<controller>/<group>", so that groups of a
    // drive never share or overwrite each other's blocks.
    static QString connectParFor(const QString &controller, const QString &group);
    // Plans `group` on `drive` under its key, replacing what was planned there
    // before. Planning touches no link: a drive that never connected will do.
    static GroupPlan make(CDriveBaseClass *drive, const QString &controller, const ScanGroupConfig &group);

    // The plan as lines for people: one per block with its tags, one per tag
    // read alone, and a summary "N tags in B blocks: R requests per cycle
    // instead of N".
    QStringList describe(const ScanGroupConfig &group) const;
};

// Plans every group of every controller on one drive (each under its own key)
// for a report. The drive only plans; it is never connected.
struct ControllerPlan {
    QString controller;
    QList<QString> groups;
    QList<GroupPlan> plans;
};
QList<ControllerPlan> planControllers(CDriveBaseClass *drive, const GatewayConfig &config);
