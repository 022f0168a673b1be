#include "StatusText.h"

QString StatusText::meaning(int status)
{
    switch (status) {
    case 0: return QStringLiteral("ok");
    case 1: return QStringLiteral("not done");
    case 2: return QStringLiteral("type refused for the area");
    case 3: return QStringLiteral("no area in the tag text");
    case 4: return QStringLiteral("length refused");
    case 8: return QStringLiteral("no reply");
    case 9: return QStringLiteral("link not open");
    default: return QStringLiteral("unknown status");
    }
}
