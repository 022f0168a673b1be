// Reading tags one by one, strings as raw bytes under their canonical text.

#include "CInductiveDrive.h"

#include <QThread>

using Induction::SReadInfo;

CLabelVariable CInductiveDrive::PointReading(const QString &connectPar, const SReadInfo &info)
{
    if (!m_readCallback)
        return CLabelVariable();
    if (info.dataType != TYPE_STRING) {
        return m_readCallback(connectPar, info.tag, static_cast<DataType>(info.dataType), 1);
    }

    // A string is read as raw bytes under its canonical text; the analysis is
    // done once per tag and connection.
    QMap<SReadInfo, SStringPoint> &points = m_stringPoints[connectPar];
    auto known = points.find(info);
    if (known == points.end() || known->tag.isEmpty()) {
        const STagAddress address = analyseTag(info.tag, TYPE_STRING);
        SStringPoint point;
        point.tag = areaName(address.area) + QString::number(address.number);
        point.dataType = TYPE_INT8;
        point.length = tagSize(info);
        known = points.insert(info, point);
    }
    const SStringPoint point = *known; // the callback may run host events that change the cache
    return m_readCallback(connectPar, point.tag, TYPE_INT8, point.length);
}

QMap<SReadInfo, CLabelVariable> CInductiveDrive::PointReading(const QString &connectPar, const QList<SReadInfo> &infos,
                                                              const int &interval)
{
    // A negative pause has no meaning; it is taken as no pause at all.
    const unsigned long pause = interval > 0 ? static_cast<unsigned long>(interval) : 0;
    QMap<SReadInfo, CLabelVariable> records;
    for (const SReadInfo &info : infos) {
        records.insert(info, PointReading(connectPar, info));
        if (pause > 0)
            QThread::msleep(pause);
    }
    return records;
}
