#include "DataMessage.h"

#include "host/RecordStatus.h"
#include "host/ValueLists.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QLocale>

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

// JSON numbers are doubles: a 64-bit integer beyond 2^53 would arrive as a
// neighbour of itself, so it goes out as its exact decimal text instead.
constexpr double kExactInteger = 9007199254740992.0;

template <typename T> QJsonValue element(const T &v)
{
    if constexpr (std::is_same_v<T, bool>) {
        return QJsonValue(v);
    } else if constexpr (std::is_same_v<T, QString>) {
        return QJsonValue(v);
    } else if constexpr (std::is_floating_point_v<T>) {
        // NaN and the infinities have no JSON number; they were read, so they
        // go out under their names rather than as a null or a zero.
        if (std::isnan(v))
            return QStringLiteral("nan");
        if (std::isinf(v))
            return v > 0 ? QStringLiteral("inf") : QStringLiteral("-inf");
        return QJsonValue(double(v));
    } else if constexpr (sizeof(T) == 8) {
        if (double(v) >= kExactInteger || (std::is_signed_v<T> && double(v) <= -kExactInteger))
            return QString::number(v);
        return QJsonValue(double(v));
    } else {
        return QJsonValue(double(v));
    }
}

// Qt's own text of one value, for what the short ways below leave out.
QByteArray qtText(const QJsonValue &value)
{
    const QByteArray array = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return array.mid(1, array.size() - 2);
}

// A string as QJsonDocument writes it: printable ASCII other than the quote
// and the backslash as it stands, anything else escaped by Qt itself.
void appendString(QByteArray &out, const QString &text)
{
    for (const QChar c : text)
        if (c.unicode() < 0x20 || c.unicode() > 0x7e || c == QLatin1Char('"') || c == QLatin1Char('\\')) {
            out += qtText(text);
            return;
        }
    out += '"';
    out += text.toLatin1();
    out += '"';
}

// A value as QJsonDocument writes it: a whole number within 2^53 as an
// integer, another finite one in its shortest form, the rest by Qt.
void appendValue(QByteArray &out, const QJsonValue &value)
{
    if (value.isDouble()) {
        const double d = value.toDouble();
        if (std::isfinite(d) && !(d == 0 && std::signbit(d))) {
            if (d != std::trunc(d)) {
                out += QByteArray::number(d, 'g', QLocale::FloatingPointShortest);
                return;
            }
            if (std::fabs(d) <= kExactInteger) {
                out += QByteArray::number(qint64(d));
                return;
            }
        }
    } else if (value.isBool()) {
        out += value.toBool() ? "true" : "false";
        return;
    } else if (value.isString()) {
        appendString(out, value.toString());
        return;
    }
    out += qtText(value);
}

} // namespace

bool DataValues::raw(const TagConfig &tag, const QVariant &list, QJsonValue *out)
{
    QJsonArray elements;
    bool typed = false;
    // A block read hands unsigned bytes over as signed chars: take them back.
    if (tag.dataType == TYPE_UINT8 && list.userType() == qMetaTypeId<QList<char>>()) {
        for (char c : SorvikValues::listFrom<char>(list))
            elements.append(double(uchar(c)));
        typed = true;
    } else if (tag.dataType == TYPE_STRING && list.userType() == qMetaTypeId<QList<char>>()) {
        // A string tag read alone comes back as the raw bytes of its block:
        // the text runs up to the first zero, as a block read cuts it.
        QByteArray bytes;
        for (char c : SorvikValues::listFrom<char>(list)) {
            if (c == 0)
                break;
            bytes.append(c);
        }
        elements.append(QString::fromUtf8(bytes));
        typed = true;
    } else if (tag.dataType == TYPE_INT8 && list.userType() == qMetaTypeId<QList<uchar>>()) {
        for (uchar c : SorvikValues::listFrom<uchar>(list))
            elements.append(double(qint8(c)));
        typed = true;
    } else {
        bool single = false;
        typed = SorvikValues::visitElementType(tag.dataType, [&](auto e) {
            using T = typename decltype(e)::type;
            if (list.userType() != qMetaTypeId<QList<T>>())
                return;
            auto json = [](const T &v) {
                if constexpr (std::is_same_v<T, char> || std::is_same_v<T, uchar>)
                    return QJsonValue(double(v));
                else
                    return element(v);
            };
            const QList<T> values = SorvikValues::listFrom<T>(list);
            // A tag of one element, the usual kind: its value without an
            // array around it, once per tag every cycle.
            if (tag.count <= 1) {
                if (!values.isEmpty()) {
                    *out = json(values.first());
                    single = true;
                }
                return;
            }
            for (const T &v : values)
                elements.append(json(v));
        });
        if (single)
            return true;
    }
    // Too few elements, or a list of another type: nothing of it is passed on.
    if (!typed || elements.size() < qMax(1, tag.count))
        return false;
    if (tag.count <= 1) {
        *out = elements.first();
    } else {
        while (elements.size() > tag.count)
            elements.removeLast();
        *out = elements;
    }
    return true;
}

bool DataValues::isScaled(const TagConfig &tag)
{
    return (tag.scale || tag.offset) && tag.dataType != TYPE_BOOL && tag.dataType != TYPE_STRING;
}

