#include "RecordRows.h"

#include "StatusText.h"
#include "TypeNames.h"
#include "ValueFormatting.h"

QStringList RecordRows::columns()
{
    return {QStringLiteral("tag"),     QStringLiteral("type"),  QStringLiteral("status"),
            QStringLiteral("meaning"), QStringLiteral("value"), QStringLiteral("time")};
}

// CSV and JSON carry the local time with its offset; a table shows the time of day.
Cell RecordRows::time(const QDateTime &time)
{
    if (!time.isValid())
        return Cells::null();
    Cell cell = Cells::text(time.toOffsetFromUtc(time.offsetFromUtc()).toString(Qt::ISODateWithMs));
    cell.display = time.toString(QStringLiteral("hh:mm:ss.zzz"));
    return cell;
}

QVector<Cell> RecordRows::cells(const QString &tag, int dataType, const CLabelVariable &record)
{
    const ValueText value = ValueFormatting::format(record.value, dataType);
    return {Cells::text(tag),
            Cells::text(TypeNames::name(dataType)),
            Cells::number(qlonglong(record.status)),
            Cells::text(StatusText::meaning(record.status)),
            record.value.isValid() ? Cells::list(value.texts, value.json) : Cells::null(),
            time(record.time)};
}

QVector<Cell> RecordRows::withoutRecord(const QString &tag, int dataType, const QString &why)
{
    return {Cells::text(tag), Cells::text(TypeNames::name(dataType)), Cells::null(), Cells::text(why), Cells::null(),
            Cells::null()};
}
