#include "DataMessage.h"

#include "host/RecordStatus.h"
#include "host/ValueLists.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

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
        typed = SorvikValues::visitElementType(tag.dataType, [&](auto e) {
            using T = typename decltype(e)::type;
            if (list.userType() != qMetaTypeId<QList<T>>())
                return;
            for (const T &v : SorvikValues::listFrom<T>(list)) {
                if constexpr (std::is_same_v<T, char>)
                    elements.append(double(v));
                else if constexpr (std::is_same_v<T, uchar>)
                    elements.append(double(v));
                else
                    elements.append(element(v));
            }
        });
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
    QJsonObject values;
    QJsonObject errors;
    for (int i = 0; i < m_group.tags.size(); ++i) {
        const TagConfig &tag = m_group.tags.at(i);
        // Referenced, not copied: this runs for every tag of every cycle.
        const TagReading &reading = size_t(i) < readings.size() ? readings[size_t(i)] : notRead;
        QJsonValue raw;
        if (reading.status == RecordStatus::Ok && !DataValues::raw(tag, reading.value, &raw)) {
            errors.insert(tag.name, QJsonObject{{QStringLiteral("status"), RecordStatus::Ok},
                                                {QStringLiteral("meaning"),
                                                 QStringLiteral("the reply held no value of this type")}});
            m_lastSent.remove(i);
            continue;
        }
        if (reading.status != RecordStatus::Ok) {
            const QString meaning = reading.meaning.isEmpty()
                                        ? QString::fromLatin1(RecordStatus::meaning(reading.status))
                                        : reading.meaning;
            errors.insert(tag.name, QJsonObject{{QStringLiteral("status"), reading.status},
                                                {QStringLiteral("meaning"), meaning}});
            m_lastSent.remove(i);
            continue;
        }
        const QJsonValue value = DataValues::scaled(tag, raw);
        if (withinDeadband(i, value))
            continue;
        if (value.isDouble())
            m_lastSent.insert(i, value.toDouble());
        QJsonObject entry{{QStringLiteral("value"), value}};
        if (!tag.unit.isEmpty())
            entry.insert(QStringLiteral("unit"), tag.unit);
        if (DataValues::isScaled(tag))
            entry.insert(QStringLiteral("raw"), raw);
        values.insert(tag.name, entry);
    }
    const QJsonObject message{
        {QStringLiteral("gateway"), m_gateway},
        {QStringLiteral("controller"), m_controller},
        {QStringLiteral("group"), m_group.name},
        {QStringLiteral("boot"), double(m_boot)},
        {QStringLiteral("seq"), double(++m_seq)},
        {QStringLiteral("time"), cycleStart.toUTC().toString(Qt::ISODateWithMs)},
        {QStringLiteral("values"), values},
        {QStringLiteral("errors"), errors},
    };
    return QJsonDocument(message).toJson(QJsonDocument::Compact);
}