QJsonValue DataValues::scaled(const TagConfig &tag, const QJsonValue &raw)
{
    if (!isScaled(tag))
        return raw;
    const double scale = tag.scale.value_or(1.0);
    const double offset = tag.offset.value_or(0.0);
    auto one = [&](const QJsonValue &v) -> QJsonValue {
        // A 64-bit value sent as text, or a NaN, stays as it is: its scaled
        // form would not be exact or not be a number.
        if (!v.isDouble())
            return v;
        const double result = v.toDouble() * scale + offset;
        return std::isfinite(result) ? QJsonValue(result) : QJsonValue(QString::number(result));
    };
    if (!raw.isArray())
        return one(raw);
    QJsonArray out;
    for (const QJsonValue &v : raw.toArray())
        out.append(one(v));
    return out;
}

DataStream::DataStream(const QString &gateway, const QString &controller, const ScanGroupConfig &group, qint64 bootMs)
    : m_gateway(gateway), m_controller(controller), m_group(group), m_boot(bootMs)
{
    for (int i = 0; i < m_group.tags.size(); ++i)
        m_byName.push_back(i);
    std::stable_sort(m_byName.begin(), m_byName.end(),
                     [this](int a, int b) { return m_group.tags.at(a).name < m_group.tags.at(b).name; });
    for (const TagConfig &tag : qAsConst(m_group.tags)) {
        QByteArray key;
        appendString(key, tag.name);
        m_keys.push_back(key + ':');
        QByteArray unit;
        if (!tag.unit.isEmpty()) {
            unit = "\"unit\":";
            appendString(unit, tag.unit);
            unit += ',';
        }
        m_units.push_back(unit);
    }
    appendString(m_controllerText, m_controller);
    m_gatewayAndGroup = "\"gateway\":";
    appendString(m_gatewayAndGroup, m_gateway);
    m_gatewayAndGroup += ",\"group\":";
    appendString(m_gatewayAndGroup, m_group.name);
}

bool DataStream::withinDeadband(int index, const QJsonValue &value) const
{
    const TagConfig &tag = m_group.tags.at(index);
    if (tag.deadband <= 0 || !value.isDouble() || !m_lastSent.contains(index))
        return false;
    return std::fabs(value.toDouble() - m_lastSent.value(index)) < tag.deadband;
}

QByteArray DataStream::message(const QDateTime &cycleStart, const std::vector<TagReading> &readings)
{
    // A tag with no reading at all was not read: bad, never a value.
    static const TagReading notRead = TagReading::bad(RecordStatus::NotDone);
    // Written as text in the form QJsonDocument gives (keys in order, the
    // same numbers and escapes): a thousand small JSON objects per cycle
    // and controller cost more than the reading itself.
    QByteArray values;
    QByteArray errors;
    values.reserve(32 * int(m_byName.size()));
    auto addError = [&](int index, int status, const QString &meaning) {
        if (!errors.isEmpty())
            errors += ',';
        errors += m_keys[size_t(index)];
        errors += "{\"meaning\":";
        appendString(errors, meaning);
        errors += ",\"status\":";
        errors += QByteArray::number(status);
        errors += '}';
    };
    for (int i : m_byName) {
        const TagConfig &tag = m_group.tags.at(i);
        // Referenced, not copied: this runs for every tag of every cycle.
        const TagReading &reading = size_t(i) < readings.size() ? readings[size_t(i)] : notRead;
        QJsonValue raw;
        if (reading.status == RecordStatus::Ok && !DataValues::raw(tag, reading.value, &raw)) {
            addError(i, RecordStatus::Ok, QStringLiteral("the reply held no value of this type"));
            m_lastSent.remove(i);
            continue;
        }
        if (reading.status != RecordStatus::Ok) {
            addError(i, reading.status,
                     reading.meaning.isEmpty() ? QString::fromLatin1(RecordStatus::meaning(reading.status))
                                               : reading.meaning);
            m_lastSent.remove(i);
            continue;
        }
        const QJsonValue value = DataValues::scaled(tag, raw);
        if (withinDeadband(i, value))
            continue;
        if (value.isDouble())
            m_lastSent.insert(i, value.toDouble());
        if (!values.isEmpty())
            values += ',';
        values += m_keys[size_t(i)];
        values += '{';
        if (DataValues::isScaled(tag)) {
            values += "\"raw\":";
            appendValue(values, raw);
            values += ',';
        }
        values += m_units[size_t(i)];
        values += "\"value\":";
        appendValue(values, value);
        values += '}';
    }
    QByteArray message;
    message.reserve(values.size() + errors.size() + 256);
    message += "{\"boot\":";
    appendValue(message, double(m_boot));
    message += ",\"controller\":";
    message += m_controllerText;
    message += ",\"errors\":{";
    message += errors;
    message += "},";
    message += m_gatewayAndGroup;
    message += ",\"seq\":";
    appendValue(message, double(++m_seq));
    message += ",\"time\":";
    appendString(message, cycleStart.toUTC().toString(Qt::ISODateWithMs));
    message += ",\"values\":{";
    message += values;
    message += "}}";
    return message;
}
