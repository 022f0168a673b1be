#include "Commands.h"
#include "Outcome.h"
#include "Output.h"
#include "RecordRows.h"
#include "host/CDriveBaseClass.h"

// One request per tag, with as many elements as values were given.
int Commands::write(const CommandContext &context)
{
    Outcome outcome;
    context.output.setColumns(RecordRows::columns());
    for (const TagItem &item : context.items) {
        CLabelVariable label;
        label.tag = item.tag;
        label.dataType = item.dataType;
        label.length = item.count;
        label.value = item.value;
        const CLabelVariable record =
            context.drive->WriteVariable(item.tag, static_cast<DataType>(item.dataType), label, item.count);
        context.output.addRow(RecordRows::cells(item.tag, item.dataType, item.count, record));
        outcome.addStatus(record.status);
    }
    context.output.endTable();
    return outcome.finish();
}
