#include "TagText.h"

#include "protocol/SorvikAreas.h"

#include <QRegularExpression>
#include <QStringList>

namespace {

// The prefixes of the area table, SO included, which only the planner takes.
const char *findPrefix(const QString &text, Qt::CaseSensitivity sensitivity)
{
    for (const SorvikProtocol::Area &area : SorvikProtocol::kAreaTable)
        if (text.compare(QLatin1String(area.prefix), sensitivity) == 0)
            return area.prefix;
    return nullptr;
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
    if (!findPrefix(prefix, Qt::CaseSensitive)) {
        const char *written = findPrefix(prefix, Qt::CaseInsensitive);
        *why = written ? QStringLiteral("area prefixes are written %1").arg(QLatin1String(written))
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
