#pragma once

// Everything a host needs to load and call a drive: the interface, the value
// record, the element types and the records of grouped reading and writing.
//
//   QLibrary lib("libSorvik.so");
//   auto make = reinterpret_cast<GetSharedLibraryFunction>(lib.resolve("getSharedLibrary"));
//   CDriveBaseClass *drive = make();
//   drive->ConnectDrive("127.0.0.1:6000");
//   CLabelVariable v = drive->ReadVariable("AI1", TYPE_INT32, 1);

#include "CLabelVariable.h"
#include "DataType.h"
#include "InductionRecords.h"
#include "SorvikExport.h"

#include <QList>
#include <QMap>
#include <QString>

#include <functional>

class CDriveBaseClass
{
public:
    virtual QString getDriveName() = 0;                                                   // 0
    virtual QString getversion_number() = 0;                                              // 1
    virtual QString DebugCmd(EDebugCmdType cmd) = 0;                                      // 2
    virtual int ConnectDrive(QString text) = 0;                                           // 3
    virtual void SetConnectPar(QString text) = 0;                                         // 4
    virtual int DisConnectDrive() = 0;                                                    // 5
    virtual CLabelVariable ReadVariable(QString tag, DataType type) = 0;                  // 6
    virtual CLabelVariable ReadVariable(QString tag, DataType type, int count) = 0;       // 7
    virtual CLabelVariable WriteVariable(QString tag, DataType type, CLabelVariable label) = 0; // 8
    virtual CLabelVariable WriteVariable(QString tag, DataType type, CLabelVariable label,
                                         int count) = 0;                                  // 9
    virtual int DestroyFree() = 0;                                                        // 10

    virtual void SetInductionParam(const Induction::EInductionFun &fun,
                                   const Induction::EInductionType &type, const int &value) = 0; // 11
    virtual QList<QList<Induction::SReadInfo>>
    InductiveDrive_Read(const QString &connectPar, const QList<Induction::SReadInfo> &infos) = 0; // 12
    virtual QList<QList<Induction::SReadInfo>>
    InductiveDrive_Read(const QString &connectPar,
                        const QList<Induction::SReadInfo_manual> &blocks) = 0;          // 13
    virtual void DelInductiveDrive_Read(const QString &connectPar) = 0;                 // 14
    virtual void DelInductiveDrive_Read(const QString &connectPar,
                                        const QList<Induction::SReadInfo> &group) = 0;  // 15
    virtual void DelCannotInductiveDrive_Read(const QString &connectPar) = 0;           // 16
    virtual QMap<QList<Induction::SReadInfo>, SReadGroup>
    GetInductiveDrive_Read(const QString &connectPar) = 0;                               // 17
    virtual SReadGroup GetInductiveDrive_Read(const QString &connectPar,
                                              const QList<Induction::SReadInfo> &group) = 0; // 18
    virtual QList<Induction::SReadInfo> GetCannotInductiveDrive_Read(const QString &connectPar) = 0; // 19
    virtual QMap<Induction::SReadInfo, CLabelVariable>
    BlockReading(const QString &connectPar, const QList<Induction::SReadInfo> &group) = 0; // 20
    virtual QMap<Induction::SReadInfo, CLabelVariable>
    PointReading(const QString &connectPar, const QList<Induction::SReadInfo> &infos,
                 const int &interval) = 0;                                               // 21
    virtual CLabelVariable PointReading(const QString &connectPar,
                                        const Induction::SReadInfo &info) = 0;           // 22
    virtual QList<QList<Induction::SWriteInfo>>
    InductiveDrive_Write(const QString &connectPar, const QList<Induction::SWriteInfo> &infos) = 0; // 23
    virtual QMap<QList<Induction::SWriteInfo>, SWriteGroup>
    GetInductiveDrive_Write(const QString &connectPar) = 0;                              // 24
    virtual SWriteGroup GetInductiveDrive_Write(const QString &connectPar,
                                                const QList<Induction::SWriteInfo> &group) = 0; // 25
    virtual QList<Induction::SWriteInfo> GetCannotInductiveDrive_Write(const QString &connectPar) = 0; // 26
    virtual QMap<Induction::SWriteInfo, CLabelVariable>
    BlockWriting(const QString &connectPar, const QList<Induction::SWriteInfo> &group) = 0; // 27
    virtual QMap<Induction::SWriteInfo, CLabelVariable>
    PointWriting(const QString &connectPar, const QList<Induction::SWriteInfo> &infos,
                 const int &interval) = 0;                                               // 28
    virtual CLabelVariable PointWriting(const QString &connectPar,
                                        const Induction::SWriteInfo &info) = 0;          // 29
    virtual void SetDataInfo(const QString &connectPar,
                             const QList<DataInfo::SDataInfo> &infos) = 0;               // 30

    // A notification road for the host's own use; the drive neither sets nor calls it.
    std::function<void(const QString &)> m_notify;
};

// The one exported factory: a new drive object behind its interface.
using GetSharedLibraryFunction = CDriveBaseClass *(*)();
extern "C" SORVIK_DRIVE_EXPORT CDriveBaseClass *getSharedLibrary();
