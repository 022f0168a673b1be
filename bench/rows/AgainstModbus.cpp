// Row 2: the drive's 160-byte read beside the peer users would otherwise
// pick, libmodbus reading 80 holding registers over loopback TCP.

#include "Rows.h"

#include "BenchContext.h"
#include "Controllers.h"
#include "Interleave.h"

#include "host/CDriveBaseClass.h"
#include "host/RecordStatus.h"

#ifdef SORVIK_HAVE_MODBUS
#include "ModbusPeer.h"
#endif

namespace {
constexpr int kHostIndex = 2;
constexpr int kRegisters = 80; // 160 bytes, as the drive's read
} // namespace

void Rows::againstModbus(BenchContext &ctx)
{
    const QString what = QStringLiteral("against libmodbus");
#ifndef SORVIK_HAVE_MODBUS
    ctx.table.skip(2, what, QStringLiteral("libmodbus (libmodbus-dev) was not found when this was built"));
#else
    UdpController controller(kHostIndex);
    ModbusPeer modbus;
    QString why;
    CDriveBaseClass *drive = nullptr;
    if (!controller.start(&why) || !modbus.start(controller.host.toString(), kRegisters, &why) ||
        !(drive = connectedDrive(ctx.drives, controller.connectText(), &why)))
        return ctx.fail(2, what, why);

    int failures = 0;
    uint16_t registers[kRegisters];
    Probe viaDrive{QStringLiteral("drive"), [&] {
                       if (drive->ReadVariable(QStringLiteral("NAI1"), TYPE_FLOAT, kRegisters / 2).status !=
                           RecordStatus::Ok)
                           ++failures;
                   }};
    Probe viaModbus{QStringLiteral("modbus"), [&] {
                        if (modbus.readRegisters(kRegisters, registers) != kRegisters)
                            ++failures;
                    }};
    runInterleaved({&viaDrive, &viaModbus}, {ctx.pick(40, 5), ctx.pick(250, 40)},
                   [&] { controller.sim.clearFrames(); });
    Line line{2,
              QStringLiteral("drive read 160 B"),
              Unit::Time,
              viaDrive.wall(),
              QStringLiteral("libmodbus 80 registers, TCP"),
              viaModbus.wall()};
    line.goals = {Goal::ratioBelow(1.0)};
    if (failures)
        line.note = QStringLiteral("%1 reads failed").arg(failures);
    ctx.table.add(line);
    releaseDrive(drive);
#endif
}
