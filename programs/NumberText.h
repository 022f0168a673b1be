#pragma once

#include <QString>

#include <limits>
#include <type_traits>

// Numbers as the programs take them from options, tag texts and value lists.
// Parsing is strict: no blanks, and a number outside the range is refused,
// never cut down to fit.
namespace NumberText {

// Decimal, or hexadecimal after 0x; "+" is allowed, "-" only where
// `negativeAllowed`. Gives the sign and the magnitude.
bool parseMagnitude(const QString &text, bool negativeAllowed, bool *negative, qulonglong *magnitude);

// A value of the integer type T, e.g. -128 to 127 or 0x00 to 0xFF for an 8-bit one.
template <typename T> bool parseInteger(const QString &text, T *value)
{
    static_assert(std::is_integral_v<T>);
    bool negative = false;
    qulonglong magnitude = 0;
    if (!parseMagnitude(text, std::is_signed_v<T>, &negative, &magnitude))
        return false;
    if (negative) {
        const qulonglong limit = qulonglong(std::numeric_limits<T>::max()) + 1; // magnitude of the minimum
        if (magnitude > limit)
            return false;
        *value = magnitude == limit ? std::numeric_limits<T>::min() : T(-qlonglong(magnitude));
        return true;
    }
    if (magnitude > qulonglong(std::numeric_limits<T>::max()))
        return false;
    *value = T(magnitude);
    return true;
}

// A whole number from `low` to `high`.
bool parseWhole(const QString &text, qlonglong low, qlonglong high, qlonglong *value);

// A share from 0 to 1, such as 0.25.
bool parseShare(const QString &text, double *value);

} // namespace NumberText
