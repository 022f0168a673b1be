#include "RecordRows.h"

#include "ValueFormatting.h"
#include "host/RecordStatus.h"
#include "programs/TypeNames.h"

QStringList RecordRows::columns()
{
    return {QStringLiteral("tag"),     QStringLiteral("type"),  QStringLiteral("status"),
            QStringLiteral("meaning"), QStringLiteral("value"), QStringLiteral("time")};
}

QString RecordRows::typeText(int dataType, int count)
{
    const QString name = TypeNames::name(dataType);
    return count > 1 ? QStringLiteral("%1x%2").arg(name).arg(count) : name;
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

QVector<Cell> RecordRows::cells(const QString &tag, int dataType, int count, const CLabelVariable &record,
                                const QString &note)
{
    ValueText value;
    if (record.status == RecordStatus::Ok)
        value = ValueFormatting::format(record.value, dataType);
    QString meaning = QLatin1String(RecordStatus::meaning(record.status));
    if (!note.isEmpty())
        meaning += QStringLiteral(" (%1)").arg(note);
    return {
        Cells::text(tag),     Cells::text(typeText(dataType, count)),          Cells::number(qlonglong(record.status)),
        Cells::text(meaning), Cells::list(value.texts, value.csv, value.json), time(record.time)};
}

QVector<Cell> RecordRows::withoutRecord(const QString &tag, int dataType, int count, const QString &why)
{
    return {Cells::text(tag),        Cells::text(typeText(dataType, count)),
            Cells::null(),           Cells::text(why),
            Cells::list({}, {}, {}), Cells::null()};
}
