#pragma once

#include <QString>
#include <QStringList>
#include <QVariant>

// The elements of a value list as text and as JSON, by the list type that
// the value actually holds.
struct ValueText {
    QStringList texts; // for tables: numbers, 1/0, texts with control characters escaped
    QStringList csv;   // for CSV: the same, but texts as they are, quoted when they hold a comma or quote
    QStringList json;  // JSON values: numbers, true/false, quoted strings
};

namespace ValueFormatting {
// `requestedType` matters only for a string tag whose value came back as raw
// bytes: those are shown as the text they hold.
ValueText format(const QVariant &value, int requestedType);
// The shortest text that reads back as the same float or double.
QString shortest(float value);
QString shortest(double value);
QString jsonString(const QString &text);
QString printable(const QString &text);
} // namespace ValueFormatting
