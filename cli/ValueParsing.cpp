#include "ValueParsing.h"

#include "host/DataType.h"
#include "host/ValueLists.h"
#include "programs/NumberText.h"
#include "programs/TypeNames.h"

namespace {

bool parseElement(const QString &text, bool *value)
{
    const QString t = text.toLower();
    if (t == QLatin1String("1") || t == QLatin1String("true"))
        *value = true;
    else if (t == QLatin1String("0") || t == QLatin1String("false"))
        *value = false;
    else
        return false;
    return true;
}

bool parseElement(const QString &text, char *value)
{
    qint8 v = 0;
    const bool ok = NumberText::parseInteger(text, &v);
    *value = char(v);
    return ok;
}

// Every other integer type; the overloads around take bool, char and the rest.
template <typename T> bool parseElement(const QString &text, T *value)
{
    return NumberText::parseInteger(text, value);
}

// toFloat refuses what lies beyond the float range or would underflow to 0.
bool parseElement(const QString &text, float *value)
{
    bool ok = false;
    *value = text.toFloat(&ok);
    return ok;
}

bool parseElement(const QString &text, double *value)
{
    bool ok = false;
    *value = text.toDouble(&ok);
    return ok;
}

bool parseElement(const QString &text, QString *value)
{
    // The drive writes a text as Latin-1 and reads it back as UTF-8: only
    // ASCII means the same both ways ("Grüße" would come back broken).
    for (const QChar c : text)
        if (c.unicode() > 0x7F)
            return false;
    if (text.size() > ValueParsing::kLongestString)
        return false;
    *value = text;
    return true;
}

QString rangeHint(int dataType)
{
    switch (dataType) {
    case TYPE_BOOL: return QStringLiteral("0, 1, true or false");
    case TYPE_INT8: return QStringLiteral("-128 to 127");
    case TYPE_UINT8: return QStringLiteral("0 to 255");
    case TYPE_INT16: return QStringLiteral("-32768 to 32767");
    case TYPE_UINT16: return QStringLiteral("0 to 65535");
    case TYPE_INT32: return QStringLiteral("-2147483648 to 2147483647");
    case TYPE_UINT32: return QStringLiteral("0 to 4294967295");
    case TYPE_FLOAT: return QStringLiteral("a number within the float range");
    case TYPE_INT64: return QStringLiteral("-9223372036854775808 to 9223372036854775807");
    case TYPE_UINT64: return QStringLiteral("0 to 18446744073709551615");
    case TYPE_DOUBLE: return QStringLiteral("a number");
    case TYPE_STRING:
        return QStringLiteral("ASCII text of at most %1 characters; the drive reads other characters back "
                              "differently from how it writes them")
            .arg(ValueParsing::kLongestString);
    default: return QString();
    }
}

template <typename T> bool parseList(int dataType, const QStringList &texts, QVariant *list, QString *why)
{
    QList<T> values;
    values.reserve(texts.size());
    for (const QString &text : texts) {
        T value{};
        if (!parseElement(text, &value)) {
            *why =
                QStringLiteral("\"%1\" is no %2 value (%3)").arg(text, TypeNames::name(dataType), rangeHint(dataType));
            return false;
        }
        values.append(value);
    }
    *list = SorvikValues::toVariant(values);
    return true;
}

} // namespace

bool ValueParsing::parse(int dataType, const QStringList &texts, QVariant *list, QString *why)
{
    bool ok = false;
    const bool known =
        dataType >= TYPE_BOOL && dataType <= TYPE_STRING && SorvikValues::visitElementType(dataType, [&](auto element) {
            ok = parseList<typename decltype(element)::type>(dataType, texts, list, why);
        });
    if (!known)
        *why = QStringLiteral("no values for type %1").arg(dataType);
    return known && ok;
}
