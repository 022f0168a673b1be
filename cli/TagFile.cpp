#include "TagFile.h"

#include "programs/CsvFields.h"

#include <QFile>
#include <QTextStream>

namespace {

// Columns of a header row, as the CLI's own CSV output names them; -1 where
// a column is missing.
struct Header {
    int tag = 0;
    int type = 1;
    int value = -1; // without a header: the values follow the type
    bool named = false;
};

bool headerOf(const QStringList &fields, Header *header)
{
    if (fields.value(0).compare(QLatin1String("tag"), Qt::CaseInsensitive) != 0 &&
        !fields.contains(QStringLiteral("tag"), Qt::CaseInsensitive))
        return false;
    auto column = [&fields](const char *name) {
        for (int i = 0; i < fields.size(); ++i)
            if (fields.at(i).compare(QLatin1String(name), Qt::CaseInsensitive) == 0)
                return i;
        return -1;
    };
    header->tag = column("tag");
    header->type = column("type");
    header->value = column("value");
    header->named = true;
    return header->type >= 0;
}

// The fields of a line by its header: tag, type and the values, which sit in
// one field of their own (a CSV list) when a header names them.
bool arrange(const QStringList &fields, const Header &header, QStringList *out, QString *why)
{
    if (!header.named) {
        *out = fields;
        return true;
    }
    *out = QStringList{fields.value(header.tag), fields.value(header.type)};
    if (header.value < 0 || fields.value(header.value).isEmpty())
        return true;
    // A string tag holds one text, commas and all.
    if (fields.value(header.type).compare(QLatin1String("string"), Qt::CaseInsensitive) == 0) {
        *out << fields.value(header.value);
        return true;
    }
    QStringList values;
    if (!CsvFields::split(fields.value(header.value), &values, why))
        return false;
    *out += values;
    return true;
}

} // namespace

bool TagFile::read(const QString &path, TagSyntax syntax, QList<TagItem> *items, QString *why)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        *why = QStringLiteral("cannot read tag file %1: %2").arg(path, file.errorString());
        return false;
    }
    QTextStream in(&file);
    in.setCodec("UTF-8");
    Header header;
    bool first = true;
    for (int number = 1; !in.atEnd(); ++number) {
        const int start = number;
        QString line = in.readLine();
        // A quoted field may hold line breaks: it goes on until its quote closes.
        while (line.count(QLatin1Char('"')) % 2 != 0 && !in.atEnd()) {
            line += QLatin1Char('\n') + in.readLine();
            ++number;
        }
        line = line.trimmed();
        if (line.isEmpty() || line.startsWith(QLatin1Char('#')))
            continue;
        QStringList fields, arranged;
        TagItem item;
        if (CsvFields::split(line, &fields, why) && first && headerOf(fields, &header)) {
            first = false;
            continue;
        }
        first = false;
        if (!CsvFields::split(line, &fields, why) || !arrange(fields, header, &arranged, why) ||
            !TagItems::fromFields(arranged, syntax, &item, why)) {
            *why = QStringLiteral("%1:%2: %3").arg(path).arg(start).arg(*why);
            return false;
        }
        item.origin = QStringLiteral("%1:%2").arg(path).arg(start);
        items->append(item);
    }
    return true;
}
