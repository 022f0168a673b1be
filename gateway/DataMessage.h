#pragma once

// The data message of one scan group and cycle, and what a value looks like
// in it: good values by name (scaled ones with their unit and the raw value
// beside), bad tags with the status and its meaning and never a value.
//
//   {"gateway":G,"controller":C,"group":N,"boot":ms,"seq":n,"time":"…Z",
//    "values":{NAME:{"value":v,"unit":u,"raw":r}},
//    "errors":{NAME:{"status":s,"meaning":"…"}}}
#include "GatewayConfig.h"
#include "host/RecordStatus.h"

#include <QByteArray>
#include <QDateTime>
#include <QHash>
#include <QJsonValue>
#include <QList>
#include <QString>
#include <QVariant>

#include <utility>
#include <vector>

// What one cycle gave for one configured tag.
struct TagReading {
    int status = RecordStatus::NotDone; // the record's status; Ok and only Ok is good
    QString meaning;                    // of a bad status; empty: the drive's own meaning of it
    QVariant value;                     // the drive's value list; looked at only when status is 0

    static TagReading good(QVariant value) { return {RecordStatus::Ok, QString(), std::move(value)}; }
    static TagReading bad(int status, const QString &meaning = QString()) { return {status, meaning, QVariant()}; }
};

namespace DataValues {

// The raw value of a tag as JSON: a scalar for a count of 1, else an array
// of exactly `count` elements. False when the list does not hold what the
// tag's type and count need (the value is then not passed on).
bool raw(const TagConfig &tag, const QVariant &list, QJsonValue *out);
// `raw` in engineering units: raw * scale + offset for numbers of a tag with
// a scale or offset; bools and texts are never scaled.
QJsonValue scaled(const TagConfig &tag, const QJsonValue &raw);
bool isScaled(const TagConfig &tag);

} // namespace DataValues

// One stream: the data messages of one group of one controller, numbered
// from 1 per boot of the gateway. Tag names are unique within the group, as
// the configuration check makes them.
class DataStream
{
public:
    DataStream(const QString &gateway, const QString &controller, const ScanGroupConfig &group, qint64 bootMs);

    // The message of a cycle that started at `cycleStart`; `readings` runs
    // parallel to the group's tags.
    QByteArray message(const QDateTime &cycleStart, const std::vector<TagReading> &readings);
    qint64 lastSeq() const { return m_seq; }
    // Forget the values last sent, so that the next good ones go out whatever
    // their deadband (after a loss of the link, for instance).
    void resetDeadband() { m_lastSent.clear(); }

private:
    bool withinDeadband(int index, const QJsonValue &value) const;

    QString m_gateway;
    QString m_controller;
    ScanGroupConfig m_group;
    qint64 m_boot;
    qint64 m_seq = 0;
    QHash<int, double> m_lastSent; // engineering value last published, by tag index
    // Written once per stream: the tags in the order of their names (the
    // order JSON objects keep their keys in), each name as a key and each
    // unit as a member, ready to be copied into every message.
    std::vector<int> m_byName;
    std::vector<QByteArray> m_keys;
    std::vector<QByteArray> m_units;
    QByteArray m_controllerText;
    QByteArray m_gatewayAndGroup;
};
