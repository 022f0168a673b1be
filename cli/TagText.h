#pragma once

#include <QString>

// The tags this host sends: an area prefix as the controller names it, in
// upper case (Custom as written), and an element number from 1, e.g. AI_F12.
namespace TagText {
// True for a tag the host may send; otherwise false and the reason in *why.
bool check(const QString &tag, QString *why);
} // namespace TagText
