#include "NumberText.h"

bool NumberText::parseMagnitude(const QString &text, bool negativeAllowed, bool *negative, qulonglong *magnitude)
{
    QString digits = text;
    *negative = digits.startsWith(QLatin1Char('-'));
    if (*negative && !negativeAllowed)
        return false;
    if (*negative || digits.startsWith(QLatin1Char('+')))
        digits.remove(0, 1);
    if (digits.isEmpty() || digits.at(0) == QLatin1Char('-') || digits.at(0) == QLatin1Char('+'))
        return false;
    // QString's own conversions would let blanks around the digits pass.
    for (const QChar c : digits)
        if (c.isSpace())
            return false;
    bool ok = false;
    if (digits.startsWith(QLatin1String("0x"), Qt::CaseInsensitive))
        *magnitude = digits.size() > 2 ? digits.mid(2).toULongLong(&ok, 16) : 0;
    else
        *magnitude = digits.toULongLong(&ok, 10);
    return ok;
}

bool NumberText::parseWhole(const QString &text, qlonglong low, qlonglong high, qlonglong *value)
{
    qlonglong number = 0;
    if (!parseInteger(text, &number) || number < low || number > high)
        return false;
    *value = number;
    return true;
}

bool NumberText::parseShare(const QString &text, double *value)
{
    bool ok = false;
    const double share = text.toDouble(&ok);
    if (!ok || !(share >= 0.0 && share <= 1.0)) // the negated form refuses NaN too
        return false;
    *value = share;
    return true;
}
