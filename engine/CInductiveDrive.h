#pragma once

// The engine for tag lists: grouped reads and writes planned and carried out.

#include "../host/CLabelVariable.h"
#include "../host/DataType.h"
#include "../host/InductionRecords.h"
#include "EngineAreas.h"

#include <QHash>
#include <QList>
#include <QMap>
#include <QRegularExpression>
#include <QString>
#include <QVariant>

#include <functional>

// What the analysis of a tag text yields; all fields blank for a refused tag.
struct STagAddress {
    QString areaText;                // the prefix as the tag spells it
    int area = EngineAreas::kNoArea; // the engine's key of the area
    int number = -1;                 // 1..32767
    int bit = -1;                    // no pattern carries a bit
    int length = 0;                  // byte size by dataType

    bool isBlank() const
    {
        return area == EngineAreas::kNoArea && number == -1 && bit == -1 && length == 0 && areaText.isEmpty();
    }
};

// The remembered road of one string tag: read as raw bytes under its canonical text.
struct SStringPoint {
    QString tag;
    int dataType = TYPE_INT8;
    int length = 0;
};

// Plans grouped reads and writes of tag lists and carries them out through
// two callbacks; it never touches the link itself, so it runs against any
// pair of callbacks. State is public so that hosts and tests can look at it.
//
// Where the operations live: analysis, sizes and limits in CInductiveDrive.cpp;
// InductiveDrive_Read in ReadPlanning.cpp, the Get/Del of read plans in
// ReadQueries.cpp, BlockReading and PointReading in BlockReading.cpp and
// PointReading.cpp; InductiveDrive_Write in WritePlanning.cpp, the Get of write
// plans in WriteQueries.cpp, BlockWriting and PointWriting in BlockWriting.cpp
// and PointWriting.cpp.
class CInductiveDrive
{
public:
    using ReadCallback =
        std::function<CLabelVariable(const QString &connectPar, const QString &tag, DataType type, int count)>;
    using WriteCallback = std::function<CLabelVariable(const QString &connectPar, const QString &tag, DataType type,
                                                       QVariant value, int count)>;
    using ReadPlan = QMap<QList<Induction::SReadInfo>, SReadGroup>;
    using WritePlan = QMap<QList<Induction::SWriteInfo>, SWriteGroup>;

    CInductiveDrive();

    // Analysis and sizes.
    STagAddress analyseTag(const QString &tag, int dataType) const;
    int tagSize(const Induction::SReadInfo &info) const;
    int tagSize(const Induction::SWriteInfo &info) const;
    int tagOffset(const QString &tag, int start, int dataType) const;
    int areaCode(const QString &name) const;
    QString areaName(int code) const;
    void SetInductionParam(const Induction::EInductionFun &fun, const Induction::EInductionType &type,
                           const int &value);

    // Read side.
    QList<QList<Induction::SReadInfo>> InductiveDrive_Read(const QString &connectPar,
                                                           const QList<Induction::SReadInfo> &infos);
    QList<QList<Induction::SReadInfo>> InductiveDrive_Read(const QString &connectPar,
                                                           const QList<Induction::SReadInfo_manual> &blocks);
    QMap<Induction::SReadInfo, CLabelVariable> BlockReading(const QString &connectPar,
                                                            const QList<Induction::SReadInfo> &group);
    CLabelVariable PointReading(const QString &connectPar, const Induction::SReadInfo &info);
    QMap<Induction::SReadInfo, CLabelVariable>
    PointReading(const QString &connectPar, const QList<Induction::SReadInfo> &infos, const int &interval);
    void DelInductiveDrive_Read(const QString &connectPar);
    void DelInductiveDrive_Read(const QString &connectPar, const QList<Induction::SReadInfo> &group);
    void DelCannotInductiveDrive_Read(const QString &connectPar);
    ReadPlan GetInductiveDrive_Read(const QString &connectPar);
    SReadGroup GetInductiveDrive_Read(const QString &connectPar, const QList<Induction::SReadInfo> &group);
    QList<Induction::SReadInfo> GetCannotInductiveDrive_Read(const QString &connectPar);

    // Write side.
    QList<QList<Induction::SWriteInfo>> InductiveDrive_Write(const QString &connectPar,
                                                             const QList<Induction::SWriteInfo> &infos);
    QMap<Induction::SWriteInfo, CLabelVariable> BlockWriting(const QString &connectPar,
                                                             const QList<Induction::SWriteInfo> &group);
    CLabelVariable PointWriting(const QString &connectPar, const Induction::SWriteInfo &info);
    QMap<Induction::SWriteInfo, CLabelVariable>
    PointWriting(const QString &connectPar, const QList<Induction::SWriteInfo> &infos, const int &interval);
    WritePlan GetInductiveDrive_Write(const QString &connectPar);
    SWriteGroup GetInductiveDrive_Write(const QString &connectPar, const QList<Induction::SWriteInfo> &group);
    QList<Induction::SWriteInfo> GetCannotInductiveDrive_Write(const QString &connectPar);

    ReadCallback m_readCallback;
    WriteCallback m_writeCallback;
    QMap<int, QRegularExpression> m_areaPatterns;
    QMap<QString, ReadPlan> m_readPlans;
    QMap<QString, WritePlan> m_writePlans;
    QMap<QString, QList<Induction::SReadInfo>> m_cannotRead;
    QMap<QString, QList<Induction::SWriteInfo>> m_cannotWrite;
    QMap<QString, QMap<Induction::SReadInfo, SStringPoint>> m_stringPoints;
    qint32 m_readPointLimit = 1280;
    qint32 m_readByteLimit = 160;
    qint32 m_writePointLimit = 1280;
    qint32 m_writeByteLimit = 160;

private:
    int tagSize(const QString &tag, int dataType) const;
    QHash<QString, int> m_prefixCodes; // both spellings of every area name, for picking the one pattern to try
};
