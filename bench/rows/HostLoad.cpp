// Row 6: the processor time a one-tag read costs the calling thread, beside
// its wall time and the same of the bare Qt path, once answered and once
// lost, when the drive's wait ends in ticks that spin on the event loop.

#include "Rows.h"

#include "BenchContext.h"
#include "Controllers.h"
#include "Interleave.h"
#include "QtUdpClient.h"
#include "ReadFrame.h"

#include "host/CDriveBaseClass.h"

namespace {

constexpr int kAnsweringHost = 4;
constexpr int kSilentHost = 5;

QString share(const Probe &probe)
{
    const Summary wall = probe.wall();
    const Summary cpu = probe.cpu();
    return QStringLiteral("%1 of %2 wall (%3 %)")
        .arg(formatFigure(cpu.median, Unit::Time), formatFigure(wall.median, Unit::Time))
        .arg(wall.median > 0 ? 100 * cpu.median / wall.median : 0, 0, 'f', 0);
}

void addLine(BenchContext &ctx, const QString &name, const Probe &drive, const Probe &qt)
{
    Line line{6, name, Unit::Time, drive.cpu(), QStringLiteral("bare Qt path, processor"), qt.cpu()};
    line.note = QStringLiteral("drive %1; Qt %2").arg(share(drive), share(qt));
    ctx.table.add(line);
}

} // namespace

void Rows::hostLoad(BenchContext &ctx)
{
    const QString what = QStringLiteral("host load");
    UdpController answering(kAnsweringHost);
    UdpController silent(kSilentHost);
    QString why;
    CDriveBaseClass *drive = nullptr;
    CDriveBaseClass *unanswered = nullptr;
    QtUdpClient qt;
    QtUdpClient qtUnanswered;
    if (!answering.start(&why) || !silent.start(&why) ||
        !(drive = connectedDrive(ctx.drives, answering.connectText(), &why)) ||
        !(unanswered = connectedDrive(ctx.drives, silent.connectText(), &why))) {
        releaseDrive(drive);
        return ctx.fail(6, what, why);
    }
    if (!qt.open(answering.host, answering.host, answering.port) ||
        !qtUnanswered.open(silent.host, silent.host, silent.port)) {
        releaseDrive(drive);
        releaseDrive(unanswered);
        return ctx.fail(6, what, QStringLiteral("no floor socket"));
    }
    SimFaults lost;
    lost.silent = true; // after the handshake: every read from now on goes unanswered
    silent.sim.setFaults(lost);

    const QString tag = BenchTags::naiTag(1);
    const QByteArray request = readRequest(BenchTags::kNaiArea, 0, 160);
    Probe viaDrive{QStringLiteral("drive"), [&] { drive->ReadVariable(tag, TYPE_FLOAT, 40); }, true};
    Probe viaQt{QStringLiteral("qt"), [&] { qt.roundTrip(request); }, true};
    runInterleaved({&viaDrive, &viaQt}, {ctx.pick(20, 3), ctx.pick(250, 40)}, [&] { answering.sim.clearFrames(); });
    addLine(ctx, QStringLiteral("drive read 160 B, processor"), viaDrive, viaQt);
    // The same with TZ naming the zone file, as row 1 shows it too.
    if (!qEnvironmentVariableIsSet("TZ")) {
        Probe zonedDrive{QStringLiteral("drive"), [&] { drive->ReadVariable(tag, TYPE_FLOAT, 40); }, true};
        Probe zonedQt{QStringLiteral("qt"), [&] { qt.roundTrip(request); }, true};
        qputenv("TZ", ":/etc/localtime");
        runInterleaved({&zonedDrive, &zonedQt}, {ctx.pick(20, 3), ctx.pick(250, 40)},
                       [&] { answering.sim.clearFrames(); });
        qunsetenv("TZ");
        addLine(ctx, QStringLiteral("drive read 160 B, TZ set, processor"), zonedDrive, zonedQt);
    }

    Probe lostDrive{QStringLiteral("drive lost"), [&] { unanswered->ReadVariable(tag, TYPE_FLOAT, 40); }, true};
    Probe lostQt{QStringLiteral("qt lost"), [&] { qtUnanswered.roundTrip(request); }, true};
    runInterleaved({&lostDrive, &lostQt}, {ctx.pick(8, 2), 1});
    addLine(ctx, QStringLiteral("drive read, lost reply, processor"), lostDrive, lostQt);

    releaseDrive(drive);
    releaseDrive(unanswered);
}
