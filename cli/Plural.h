#pragma once

#include <QString>

// "1 tag", "3 tags".
inline QString plural(int count, const char *one, const char *many)
{
    return QStringLiteral("%1 %2").arg(count).arg(QLatin1String(count == 1 ? one : many));
}
