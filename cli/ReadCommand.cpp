#include "Commands.h"
#include "Outcome.h"
#include "Output.h"
#include "RecordRows.h"
#include "host/CDriveBaseClass.h"

// One request per tag, in the order given.
int Commands::read(const CommandContext &context)
{
    Outcome outcome;
    context.output.setColumns(RecordRows::columns());
    for (const TagItem &item : context.items) {
        const CLabelVariable record =
            context.drive->ReadVariable(item.tag, static_cast<DataType>(item.dataType), item.count);
        context.output.addRow(RecordRows::cells(item.tag, item.dataType, item.count, record));
        outcome.addStatus(record.status);
    }
    context.output.endTable();
    return outcome.finish();
}
