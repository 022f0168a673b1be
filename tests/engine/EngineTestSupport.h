#pragma once

// Helpers of the engine tests: tag lists from text, and the one-tag paths behind the callbacks.

#include "engine/CInductiveDrive.h"
#include "host/RecordStatus.h"
#include "host/ValueLists.h"

#include <QElapsedTimer>
#include <QStringList>
#include <QtTest>

namespace EngineTest {

inline Induction::SWriteInfo entry(const QString &tag, int dataType, const QVariant &value)
{
    return Induction::SWriteInfo{tag, dataType, value};
}

template <typename T> QVariant values(std::initializer_list<T> list)
{
    return SorvikValues::toVariant(QList<T>(list));
}

// Read tags from "tag/type tag/type ...".
inline QList<Induction::SReadInfo> readInfos(const QString &text)
{
    QList<Induction::SReadInfo> infos;
    for (const QString &item : text.split(' ', Qt::SkipEmptyParts))
        infos.append({item.section('/', 0, 0), item.section('/', 1).toInt()});
    return infos;
}

// Entries from "tag/type:e,e tag/type:e ...", in the value list of the type; bools are 1 and 0.
inline QList<Induction::SWriteInfo> entries(const QString &text)
{
    QList<Induction::SWriteInfo> infos;
    for (const QString &item : text.split(' ', Qt::SkipEmptyParts)) {
        const int type = item.section('/', 1).section(':', 0, 0).toInt();
        const QStringList elements = item.section(':', 1).split(',', Qt::SkipEmptyParts);
        QVariant value;
        SorvikValues::visitElementType(type, [&](auto element) {
            using T = typename decltype(element)::type;
            QList<T> list;
            for (const QString &e : elements) {
                if constexpr (std::is_same<T, QString>::value)
                    list << e;
                else if constexpr (std::is_floating_point<T>::value)
                    list << T(e.toDouble());
                else if constexpr (std::is_signed<T>::value)
                    list << T(e.toLongLong());
                else
                    list << T(e.toULongLong());
            }
            value = SorvikValues::toVariant(list);
        });
        infos << entry(item.section('/', 0, 0), type, value);
    }
    return infos;
}

inline QByteArray bytesOf(const QVariant &data)
{
    QByteArray bytes;
    for (const char byte : SorvikValues::listFrom<char>(data))
        bytes.append(byte);
    return bytes;
}

inline QStringList tagsOf(const QList<Induction::SWriteInfo> &key)
{
    QStringList tags;
    for (const Induction::SWriteInfo &info : key)
        tags << info.tag;
    return tags;
}

// A read block: "areaText start length kind: tag/type@offset:width ..."; a start
// that is not text shows as such.
inline QString describe(const SReadGroup &group)
{
    QStringList places;
    for (auto place = group.tags.cbegin(); place != group.tags.cend(); ++place)
        places << QStringLiteral("%1/%2@%3:%4")
                      .arg(place.key().tag)
                      .arg(place.key().dataType)
                      .arg(place.value().offset)
                      .arg(place.value().width);
    const QString start =
        group.start.userType() == QMetaType::QString ? group.start.toString() : QStringLiteral("<not text>");
    return QStringLiteral("%1 %2 %3 %4: %5")
        .arg(group.areaText, start)
        .arg(group.length)
        .arg(group.kind)
        .arg(places.join(' '));
}

// A write block: "tags areaText start length kind data", data in hexadecimal,
// a point as one byte 00 or 01; a data list of the wrong type shows as such.
inline QString describe(const QList<Induction::SWriteInfo> &key, const SWriteGroup &group)
{
    const bool points = group.kind == 2;
    QString data;
    if (group.data.userType() != (points ? qMetaTypeId<QList<bool>>() : qMetaTypeId<QList<char>>()))
        data = QStringLiteral("<wrong list>");
    else if (!points)
        data = QString::fromLatin1(bytesOf(group.data).toHex());
    else
        for (const bool point : SorvikValues::listFrom<bool>(group.data))
            data += point ? "01" : "00";
    const QString start =
        group.start.userType() == QMetaType::QString ? group.start.toString() : QStringLiteral("<not text>");
    return QStringLiteral("%1 %2 %3 %4 %5 %6")
        .arg(tagsOf(key).join(','), group.areaText, start)
        .arg(group.length)
        .arg(group.kind)
        .arg(data);
}

// A record: "tag/type=value", the value with its list type ("QList<short>:-2",
// a char as its number) or "invalid".
inline QString describe(const CLabelVariable &record)
{
    QString value = QStringLiteral("invalid");
    if (record.value.isValid()) {
        QStringList elements;
        for (const QVariant &element : record.value.value<QSequentialIterable>())
            elements << (element.userType() == QMetaType::Char ? QString::number(int(element.value<char>()))
                                                               : element.toString());
        value = QLatin1String(record.value.typeName()) + ':' + elements.join(',');
    }
    return QStringLiteral("%1/%2=%3").arg(record.tag).arg(record.dataType).arg(value);
}

template <typename Key> QStringList describe(const QMap<Key, CLabelVariable> &records)
{
    QStringList out;
    for (const CLabelVariable &record : records)
        out << describe(record);
    return out;
}

// Same list type and equal elements (QVariant's own == compares list handles); anything else by ==.
inline bool sameValue(const QVariant &a, const QVariant &b)
{
    if (a.userType() != b.userType())
        return false;
    return a.canConvert<QVariantList>() ? a.value<QVariantList>() == b.value<QVariantList>() : a == b;
}

// The one-tag read path of an engine: logs "tag type count", the connection and time; `answer` replies.
struct ReadPath {
    QStringList calls;
    QStringList connects;
    QList<qint64> times; // ms since made
    QElapsedTimer clock;
    std::function<CLabelVariable(const QString &tag, DataType type, int count)> answer;

    explicit ReadPath(CInductiveDrive &engine)
    {
        clock.start();
        engine.m_readCallback = [this](const QString &connectPar, const QString &tag, DataType type, int count) {
            calls << QStringLiteral("%1 %2 %3").arg(tag).arg(type).arg(count);
            connects << connectPar;
            times << clock.elapsed();
            return answer ? answer(tag, type, count) : CLabelVariable();
        };
    }
};

// The one-tag write path of an engine: Ok with a time, or the status set for the tag; a count below 1 is refused.
struct WritePath {
    struct Call {
        QString connectPar;
        QString tag;
        int type;
        QVariant value;
        int count;
    };
    QList<Call> calls;
    QHash<QString, int> statusOfTag;

    explicit WritePath(CInductiveDrive &engine)
    {
        engine.m_writeCallback = [this](const QString &connectPar, const QString &tag, DataType type, QVariant value,
                                        int count) {
            calls.append({connectPar, tag, type, value, count});
            CLabelVariable record;
            record.tag = tag;
            record.dataType = type;
            record.length = count;
            record.value = value;
            record.statusAux = 0;
            record.auxWord = 77;
            record.status = count < 1 ? RecordStatus::LengthRefused : statusOfTag.value(tag, RecordStatus::Ok);
            if (record.status == RecordStatus::Ok)
                record.time = QDateTime::currentDateTime();
            return record;
        };
    }
};

// "connectPar tag type count hex" of one write; the hex of a byte list only.
inline QString describe(const WritePath::Call &call)
{
    return QStringLiteral("%1 %2 %3 %4 %5")
        .arg(call.connectPar, call.tag)
        .arg(call.type)
        .arg(call.count)
        .arg(QString::fromLatin1(bytesOf(call.value).toHex()));
}

} // namespace EngineTest
