#pragma once

#include "protocol/SorvikAreas.h"

#include <QString>

// The plain form of a tag: an area prefix as the controller names it, in upper
// case (Custom as written), and an element number, e.g. AI_F12. The drive
// itself takes every digit anywhere in a tag as the element number and the
// longest known prefix at its start, so AI3_7 would address element 37 and
// SI1[20] element 120; only the plain form reaches the element it names.
namespace TagText {

// The prefixes a program takes: those the wire knows, or also SO, which only
// the planner takes.
enum class Areas { OnTheWire, AlsoPlannerOnly };

struct Parts {
    QString prefix;
    QString number;                             // the digits, not yet checked for range
    const SorvikProtocol::Area *area = nullptr; // null when the prefix names no area
};

// Splits a tag of the plain form. False with the reason in *why for any other
// form and for a known prefix in another case: the planner takes lower-case
// prefixes, but the one-tag path knows no area for them.
bool split(const QString &tag, Areas areas, Parts *parts, QString *why);

} // namespace TagText
