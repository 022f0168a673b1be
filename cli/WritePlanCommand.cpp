#include "Commands.h"
#include "Outcome.h"
#include "Output.h"
#include "RecordRows.h"
#include "TypeNames.h"
#include "host/CDriveBaseClass.h"

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
        .arg(group.kind == 2 ? QStringLiteral("points") : QStringLiteral("bytes"));
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
    QHash<TagKey, QString> refused;
    for (const Induction::SWriteInfo &info : drive->GetCannotInductiveDrive_Write(context.connectPar))
        refused.insert(keyOf(info), QStringLiteral("refused by the planner"));

    QHash<TagKey, QPair<CLabelVariable, QString>> written; // record and block of each written tag
    for (const QList<Induction::SWriteInfo> &key : keys) {
        const QString block = blockName(drive->GetInductiveDrive_Write(context.connectPar, key));
        const QMap<Induction::SWriteInfo, CLabelVariable> results = drive->BlockWriting(context.connectPar, key);
        for (auto it = results.cbegin(); it != results.cend(); ++it)
            written.insert(keyOf(it.key()), {it.value(), block});
    }

    Output &output = context.output;
    QStringList columns = RecordRows::columns();
    columns << QStringLiteral("block");
    output.setColumns(columns);
    Outcome outcome;
    for (const Induction::SWriteInfo &info : qAsConst(infos)) {
        const TagKey key = keyOf(info);
        QVector<Cell> cells;
        if (written.contains(key)) {
            const auto &entry = written[key];
            // The record is the block's; the tag's own value is what it shows.
            CLabelVariable record = entry.first;
            record.value = info.value;
            cells = RecordRows::cells(info.tag, info.dataType, 1, record);
            cells.append(Cells::text(entry.second));
            outcome.addStatus(entry.first.status);
        } else {
            // Neither written nor refused: the planner left the tag out of every block.
            cells = RecordRows::withoutRecord(info.tag, info.dataType, 1,
                                              refused.value(key, QStringLiteral("left out by the planner")));
            cells.append(Cells::null());
            outcome.addRefused();
        }
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
