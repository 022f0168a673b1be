#include "Commands.h"
#include "LinkKeeper.h"
#include "Outcome.h"
#include "Output.h"
#include "RecordRows.h"
#include "engine/BlockKind.h"
#include "host/CDriveBaseClass.h"
#include "programs/TypeNames.h"

#include <QHash>
#include <QPair>

namespace {

using TagKey = QPair<QString, int>;

TagKey keyOf(const Induction::SWriteInfo &info)
{
    return {info.tag, info.dataType};
}

QString blockName(const SWriteGroup &group)
{
    return QStringLiteral("%1%2+%3 %4")
        .arg(group.areaText, group.start.toString())
        .arg(group.length)
        .arg(group.kind == BlockKind::Points ? QStringLiteral("points") : QStringLiteral("bytes"));
}

QString tagList(const QList<Induction::SWriteInfo> &key)
{
    QStringList names;
    for (const Induction::SWriteInfo &info : key)
        names << info.tag + QLatin1Char(':') + TypeNames::name(info.dataType);
    return names.join(QLatin1Char(' '));
}

} // namespace

// Plans the list, writes it block by block and shows, per tag, what came of it;
// then what the plan still holds, which is what did not get written.
int Commands::writePlan(const CommandContext &context)
{
    CDriveBaseClass *drive = context.drive;
    QList<Induction::SWriteInfo> infos;
    for (const TagItem &item : context.items)
        infos.append({item.tag, item.dataType, item.value});

    const QList<QList<Induction::SWriteInfo>> keys = drive->InductiveDrive_Write(context.connectPar, infos);
    LinkKeeper link(drive, context.connectPar);
    // Record and way (block, or one at a time) of each tag that went out,
    // or why it did not.
    struct Entry {
        CLabelVariable record;
        QString way;
        bool sent = false;
    };
    QHash<TagKey, Entry> entries;
    for (const QList<Induction::SWriteInfo> &key : keys) {
        const QString block = blockName(drive->GetInductiveDrive_Write(context.connectPar, key));
        if (!link.ready()) {
            for (const Induction::SWriteInfo &info : key)
                entries.insert(keyOf(info), {CLabelVariable(), block, false});
            continue;
        }
        const QMap<Induction::SWriteInfo, CLabelVariable> results = drive->BlockWriting(context.connectPar, key);
        for (auto it = results.cbegin(); it != results.cend(); ++it) {
            link.noteStatus(it.value().status);
            entries.insert(keyOf(it.key()), {it.value(), block, true});
        }
    }
    // Tags the planner would not take go one at a time, as poll reads them.
    const QString single = QStringLiteral("one at a time");
    for (const Induction::SWriteInfo &info : drive->GetCannotInductiveDrive_Write(context.connectPar)) {
        if (entries.contains(keyOf(info)))
            continue;
        if (!link.ready()) {
            entries.insert(keyOf(info), {CLabelVariable(), single, false});
            continue;
        }
        CLabelVariable label;
        label.tag = info.tag;
        label.dataType = info.dataType;
        label.length = 1;
        label.value = info.value;
        const CLabelVariable record = drive->WriteVariable(info.tag, static_cast<DataType>(info.dataType), label, 1);
        link.noteStatus(record.status);
        entries.insert(keyOf(info), {record, single, true});
    }

    Output &output = context.output;
    QStringList columns = RecordRows::columns();
    columns << QStringLiteral("block");
    output.setColumns(columns);
    Outcome outcome;
    for (const Induction::SWriteInfo &info : qAsConst(infos)) {
        const TagKey key = keyOf(info);
        QVector<Cell> cells;
        const Entry entry = entries.value(key);
        if (entry.sent) {
            // The record is the block's; the tag's own value is what it shows.
            CLabelVariable record = entry.record;
            record.value = info.value;
            cells = RecordRows::cells(info.tag, info.dataType, 1, record);
            outcome.addStatus(record.status);
        } else if (!entry.way.isEmpty()) {
            cells =
                RecordRows::withoutRecord(info.tag, info.dataType, 1, QStringLiteral("not written: the link is down"));
            outcome.addUnread();
        } else {
            // The planner neither took the tag into a block nor listed it as refused.
            cells = RecordRows::withoutRecord(info.tag, info.dataType, 1, QStringLiteral("left out by the planner"));
            outcome.addRefused();
        }
        cells.append(entry.way.isEmpty() ? Cells::null() : Cells::text(entry.way));
        output.addRow(cells);
    }
    output.endTable();

    const QMap<QList<Induction::SWriteInfo>, SWriteGroup> left = drive->GetInductiveDrive_Write(context.connectPar);
    if (left.isEmpty())
        output.addNote(QStringLiteral("left"), QStringLiteral("nothing left in the plan"),
                       {{QStringLiteral("blocks"), Cells::number(qlonglong(0))}});
    for (auto it = left.cbegin(); it != left.cend(); ++it)
        output.addNote(QStringLiteral("left"),
                       QStringLiteral("left in the plan: %1: %2").arg(blockName(it.value()), tagList(it.key())),
                       {{QStringLiteral("block"), Cells::text(blockName(it.value()))},
                        {QStringLiteral("tags"), Cells::text(tagList(it.key()))}});
    return outcome.finish();
}
