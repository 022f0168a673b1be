#include "SimPresets.h"

#include "SimMemory.h"
#include "link/SorvikProtocol.h"
#include "programs/CsvFields.h"
#include "programs/NumberText.h"

#include <QStringList>
#include <QtEndian>

#include <type_traits>

namespace {

namespace P = SorvikProtocol;

template <typename U> void appendBytes(QByteArray *out, U bits, bool bigEndian)
{
    uchar bytes[sizeof(U)];
    if (bigEndian)
        qToBigEndian(bits, bytes);
    else
        qToLittleEndian(bits, bytes);
    out->append(reinterpret_cast<const char *>(bytes), int(sizeof(U)));
}

template <typename T, bool BigEndian = false> bool encodeInteger(const QString &text, QByteArray *out)
{
    T value = 0;
    if (!NumberText::parseInteger(text.trimmed(), &value))
        return false;
    appendBytes(out, std::make_unsigned_t<T>(value), BigEndian);
    return true;
}

bool encodeBool(const QString &text, QByteArray *out)
{
    const QString t = text.trimmed().toLower();
    if (t == QLatin1String("1") || t == QLatin1String("true"))
        out->append('\1');
    else if (t == QLatin1String("0") || t == QLatin1String("false"))
        out->append('\0');
    else
        return false;
    return true;
}

bool encodeFloat(const QString &text, QByteArray *out)
{
    bool ok = false;
    appendBytes(out, text.trimmed().toFloat(&ok), false);
    return ok;
}

bool encodeDouble(const QString &text, QByteArray *out)
{
    bool ok = false;
    appendBytes(out, text.trimmed().toDouble(&ok), false);
    return ok;
}

struct ValueType {
    const char *name;
    bool (*encode)(const QString &, QByteArray *);
};

// Strings are laid out by area and have no entry here.
constexpr ValueType kTypes[] = {
    {"bool", encodeBool},
    {"int8", encodeInteger<qint8>},
    {"uint8", encodeInteger<quint8>},
    {"int16", encodeInteger<qint16>},
    {"uint16", encodeInteger<quint16>},
    {"int32", encodeInteger<qint32>},
    {"uint32", encodeInteger<quint32>},
    {"float", encodeFloat},
    {"int64", encodeInteger<qint64>},
    {"uint64", encodeInteger<quint64>},
    {"double", encodeDouble},
    {"int64be", encodeInteger<qint64, true>},
    {"uint64be", encodeInteger<quint64, true>},
};

const ValueType *findType(const QString &name)
{
    for (const ValueType &type : kTypes)
        if (name == QLatin1String(type.name))
            return &type;
    return nullptr;
}

const P::Area *findArea(const QString &tag)
{
    for (const P::Area &area : P::kAreas)
        if (tag.startsWith(QLatin1String(area.prefix)))
            return &area;
    return nullptr;
}

// A read hands on a string's length byte as a signed count, so 127 bytes is
// the longest text that can come back; longer texts are refused, not cut.
constexpr int kLongestString = 127;

bool appendString(const QString &text, bool asBlock, QByteArray *out, QString *why)
{
    for (const QChar c : text)
        if (c.unicode() > 0xFF) {
            *why = QStringLiteral("\"%1\" has characters outside Latin-1").arg(text);
            return false;
        }
    const QByteArray latin1 = text.toLatin1();
    if (latin1.size() > kLongestString) {
        *why = QStringLiteral("a string of %1 bytes is longer than %2").arg(latin1.size()).arg(kLongestString);
        return false;
    }
    const int start = out->size();
    out->append(char(latin1.size()));
    out->append(latin1);
    if (asBlock)
        out->append(start + P::kStringBlock - out->size(), '\0');
    return true;
}

// A bit area holds one byte per bit: bit k of each value byte becomes a byte 0 or 1.
QByteArray spreadBits(const QByteArray &bytes)
{
    QByteArray bits;
    bits.reserve(bytes.size() * 8);
    for (const char byte : bytes)
        for (int k = 0; k < 8; ++k)
            bits.append(char((quint8(byte) >> k) & 1));
    return bits;
}

bool fail(QString *error, const QString &assignment, const QString &why)
{
    if (error)
        *error = QStringLiteral("%1: %2").arg(assignment, why);
    return false;
}

} // namespace

bool SimPresets::parse(const QString &assignment, SimPreset *out, QString *error)
{
    const int equals = assignment.indexOf(QLatin1Char('='));
    const int colon = assignment.indexOf(QLatin1Char(':'), equals + 1);
    if (equals < 0 || colon < 0)
        return fail(error, assignment, QStringLiteral("expected TAG=TYPE:VALUE"));
    const QString tag = assignment.left(equals).trimmed();
    const QString typeName = assignment.mid(equals + 1, colon - equals - 1).trimmed().toLower();
    QStringList values;
    QString why;
    // Split as sorvik-cli splits its value lists, so that one text means the same to both.
    if (!CsvFields::split(assignment.mid(colon + 1), &values, &why))
        return fail(error, assignment, why);

    const P::Area *area = findArea(tag);
    if (!area)
        return fail(error, assignment, QStringLiteral("no area prefix in tag \"%1\"").arg(tag));
    const QString number = tag.mid(int(qstrlen(area->prefix)));
    bool numeric = !number.isEmpty();
    for (const QChar c : number)
        numeric = numeric && c >= QLatin1Char('0') && c <= QLatin1Char('9');
    const uint element = numeric ? number.toUInt(&numeric) : 0;
    if (!numeric || element == 0)
        return fail(error, assignment, QStringLiteral("tag \"%1\" needs an element number from 1").arg(tag));

    QByteArray bytes;
    if (typeName == QLatin1String("string")) {
        for (const QString &value : values)
            if (!appendString(value, area->code == P::kStringArea, &bytes, &why))
                return fail(error, assignment, why);
    } else if (const ValueType *type = findType(typeName)) {
        for (const QString &value : values)
            if (!type->encode(value, &bytes))
                return fail(error, assignment, QStringLiteral("\"%1\" is no %2 value").arg(value, typeName));
    } else {
        return fail(error, assignment, QStringLiteral("unknown type \"%1\"").arg(typeName));
    }
    if (P::isBitArea(area->code) && typeName != QLatin1String("bool"))
        bytes = spreadBits(bytes);

    const qint64 address = qint64(element - 1) * P::addressFactor(area->code);
    const int regionSize = SimMemory::regionSizeOf(area->code);
    if (address + bytes.size() > regionSize)
        return fail(error, assignment,
                    QStringLiteral("%1 bytes at address %2 lie beyond area %3 (%4 bytes)")
                        .arg(bytes.size())
                        .arg(address)
                        .arg(area->prefix)
                        .arg(regionSize));
    *out = {area->code, int(address), bytes};
    return true;
}
