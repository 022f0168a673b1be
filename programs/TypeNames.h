#pragma once

#include <QString>
#include <QStringList>

// Element type names as the programs spell them: the DataType names in lower
// case, bool to string (1 to 12).
namespace TypeNames {
// The DataType of a name, 0 when there is none. Case does not matter.
int fromName(const QString &name);
// The name of a DataType, or its number as text outside 1 to 12.
QString name(int dataType);
QStringList all();
} // namespace TypeNames
