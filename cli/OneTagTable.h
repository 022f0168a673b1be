#pragma once

#include "TagItems.h"

#include <QList>
#include <QVector>

// Column widths for the rows of read and write, which go out one by one as
// each tag completes, before the widest value is known.
namespace OneTagTable {
QVector<int> widths(const QList<TagItem> &items);
}
