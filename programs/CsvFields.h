#pragma once

#include <QString>
#include <QStringList>

// Comma-separated fields as the tag files and value lists use them: a field
// may be double-quoted to hold commas, with "" for a quote inside.
namespace CsvFields {
// Splits one line; unquoted fields are trimmed. False on an unclosed quote.
bool split(const QString &line, QStringList *fields, QString *why);
// Quotes a field for CSV output when it holds a comma, a quote or a line break.
QString quote(const QString &field);
} // namespace CsvFields
