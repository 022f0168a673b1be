// Writing tags one by one, strings as fixed-length byte runs.

#include "CInductiveDrive.h"

#include "../host/ValueLists.h"
#include "WriteBytes.h"

#include <QThread>

using Induction::SWriteInfo;

CLabelVariable CInductiveDrive::PointWriting(const QString &connectPar, const SWriteInfo &info)
{
    if (!m_writeCallback)
        return CLabelVariable();
    CLabelVariable result;
    if (info.dataType != TYPE_STRING) {
        // One element, whatever the list holds.
        result = m_writeCallback(connectPar, info.tag, static_cast<DataType>(info.dataType), info.value, 1);
        return result;
    }
    // A string goes out as a fixed-length Int8 run under its canonical tag
    // text; a tag that fits no pattern becomes "UNKNOW-1", which the write
    // path refuses.
    const int size = tagSize(info);
    const STagAddress address = analyseTag(info.tag, info.dataType);
    const QString tag = areaName(address.area) + QString::number(address.number);
    for (const QString &text : SorvikValues::listFrom<QString>(info.value)) {
        const QVariant bytes = SorvikValues::toVariant(WriteBytes::charList(WriteBytes::fixedLatin1(text, size)));
        result = m_writeCallback(connectPar, tag, TYPE_INT8, bytes, size);
    }
    return result;
}

QMap<SWriteInfo, CLabelVariable> CInductiveDrive::PointWriting(const QString &connectPar,
                                                               const QList<SWriteInfo> &infos, const int &interval)
{
    // A negative pause would become a very long one: it counts as none.
    const unsigned long pause = interval > 0 ? static_cast<unsigned long>(interval) : 0;
    QMap<SWriteInfo, CLabelVariable> results;
    for (const SWriteInfo &info : infos) {
        results[info] = PointWriting(connectPar, info); // a repeated entry keeps its place, gets the new record
        QThread::msleep(pause);
    }
    return results;
}
