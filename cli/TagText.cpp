#include "TagText.h"

#include <QRegularExpression>
#include <QStringList>

namespace {

const char *const kPrefixes[] = {"DI",  "DI_F", "DI_S", "DO", "DO_F", "DO_S", "AI",  "AI_F", "AI_S",
                                 "AO",  "AO_F", "AO_S", "SD", "SA",   "NDI",  "NDO", "NAI",  "NAO",
                                 "HDS", "HDP",  "HAI",  "LD", "LA",   "LW",   "SI",  "SO",   "Custom"};

bool isPrefix(const QString &text, Qt::CaseSensitivity sensitivity)
{
    for (const char *prefix : kPrefixes)
        if (text.compare(QLatin1String(prefix), sensitivity) == 0)
            return true;
    return false;
}

QString correctCase(const QString &text)
{
    for (const char *prefix : kPrefixes)
        if (text.compare(QLatin1String(prefix), Qt::CaseInsensitive) == 0)
            return QLatin1String(prefix);
    return text;
}

} // namespace

// The drive itself reads every digit anywhere in a tag as the element number
// and takes the longest known prefix at the start, so AI3_7 would address
// element 37 and SI1[20] element 120, and AI0 would go out as index -1. Such
// texts would reach a wrong address, so this host sends only the plain form.
// Lower-case prefixes are refused as well: the planner accepts them but the
// one-tag path knows no area for them, so they could never be read.
bool TagText::check(const QString &tag, QString *why)
{
    static const QRegularExpression form(QStringLiteral("^([A-Za-z_]+)([0-9]+)$"));
    const QRegularExpressionMatch match = form.match(tag);
    if (!match.hasMatch()) {
        *why = QStringLiteral("a tag is an area prefix and an element number, such as AI1 or DI_F12");
        return false;
    }
    const QString prefix = match.captured(1);
    if (!isPrefix(prefix, Qt::CaseSensitive)) {
        *why = isPrefix(prefix, Qt::CaseInsensitive)
                   ? QStringLiteral("area prefixes are written %1").arg(correctCase(prefix))
                   : QStringLiteral("\"%1\" is no area (DI, DO, AI, AO, SD, SA, NDI, NDO, NAI, NAO, HDS, HDP, HAI, "
                                    "LD, LA, LW, SI, SO, Custom and their _F/_S forms)")
                         .arg(prefix);
        return false;
    }
    bool ok = false;
    const qulonglong number = match.captured(2).toULongLong(&ok);
    if (!ok || number < 1 || number > 2147483647ULL) {
        *why = QStringLiteral("element numbers count from 1 to 2147483647");
        return false;
    }
    return true;
}
