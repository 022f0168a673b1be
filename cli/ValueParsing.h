#pragma once

#include <QString>
#include <QStringList>
#include <QVariant>

// Turns value texts into the value list of a DataType (QList<int> for int32
// and so on). Parsing is strict: a text that is no number of the type, or
// lies outside its range, is refused, never cut down or rounded to fit.
namespace ValueParsing {
// The longest text a string tag carries: its length travels in one signed byte.
constexpr int kLongestString = 127;

bool parse(int dataType, const QStringList &texts, QVariant *list, QString *why);
} // namespace ValueParsing
