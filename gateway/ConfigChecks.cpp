#include "ConfigChecks.h"

#include "link/SorvikProtocol.h"
#include "programs/ConnectionText.h"
#include "programs/TagText.h"

#include <QHostAddress>

namespace {

QString areaList()
{
    QStringList names;
    for (const SorvikProtocol::Area &area : SorvikProtocol::kAreas)
        names << QLatin1String(area.prefix);
    names.sort();
    return names.join(QStringLiteral(", "));
}

} // namespace

// Only the plain form of a tag reaches the address it names, on the planned
// road and the one-tag road alike. The element number times the area's address
// factor must also fit the frame's 24-bit address field, or the request would
// wrap round to the start of the area.
bool ConfigChecks::tag(const QString &text, QString *why)
{
    TagText::Parts parts;
    if (!TagText::split(text, TagText::Areas::OnTheWire, &parts, why))
        return false;
    if (!parts.area) {
        *why = QStringLiteral("\"%1\" is no area (%2)").arg(parts.prefix, areaList());
        return false;
    }
    bool ok = false;
    const qulonglong number = parts.number.toULongLong(&ok);
    if (!ok || number < 1) {
        *why = QStringLiteral("element numbers count from 1");
        return false;
    }
    const qulonglong factor = qulonglong(SorvikProtocol::addressFactor(parts.area->code));
    const qulonglong lastIndex = 0xFFFFFFULL / factor;
    if (number - 1 > lastIndex) {
        *why = QStringLiteral("element %1 of %2 lies beyond the 24-bit address field (the last is %3)")
                   .arg(parts.number, parts.prefix)
                   .arg(lastIndex + 1);
        return false;
    }
    return true;
}

bool ConfigChecks::connection(const QString &text, QString *why)
{
    return ConnectionText::check(text, why);
}

QString ConfigChecks::connectionEndpoint(const QString &text)
{
    const QStringList udp = text.split(QLatin1Char(':'));
    if (udp.size() == 2)
        return QHostAddress(udp.at(0)).toString();
    return text.section(QLatin1Char(','), 0, 0);
}

bool ConfigChecks::listenAddress(const QString &text, QString *why)
{
    const int colon = text.lastIndexOf(QLatin1Char(':'));
    QString host = text.left(colon);
    if (host.startsWith(QLatin1Char('[')) && host.endsWith(QLatin1Char(']')))
        host = host.mid(1, host.size() - 2);
    else if (host.contains(QLatin1Char(':')))
        host.clear(); // a bare IPv6 address would be ambiguous with its port
    QHostAddress address;
    if (colon < 0 || !address.setAddress(host)) {
        *why = QStringLiteral("expected ADDRESS:PORT with an IP address, such as 127.0.0.1:9100 or [::1]:9100");
        return false;
    }
    return ConnectionText::checkPort(text.mid(colon + 1), why);
}
