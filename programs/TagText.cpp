#include "TagText.h"

#include <QRegularExpression>

namespace {

template <typename Table>
const SorvikProtocol::Area *find(const Table &table, const QString &prefix, Qt::CaseSensitivity sensitivity)
{
    for (const SorvikProtocol::Area &area : table)
        if (prefix.compare(QLatin1String(area.prefix), sensitivity) == 0)
            return &area;
    return nullptr;
}

const SorvikProtocol::Area *find(TagText::Areas areas, const QString &prefix, Qt::CaseSensitivity sensitivity)
{
    return areas == TagText::Areas::OnTheWire ? find(SorvikProtocol::kAreas, prefix, sensitivity)
                                              : find(SorvikProtocol::kAreaTable, prefix, sensitivity);
}

} // namespace

bool TagText::split(const QString &tag, Areas areas, Parts *parts, QString *why)
{
    static const QRegularExpression form(QStringLiteral("^([A-Za-z_]+)([0-9]+)$"));
    const QRegularExpressionMatch match = form.match(tag);
    if (!match.hasMatch()) {
        *why = QStringLiteral("a tag is an area prefix and an element number, such as AI1 or DI_F12");
        return false;
    }
    parts->prefix = match.captured(1);
    parts->number = match.captured(2);
    parts->area = find(areas, parts->prefix, Qt::CaseSensitive);
    if (!parts->area) {
        if (const SorvikProtocol::Area *written = find(areas, parts->prefix, Qt::CaseInsensitive)) {
            *why = QStringLiteral("area prefixes are written %1").arg(QLatin1String(written->prefix));
            return false;
        }
    }
    return true;
}
