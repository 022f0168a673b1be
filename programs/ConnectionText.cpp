#include "ConnectionText.h"

#include <QHostAddress>
#include <QStringList>

namespace {

bool checkUdp(const QString &host, const QString &port, QString *why)
{
    QHostAddress address;
    if (!address.setAddress(host) || address.protocol() != QAbstractSocket::IPv4Protocol) {
        *why = QStringLiteral("\"%1\" is no IPv4 address; host names are not looked up").arg(host);
        return false;
    }
    return ConnectionText::checkPort(port, why);
}

bool checkSerial(const QStringList &fields, QString *why)
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

bool ConnectionText::check(const QString &text, QString *why)
{
    const QStringList udp = text.split(QLatin1Char(':'));
    const QStringList serial = text.split(QLatin1Char(','));
    if (udp.size() == 2)
        return checkUdp(udp.at(0), udp.at(1), why);
    if (serial.size() == 5)
        return checkSerial(serial, why);
    *why = QStringLiteral("expected ADDRESS:PORT or PORT,BAUD,DATABITS,STOPBITS,PARITY");
    return false;
}

bool ConnectionText::checkPort(const QString &text, QString *why)
{
    bool ok = false;
    const uint number = text.toUInt(&ok);
    if (!ok || number < 1 || number > 65535) {
        *why = QStringLiteral("\"%1\" is no port from 1 to 65535").arg(text);
        return false;
    }
    return true;
}
