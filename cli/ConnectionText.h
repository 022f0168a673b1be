#pragma once

#include <QString>

// Checks a connection text before it reaches the drive, which would take a
// host name or an unknown baud rate without a word and then fail or run with
// settings it never applied.
namespace ConnectionText {
bool check(const QString &text, QString *why);
}
