#pragma once

// Shared by the fault tests: a drive as a host holds it, the faults the
// simulator injects, and where a tag or planned block lives in its memory.

#include "host/CDriveBaseClass.h"
#include "sim/SimPresets.h"
#include "sim/SorvikSimulator.h"
#include "tests/drive/DriveTestSupport.h"

Q_DECLARE_METATYPE(SimFaults)

namespace FaultsTest {

using namespace Induction;
using DriveTest::listOf;
using DriveTest::recordOf;
using TestSupport::hex;

const QString kConnect = QStringLiteral("1");
const QString kLostLine = QStringLiteral("lib[Sorvik]返回的报文长度为0 ");

// The interface has no way to free a drive, so every one stays reachable to the end, as in a host.
inline CDriveBaseClass *newDrive()
{
    static auto *drives = new QList<CDriveBaseClass *>;
    drives->append(getSharedLibrary());
    return drives->last();
}

// A drive connected over loopback UDP to `sim`; null when either side fails.
inline CDriveBaseClass *connectedDrive(SorvikSimulator &sim, quint16 *port)
{
    *port = sim.startUdp(TestSupport::testHost());
    CDriveBaseClass *drive = newDrive();
    return *port != 0 && drive->ConnectDrive(DriveTest::udpText(*port)) == 0 ? drive : nullptr;
}

// A read of one Int32 tag as its status and value (0 when none), for one comparison.
inline QPair<int, int> readInt(CDriveBaseClass *drive, const QString &tag)
{
    const CLabelVariable record = drive->ReadVariable(tag, TYPE_INT32);
    return {record.status, SorvikValues::listFrom<int>(record.value).value(0)};
}

// Faults with one member set, e.g. fault(&SimFaults::silent, true).
template <typename T> SimFaults fault(T SimFaults::*member, T value)
{
    SimFaults faults;
    faults.*member = value;
    return faults;
}

// Where a tag's first element lies on the wire, as the simulator's preset parser places it.
struct Place {
    int area = 0;
    int address = -1;
};

inline Place placeOf(const QString &tag)
{
    SimPreset preset;
    if (!SimPresets::parse(tag + QStringLiteral("=uint8:0"), &preset, nullptr))
        return {};
    return {preset.area, preset.address};
}

template <typename Group> Place placeOf(const Group &group)
{
    return placeOf(group.areaText + group.start.toString());
}

// A planned block's data as it goes on the wire: one byte a point for bits.
inline QByteArray wireBytes(const QVariant &data)
{
    QByteArray bytes;
    for (char byte : SorvikValues::listFrom<char>(data))
        bytes.append(byte);
    for (bool point : SorvikValues::listFrom<bool>(data))
        bytes.append(point ? '\1' : '\0');
    return bytes;
}

} // namespace FaultsTest
