#pragma once

#include "Output.h"
#include "host/CLabelVariable.h"

#include <QStringList>
#include <QVector>

// A value record as a row: tag, type, status, meaning, value, time. The tag
// and type are those asked for (the type with its count, as "floatx2", when
// more than one element was asked); the rest comes from the record.
namespace RecordRows {
QStringList columns();
// The type column: "float", or "floatx2" for several elements.
QString typeText(int dataType, int count);
// A record whose status is not 0 shows no value: whatever the record holds
// then is no reading of the tag. `note` is added to the meaning.
QVector<Cell> cells(const QString &tag, int dataType, int count, const CLabelVariable &record,
                    const QString &note = QString());
// A row for a tag that got no record, with `why` in the meaning column.
QVector<Cell> withoutRecord(const QString &tag, int dataType, int count, const QString &why);
Cell time(const QDateTime &time);
} // namespace RecordRows
