// The engine's two roads to the device, and the one-line forwards of the
// tag-list operations of the interface.

#include "LibSorvik.h"

using namespace Induction;

CLabelVariable LibSorvik::ReadForEngine(const QString &connectPar, const QString &tag, DataType type, int count)
{
    SetConnectPar(connectPar);
    return ReadVariable(tag, type, count);
}

CLabelVariable LibSorvik::WriteForEngine(const QString &connectPar, const QString &tag, DataType type,
                                         QVariant value, int count)
{
    SetConnectPar(connectPar);
    CLabelVariable record;
    record.tag = tag;
    record.dataType = type;
    record.length = count;
    record.value = value;
    return WriteVariable(tag, type, record, count);
}

void LibSorvik::SetInductionParam(const EInductionFun &fun, const EInductionType &type, const int &value)
{
    m_engine.SetInductionParam(fun, type, value);
}

QList<QList<SReadInfo>> LibSorvik::InductiveDrive_Read(const QString &connectPar, const QList<SReadInfo> &infos)
{
    return m_engine.InductiveDrive_Read(connectPar, infos);
}

QList<QList<SReadInfo>> LibSorvik::InductiveDrive_Read(const QString &connectPar,
                                                       const QList<SReadInfo_manual> &blocks)
{
    return m_engine.InductiveDrive_Read(connectPar, blocks);
}

void LibSorvik::DelInductiveDrive_Read(const QString &connectPar)
{
    m_engine.DelInductiveDrive_Read(connectPar);
}

void LibSorvik::DelInductiveDrive_Read(const QString &connectPar, const QList<SReadInfo> &group)
{
    m_engine.DelInductiveDrive_Read(connectPar, group);
}

void LibSorvik::DelCannotInductiveDrive_Read(const QString &connectPar)
{
    m_engine.DelCannotInductiveDrive_Read(connectPar);
}

QMap<QList<SReadInfo>, SReadGroup> LibSorvik::GetInductiveDrive_Read(const QString &connectPar)
{
    return m_engine.GetInductiveDrive_Read(connectPar);
}

SReadGroup LibSorvik::GetInductiveDrive_Read(const QString &connectPar, const QList<SReadInfo> &group)
{
    return m_engine.GetInductiveDrive_Read(connectPar, group);
}

QList<SReadInfo> LibSorvik::GetCannotInductiveDrive_Read(const QString &connectPar)
{
    return m_engine.GetCannotInductiveDrive_Read(connectPar);
}

QMap<SReadInfo, CLabelVariable> LibSorvik::BlockReading(const QString &connectPar, const QList<SReadInfo> &group)
{
    return m_engine.BlockReading(connectPar, group);
}

QMap<SReadInfo, CLabelVariable> LibSorvik::PointReading(const QString &connectPar, const QList<SReadInfo> &infos,
                                                        const int &interval)
{
    return m_engine.PointReading(connectPar, infos, interval);
}

CLabelVariable LibSorvik::PointReading(const QString &connectPar, const SReadInfo &info)
{
    return m_engine.PointReading(connectPar, info);
}

QList<QList<SWriteInfo>> LibSorvik::InductiveDrive_Write(const QString &connectPar, const QList<SWriteInfo> &infos)
{
    return m_engine.InductiveDrive_Write(connectPar, infos);
}

QMap<QList<SWriteInfo>, SWriteGroup> LibSorvik::GetInductiveDrive_Write(const QString &connectPar)
{
    return m_engine.GetInductiveDrive_Write(connectPar);
}

SWriteGroup LibSorvik::GetInductiveDrive_Write(const QString &connectPar, const QList<SWriteInfo> &group)
{
    return m_engine.GetInductiveDrive_Write(connectPar, group);
}

QList<SWriteInfo> LibSorvik::GetCannotInductiveDrive_Write(const QString &connectPar)
{
    return m_engine.GetCannotInductiveDrive_Write(connectPar);
}

QMap<SWriteInfo, CLabelVariable> LibSorvik::BlockWriting(const QString &connectPar, const QList<SWriteInfo> &group)
{
    return m_engine.BlockWriting(connectPar, group);
}

QMap<SWriteInfo, CLabelVariable> LibSorvik::PointWriting(const QString &connectPar, const QList<SWriteInfo> &infos,
                                                         const int &interval)
{
    return m_engine.PointWriting(connectPar, infos, interval);
}

CLabelVariable LibSorvik::PointWriting(const QString &connectPar, const SWriteInfo &info)
{
    return m_engine.PointWriting(connectPar, info);
}
