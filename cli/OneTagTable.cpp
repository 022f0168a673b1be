#include "OneTagTable.h"

#include "RecordRows.h"
#include "host/DataType.h"
#include "host/RecordStatus.h"

#include <algorithm>

namespace {

// A guess at the width of a value: what does not fit pushes its row along.
int valueWidth(const TagItem &item)
{
    switch (item.dataType) {
    case TYPE_BOOL: return 2 * item.count - 1;
    case TYPE_STRING: return 16;
    default: return std::min(8 * item.count, 40);
    }
}

} // namespace

QVector<int> OneTagTable::widths(const QList<TagItem> &items)
{
    QVector<int> widths = {3, 4, 6, 0, 5, 12}; // tag, type, status, meaning, value, time
    widths[3] = int(qstrlen(RecordStatus::meaning(RecordStatus::TypeRefused)));
    for (const TagItem &item : items) {
        widths[0] = std::max(widths[0], item.tag.size());
        widths[1] = std::max(widths[1], RecordRows::typeText(item.dataType, item.count).size());
        widths[4] = std::max(widths[4], std::min(valueWidth(item), 40));
    }
    return widths;
}
