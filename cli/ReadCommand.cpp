#include "Commands.h"
#include "Console.h"
#include "LinkKeeper.h"
#include "OneTagTable.h"
#include "Outcome.h"
#include "Output.h"
#include "RecordRows.h"
#include "ValueFormatting.h"
#include "host/CDriveBaseClass.h"
#include "host/RecordStatus.h"
#include "programs/StopSignal.h"

// One request per tag, in the order given, each row out as soon as its reply
// is in: Ctrl-C keeps what was read.
int Commands::read(const CommandContext &context)
{
    StopSignal::install();
    Outcome outcome;
    LinkKeeper link(context.drive, context.connectPar);
    context.output.setColumns(RecordRows::columns());
    context.output.setStreaming(OneTagTable::widths(context.items));
    int done = 0;
    for (const TagItem &item : context.items) {
        if (StopSignal::requested())
            break;
        ++done;
        if (!link.ready()) {
            context.output.addRow(RecordRows::withoutRecord(item.tag, item.dataType, item.count, link.unreadReason()));
            outcome.addUnread();
            continue;
        }
        const CLabelVariable record =
            context.drive->ReadVariable(item.tag, static_cast<DataType>(item.dataType), item.count);
        link.noteStatus(record.status);
        context.output.addRow(RecordRows::cells(item.tag, item.dataType, item.count, record));
        outcome.addStatus(record.status);
        // The drive rounds some counts down to whole elements of the area
        // and says nothing: say it here.
        const int came = ValueFormatting::format(record.value, item.dataType).json.size();
        if (record.status == RecordStatus::Ok && came < item.count)
            Console::error(
                QStringLiteral("%1: %2 of %3 elements came back").arg(item.origin).arg(came).arg(item.count));
    }
    context.output.endTable();
    if (done < context.items.size()) {
        Console::error(QStringLiteral("stopped: %1 of %2 tags not read")
                           .arg(context.items.size() - done)
                           .arg(context.items.size()));
        for (int i = done; i < context.items.size(); ++i)
            outcome.addRefused();
    }
    return outcome.finish();
}
