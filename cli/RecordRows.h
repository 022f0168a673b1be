#pragma once

#include "Output.h"
#include "host/CLabelVariable.h"

#include <QStringList>
#include <QVector>

// A value record as a row: tag, type, status, meaning, value, time. The tag
// and type are those asked for; the rest comes from the record.
namespace RecordRows {
QStringList columns();
QVector<Cell> cells(const QString &tag, int dataType, const CLabelVariable &record);
// A row for a tag that got no record, with `why` in the meaning column.
QVector<Cell> withoutRecord(const QString &tag, int dataType, const QString &why);
Cell time(const QDateTime &time);
} // namespace RecordRows
