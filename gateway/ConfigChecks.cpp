#include "ConfigChecks.h"

#include "host/DataType.h"
#include "link/SorvikProtocol.h"

#include <QHostAddress>
#include <QRegularExpression>

namespace {

const char *const kTypeNames[] = {"bool",   "int8",  "uint8", "int16",  "uint16", "int32",
                                  "uint32", "float", "int64", "uint64", "double", "string"};

// The area of a prefix written exactly as the controller names it, null for none.
const SorvikProtocol::Area *areaOf(const QString &prefix)
{
    for (const SorvikProtocol::Area &area : SorvikProtocol::kAreas)
        if (prefix == QLatin1String(area.prefix))
            return &area;
    return nullptr;
}

QString areaList()
{
    QStringList names;
    for (const SorvikProtocol::Area &area : SorvikProtocol::kAreas)
        names << QLatin1String(area.prefix);
    names.sort();
    return names.join(QStringLiteral(", "));
}

bool port(const QString &text, QString *why)
{
    bool ok = false;
    const uint number = text.toUInt(&ok);
    if (!ok || number < 1 || number > 65535) {
        *why = QStringLiteral("\"%1\" is no port from 1 to 65535").arg(text);
        return false;
    }
    return true;
}

bool serial(const QStringList &fields, QString *why)
{
    static const QStringList bauds = {QStringLiteral("1200"),  QStringLiteral("2400"),  QStringLiteral("4800"),
                                      QStringLiteral("9600"),  QStringLiteral("19200"), QStringLiteral("38400"),
                                      QStringLiteral("57600"), QStringLiteral("115200")};
    static const QStringList dataBits = {QStringLiteral("5"), QStringLiteral("6"), QStringLiteral("7"),
                                         QStringLiteral("8")};
    static const QStringList stopBits = {QStringLiteral("1"), QStringLiteral("2"), QStringLiteral("3")};
    static const QStringList parities = {QStringLiteral("N"), QStringLiteral("E"), QStringLiteral("O")};
    if (fields.at(0).isEmpty())
        *why = QStringLiteral("the serial port name is empty");
    else if (!bauds.contains(fields.at(1)))
        *why = QStringLiteral("baud rate \"%1\" is not one of %2").arg(fields.at(1), bauds.join(QStringLiteral(", ")));
    else if (!dataBits.contains(fields.at(2)))
        *why = QStringLiteral("data bits \"%1\" are not 5, 6, 7 or 8").arg(fields.at(2));
    else if (!stopBits.contains(fields.at(3)))
        *why = QStringLiteral("stop bits \"%1\" are not 1, 2 or 3 (one and a half)").arg(fields.at(3));
    else if (!parities.contains(fields.at(4).toUpper()))
        *why = QStringLiteral("parity \"%1\" is not N, E or O").arg(fields.at(4));
    else
        return true;
    return false;
}

} // namespace

// The drive takes every digit anywhere in a tag as the element number and the
// longest known prefix at its start, so AI3_7 would address element 37 and
// AI0 would go out as index -1; the planner takes lower-case prefixes that
// the one-tag road then knows no area for. Only the plain form reaches the
// address it names on both roads, so only that form is taken. The element
// number times the area's address factor must also fit the frame's 24-bit
// address field, or the request would wrap round to the start of the area.
bool ConfigChecks::tag(const QString &text, QString *why)
{
    static const QRegularExpression form(QStringLiteral("^([A-Za-z_]+)([0-9]+)$"));
    const QRegularExpressionMatch match = form.match(text);
    if (!match.hasMatch()) {
        *why = QStringLiteral("a tag is an area prefix and an element number, such as AI1 or DI_F12");
        return false;
    }
    const QString prefix = match.captured(1);
    const SorvikProtocol::Area *area = areaOf(prefix);
    if (!area) {
        for (const SorvikProtocol::Area &known : SorvikProtocol::kAreas)
            if (prefix.compare(QLatin1String(known.prefix), Qt::CaseInsensitive) == 0) {
                *why = QStringLiteral("area prefixes are written %1").arg(QLatin1String(known.prefix));
                return false;
            }
        *why = QStringLiteral("\"%1\" is no area (%2)").arg(prefix, areaList());
        return false;
    }
    bool ok = false;
    const qulonglong number = match.captured(2).toULongLong(&ok);
    if (!ok || number < 1) {
        *why = QStringLiteral("element numbers count from 1");
        return false;
    }
    const qulonglong factor = qulonglong(SorvikProtocol::addressFactor(area->code));
    const qulonglong lastIndex = 0xFFFFFFULL / factor;
    if (number - 1 > lastIndex) {
        *why = QStringLiteral("element %1 of %2 lies beyond the 24-bit address field (the last is %3)")
                   .arg(match.captured(2), prefix)
                   .arg(lastIndex + 1);
        return false;
    }
    return true;
}

int ConfigChecks::typeFromName(const QString &name)
{
    for (int type = TYPE_BOOL; type <= TYPE_STRING; ++type)
        if (name.compare(QLatin1String(kTypeNames[type - 1]), Qt::CaseInsensitive) == 0)
            return type;
    return TYPE_NONE;
}

QString ConfigChecks::typeName(int dataType)
{
    if (dataType >= TYPE_BOOL && dataType <= TYPE_STRING)
        return QLatin1String(kTypeNames[dataType - 1]);
    return QString::number(dataType);
}

QStringList ConfigChecks::typeNames()
{
    QStringList names;
    for (const char *name : kTypeNames)
        names << QLatin1String(name);
    return names;
}

bool ConfigChecks::connection(const QString &text, QString *why)
{
    const QStringList udp = text.split(QLatin1Char(':'));
    const QStringList fields = text.split(QLatin1Char(','));
    if (udp.size() == 2) {
        QHostAddress address;
        if (!address.setAddress(udp.at(0)) || address.protocol() != QAbstractSocket::IPv4Protocol) {
            *why = QStringLiteral("\"%1\" is no IPv4 address; host names are not looked up").arg(udp.at(0));
            return false;
        }
        return port(udp.at(1), why);
    }
    if (fields.size() == 5)
        return serial(fields, why);
    *why = QStringLiteral("expected ADDRESS:PORT or PORT,BAUD,DATABITS,STOPBITS,PARITY");
    return false;
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
    return port(text.mid(colon + 1), why);
}
