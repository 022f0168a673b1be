#include "TagFile.h"

#include "CsvFields.h"

#include <QFile>
#include <QTextStream>

bool TagFile::read(const QString &path, TagSyntax syntax, QList<TagItem> *items, QString *why)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        *why = QStringLiteral("cannot read tag file %1: %2").arg(path, file.errorString());
        return false;
    }
    QTextStream in(&file);
    in.setCodec("UTF-8");
    for (int number = 1; !in.atEnd(); ++number) {
        const QString line = in.readLine().trimmed();
        if (line.isEmpty() || line.startsWith(QLatin1Char('#')))
            continue;
        QStringList fields;
        TagItem item;
        if (!CsvFields::split(line, &fields, why) || !TagItems::fromFields(fields, syntax, &item, why)) {
            *why = QStringLiteral("%1:%2: %3").arg(path).arg(number).arg(*why);
            return false;
        }
        item.origin = QStringLiteral("%1:%2").arg(path).arg(number);
        items->append(item);
    }
    return true;
}
