#include "ValueFormatting.h"

#include "host/DataType.h"
#include "host/ValueLists.h"
#include "programs/CsvFields.h"

#include <charconv>
#include <cmath>

namespace {

template <typename F> QString shortestText(F value)
{
    char buffer[64];
    const std::to_chars_result result = std::to_chars(buffer, buffer + sizeof buffer, value);
    return QString::fromLatin1(buffer, int(result.ptr - buffer));
}

// JSON has no NaN or infinity; they travel as the texts "nan", "inf", "-inf".
template <typename F> QString jsonNumber(F value)
{
    const QString text = shortestText(value);
    return std::isfinite(value) ? text : ValueFormatting::jsonString(text);
}

void append(ValueText *out, bool value)
{
    out->texts << (value ? QStringLiteral("1") : QStringLiteral("0"));
    out->csv << out->texts.last();
    out->json << (value ? QStringLiteral("true") : QStringLiteral("false"));
}

void append(ValueText *out, const QString &value)
{
    out->texts << ValueFormatting::printable(value);
    // RFC 4180 knows no escapes: the text goes as it is, and a list of
    // several is itself a CSV line inside the (then quoted) value field.
    out->csv << CsvFields::quote(value);
    out->json << ValueFormatting::jsonString(value);
}

void append(ValueText *out, float value)
{
    out->texts << shortestText(value);
    out->csv << out->texts.last();
    out->json << jsonNumber(value);
}

void append(ValueText *out, double value)
{
    out->texts << shortestText(value);
    out->csv << out->texts.last();
    out->json << jsonNumber(value);
}

template <typename T> void append(ValueText *out, T value)
{
    // char is shown as the signed number it carries, never as a character.
    using Number = std::conditional_t<std::is_signed<T>::value, qlonglong, qulonglong>;
    const QString text = QString::number(Number(value));
    out->texts << text;
    out->csv << text;
    out->json << text;
}

template <typename T> bool appendList(const QVariant &value, ValueText *out)
{
    if (value.userType() != qMetaTypeId<QList<T>>())
        return false;
    const QList<T> list = value.value<QList<T>>();
    for (const T &element : list)
        append(out, element);
    return true;
}

// A string read one point at a time comes back as its raw bytes: the text
// runs up to the first zero byte.
QString textOfBytes(const QList<char> &bytes)
{
    QByteArray raw;
    raw.reserve(bytes.size());
    for (const char byte : bytes) {
        if (byte == '\0')
            break;
        raw.append(byte);
    }
    return QString::fromUtf8(raw);
}

} // namespace

ValueText ValueFormatting::format(const QVariant &value, int requestedType)
{
    ValueText out;
    if (!value.isValid())
        return out;
    if (requestedType == TYPE_STRING && value.userType() == qMetaTypeId<QList<char>>()) {
        append(&out, textOfBytes(value.value<QList<char>>()));
        out.csv = QStringList{textOfBytes(value.value<QList<char>>())};
        return out;
    }
    // One text is the whole field as it is; only several are a list.
    if (value.userType() == qMetaTypeId<QList<QString>>() && value.value<QList<QString>>().size() == 1) {
        append(&out, value.value<QList<QString>>().first());
        out.csv = QStringList{value.value<QList<QString>>().first()};
        return out;
    }
    appendList<bool>(value, &out) || appendList<char>(value, &out) || appendList<uchar>(value, &out) ||
        appendList<short>(value, &out) || appendList<ushort>(value, &out) || appendList<int>(value, &out) ||
        appendList<uint>(value, &out) || appendList<float>(value, &out) || appendList<qlonglong>(value, &out) ||
        appendList<qulonglong>(value, &out) || appendList<double>(value, &out) || appendList<QString>(value, &out);
    return out;
}

QString ValueFormatting::shortest(float value)
{
    return shortestText(value);
}
QString ValueFormatting::shortest(double value)
{
    return shortestText(value);
}

QString ValueFormatting::jsonString(const QString &text)
{
    QString out;
    out.reserve(text.size() + 2);
    out += QLatin1Char('"');
    for (const QChar c : text) {
        switch (c.unicode()) {
        case '"': out += QLatin1String("\\\""); break;
        case '\\': out += QLatin1String("\\\\"); break;
        case '\n': out += QLatin1String("\\n"); break;
        case '\r': out += QLatin1String("\\r"); break;
        case '\t': out += QLatin1String("\\t"); break;
        default:
            if (c.unicode() < 0x20 || c.unicode() == 0x7F)
                out += QStringLiteral("\\u%1").arg(c.unicode(), 4, 16, QLatin1Char('0'));
            else
                out += c;
        }
    }
    out += QLatin1Char('"');
    return out;
}

// Control characters from a device would move the cursor of a terminal; they
// are shown as \xNN instead.
QString ValueFormatting::printable(const QString &text)
{
    QString out;
    out.reserve(text.size());
    for (const QChar c : text) {
        if (c.unicode() < 0x20 || c.unicode() == 0x7F || (c.unicode() >= 0x80 && c.unicode() < 0xA0))
            out += QStringLiteral("\\x%1").arg(c.unicode(), 2, 16, QLatin1Char('0'));
        else if (c == QLatin1Char('\\'))
            out += QLatin1String("\\\\");
        else
            out += c;
    }
    return out;
}
