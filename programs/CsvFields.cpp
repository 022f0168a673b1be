#include "CsvFields.h"

bool CsvFields::split(const QString &line, QStringList *fields, QString *why)
{
    fields->clear();
    QString field;
    bool quoted = false;    // inside quotes
    bool wasQuoted = false; // the current field had quotes: keep its spaces
    for (int i = 0; i < line.size(); ++i) {
        const QChar c = line.at(i);
        if (quoted) {
            if (c != QLatin1Char('"'))
                field += c;
            else if (i + 1 < line.size() && line.at(i + 1) == QLatin1Char('"'))
                field += line.at(++i);
            else
                quoted = false;
        } else if (c == QLatin1Char('"')) {
            if (!wasQuoted && field.trimmed().isEmpty())
                field.clear(); // blanks before an opening quote are no part of the text
            quoted = true;
            wasQuoted = true;
        } else if (c == QLatin1Char(',')) {
            fields->append(wasQuoted ? field : field.trimmed());
            field.clear();
            wasQuoted = false;
        } else {
            field += c;
        }
    }
    if (quoted) {
        *why = QStringLiteral("a quote is not closed");
        return false;
    }
    fields->append(wasQuoted ? field : field.trimmed());
    return true;
}

QString CsvFields::quote(const QString &field)
{
    if (!field.contains(QLatin1Char(',')) && !field.contains(QLatin1Char('"')) && !field.contains(QLatin1Char('\n')) &&
        !field.contains(QLatin1Char('\r')))
        return field;
    QString quoted = field;
    quoted.replace(QLatin1String("\""), QLatin1String("\"\""));
    return QLatin1Char('"') + quoted + QLatin1Char('"');
}
