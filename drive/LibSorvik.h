#pragma once

#include "../engine/CInductiveDrive.h"
#include "../host/CDriveBaseClass.h"
#include "../link/CmdSorvik.h"
#include "LocalClock.h"

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QVariant>

// The drive object a host holds: connection and identity, one-tag reads and
// writes with their conversions, and the engine for tag lists. Its public
// members are exported by name; the engine and the link stay inside.
class SORVIK_DRIVE_EXPORT LibSorvik : public QObject, public CDriveBaseClass
{
    Q_OBJECT

public:
    LibSorvik();
    // Out of line, so that a program holding a LibSorvik of its own uses the
    // library's destructor instead of reaching for the hidden link's.
    ~LibSorvik() override;

    // Identity, connection and debug.
    QString getDriveName() override;
    QString getversion_number() override;
    QString DebugCmd(EDebugCmdType cmd) override;
    int ConnectDrive(QString text) override;
    void SetConnectPar(QString text) override;
    int DisConnectDrive() override;
    int DestroyFree() override;
    void SetDataInfo(const QString &connectPar, const QList<DataInfo::SDataInfo> &infos) override;

    // One tag.
    CLabelVariable ReadVariable(QString tag, DataType type) override;
    CLabelVariable ReadVariable(QString tag, DataType type, int count) override;
    CLabelVariable WriteVariable(QString tag, DataType type, CLabelVariable label) override;
    CLabelVariable WriteVariable(QString tag, DataType type, CLabelVariable label, int count) override;
    CLabelVariable Read_data(int area, int index, DataType type, int count, QString tag);
    CLabelVariable Write_data(int area, int index, DataType type, CLabelVariable label, int count, QString tag);

    // Tag addressing.
    int getArea(QString tag);
    int getAddr(QString tag);
    int getmaximum_length(int area);
    int getBytelen(DataType type, int count, int area);

    // Reply bytes to values.
    QVariant set_variant_bool(QByteArray data, int count);
    QVariant set_variant_Int8(QByteArray data, int count);
    QVariant set_variant_UInt8(QByteArray data, int count);
    QVariant set_variant_Int16(QByteArray data, int count);
    QVariant set_variant_UInt16(QByteArray data, int count);
    QVariant set_variant_Int32(QByteArray data, int count);
    QVariant set_variant_UInt32(QByteArray data, int count);
    QVariant set_variant_fload(QByteArray data, int count);
    QVariant set_variant_Int64(QByteArray data, int count);
    QVariant set_variant_UInt64(QByteArray data, int count);
    QVariant set_variant_double(QByteArray data, int count);
    QVariant set_variant_string(QByteArray data, int count);

    // Values to payload bytes; the result is always 0.
    int Wset_variant_bool(CLabelVariable label, int count, QByteArray *payload);
    int Wset_variant_Int8(CLabelVariable label, int count, QByteArray *payload);
    int Wset_variant_UInt8(CLabelVariable label, int count, QByteArray *payload);
    int Wset_variant_Int16(CLabelVariable label, int count, QByteArray *payload);
    int Wset_variant_uInt16(CLabelVariable label, int count, QByteArray *payload);
    int Wset_variant_Int32(CLabelVariable label, int count, QByteArray *payload);
    int Wset_variant_UInt32(CLabelVariable label, int count, QByteArray *payload);
    int Wset_variant_float(CLabelVariable label, int count, QByteArray *payload);
    int Wset_variant_Int64(CLabelVariable label, int count, QByteArray *payload);
    int Wset_variant_UInt64(CLabelVariable label, int count, QByteArray *payload);
    int Wset_variant_double(CLabelVariable label, int count, QByteArray *payload);
    int Wset_variant_string(CLabelVariable label, int count, QByteArray *payload);

    // Tag lists, forwarded to the engine.
    void SetInductionParam(const Induction::EInductionFun &fun, const Induction::EInductionType &type,
                           const int &value) override;
    QList<QList<Induction::SReadInfo>> InductiveDrive_Read(const QString &connectPar,
                                                           const QList<Induction::SReadInfo> &infos) override;
    QList<QList<Induction::SReadInfo>> InductiveDrive_Read(const QString &connectPar,
                                                           const QList<Induction::SReadInfo_manual> &blocks) override;
    void DelInductiveDrive_Read(const QString &connectPar) override;
    void DelInductiveDrive_Read(const QString &connectPar, const QList<Induction::SReadInfo> &group) override;
    void DelCannotInductiveDrive_Read(const QString &connectPar) override;
    QMap<QList<Induction::SReadInfo>, SReadGroup> GetInductiveDrive_Read(const QString &connectPar) override;
    SReadGroup GetInductiveDrive_Read(const QString &connectPar, const QList<Induction::SReadInfo> &group) override;
    QList<Induction::SReadInfo> GetCannotInductiveDrive_Read(const QString &connectPar) override;
    QMap<Induction::SReadInfo, CLabelVariable> BlockReading(const QString &connectPar,
                                                            const QList<Induction::SReadInfo> &group) override;
    QMap<Induction::SReadInfo, CLabelVariable>
    PointReading(const QString &connectPar, const QList<Induction::SReadInfo> &infos, const int &interval) override;
    CLabelVariable PointReading(const QString &connectPar, const Induction::SReadInfo &info) override;
    QList<QList<Induction::SWriteInfo>> InductiveDrive_Write(const QString &connectPar,
                                                             const QList<Induction::SWriteInfo> &infos) override;
    QMap<QList<Induction::SWriteInfo>, SWriteGroup> GetInductiveDrive_Write(const QString &connectPar) override;
    SWriteGroup GetInductiveDrive_Write(const QString &connectPar, const QList<Induction::SWriteInfo> &group) override;
    QList<Induction::SWriteInfo> GetCannotInductiveDrive_Write(const QString &connectPar) override;
    QMap<Induction::SWriteInfo, CLabelVariable> BlockWriting(const QString &connectPar,
                                                             const QList<Induction::SWriteInfo> &group) override;
    QMap<Induction::SWriteInfo, CLabelVariable>
    PointWriting(const QString &connectPar, const QList<Induction::SWriteInfo> &infos, const int &interval) override;
    CLabelVariable PointWriting(const QString &connectPar, const Induction::SWriteInfo &info) override;

    // State, open for a host's diagnostics. The engine comes first: it is
    // built before the link and outlives it.
    CInductiveDrive m_engine;
    CmdSorvik m_cmd;
    quint32 m_connectPar = 1;
    QString m_udpHost;
    QString m_portName;
    qint32 m_baudRate = 0;
    qint32 m_dataBits = 0;
    qint32 m_stopBits = 0;
    quint32 m_udpPort = 0;
    QString m_parity;

private:
    LocalClock m_clock; // the time of this object's records
    Q_DECL_HIDDEN CLabelVariable ReadForEngine(const QString &connectPar, const QString &tag, DataType type, int count);
    Q_DECL_HIDDEN CLabelVariable WriteForEngine(const QString &connectPar, const QString &tag, DataType type,
                                                QVariant value, int count);
};
