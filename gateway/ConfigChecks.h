#pragma once

// The checks of single configuration values that need more than a range:
// tag texts, type names and connection texts. Each gives true, or false with
// the reason in *why.
#include "programs/TypeNames.h"

#include <QString>
#include <QStringList>

namespace ConfigChecks {

// A tag the drive reads at the address it seems to name, on the planned road
// and the one-tag road alike.
bool tag(const QString &text, QString *why);

// Element type names as sorvik-cli spells them, bool to string (DataType 1 to 12).
inline int typeFromName(const QString &name) // 0 when there is none; case does not matter
{
    return TypeNames::fromName(name);
}
inline QString typeName(int dataType)
{
    return TypeNames::name(dataType);
}
inline QStringList typeNames()
{
    return TypeNames::all();
}

// "ADDRESS:PORT" (IPv4, no host names) or "PORT,BAUD,DATABITS,STOPBITS,PARITY".
bool connection(const QString &text, QString *why);
// What two controllers must not share: the address of a UDP controller (its
// drive binds that address and local port 500), or the serial port.
QString connectionEndpoint(const QString &text);

// "ADDRESS:PORT" of a listening socket, "[::1]:9100" for IPv6.
bool listenAddress(const QString &text, QString *why);

} // namespace ConfigChecks
