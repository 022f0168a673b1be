#pragma once

#include <QString>

// Checks a connection text before it reaches the drive, which would take a
// host name or an unknown baud rate without a word and then fail or run with
// settings it never applied. Each gives true, or false with the reason in *why.
namespace ConnectionText {
// "ADDRESS:PORT" (IPv4, no host names) or "PORT,BAUD,DATABITS,STOPBITS,PARITY".
bool check(const QString &text, QString *why);
// A port number from 1 to 65535.
bool checkPort(const QString &text, QString *why);
} // namespace ConnectionText
