#pragma once

// Shared by the fault tests: a drive as a host holds it, the faults the
// simulator injects, and where a tag lives in the controller's memory.

#include "host/CDriveBaseClass.h"
#include "sim/SimPresets.h"
#include "sim/SorvikSimulator.h"
#include "tests/drive/DriveTestSupport.h"

#include <QList>
#include <QMetaType>

Q_DECLARE_METATYPE(SimFaults)

namespace FaultFixture {

// A new drive from the library's factory. The interface has no way to free a
// drive, so every one stays reachable to the end, as in a host.
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

inline SimFaults dropped()
{
    SimFaults faults;
    faults.dropShare = 1.0;
    return faults;
}
inline SimFaults wrongIdentity()
{
    SimFaults faults;
    faults.wrongIdentityShare = 1.0;
    return faults;
}
inline SimFaults cutTo(int bytes)
{
    SimFaults faults;
    faults.truncateTo = bytes;
    return faults;
}
inline SimFaults padded()
{
    SimFaults faults;
    faults.padReplies = true;
    return faults;
}
inline SimFaults overlong()
{
    SimFaults faults;
    faults.overlongReplies = true;
    return faults;
}
inline SimFaults emptyDatagramFirst()
{
    SimFaults faults;
    faults.emptyDatagramFirst = true;
    return faults;
}
inline SimFaults silent()
{
    SimFaults faults;
    faults.silent = true;
    return faults;
}
inline SimFaults late(int delayMs)
{
    SimFaults faults;
    faults.delayMs = delayMs;
    return faults;
}

// Where a tag's first element lies on the wire, as the simulator's own
// preset parser places it: one byte per point on bit areas, the element
// index times the area's factor elsewhere.
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

} // namespace FaultFixture
