#include "Commands.h"
#include "LinkKeeper.h"
#include "OneTagTable.h"
#include "Outcome.h"
#include "Output.h"
#include "RecordRows.h"
#include "host/CDriveBaseClass.h"

// One request per tag, with as many elements as its count; each row out as
// soon as its reply is in.
int Commands::write(const CommandContext &context)
{
    Outcome outcome;
    LinkKeeper link(context.drive, context.connectPar);
    context.output.setColumns(RecordRows::columns());
    context.output.setStreaming(OneTagTable::widths(context.items));
    for (const TagItem &item : context.items) {
        // After a lost reply the next write's reply could be the lost one:
        // the link is resynchronised first, and nothing goes out while down.
        if (!link.ready()) {
            context.output.addRow(RecordRows::withoutRecord(item.tag, item.dataType, item.count,
                                                            QStringLiteral("not written: the link is down")));
            outcome.addUnread();
            continue;
        }
        CLabelVariable label;
        label.tag = item.tag;
        label.dataType = item.dataType;
        label.length = item.count;
        label.value = item.value;
        const CLabelVariable record =
            context.drive->WriteVariable(item.tag, static_cast<DataType>(item.dataType), label, item.count);
        link.noteStatus(record.status);
        context.output.addRow(RecordRows::cells(item.tag, item.dataType, item.count, record));
        outcome.addStatus(record.status);
    }
    context.output.endTable();
    return outcome.finish();
}
