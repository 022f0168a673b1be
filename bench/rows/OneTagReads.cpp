// Row 1: a one-tag read through the drive beside the same exchange through
// plain POSIX calls and through the bare Qt calls the link must make.

#include "Rows.h"

#include "BenchContext.h"
#include "Controllers.h"
#include "Interleave.h"
#include "QtUdpClient.h"
#include "RawUdpClient.h"
#include "ReadFrame.h"

#include "host/CDriveBaseClass.h"
#include "host/RecordStatus.h"

namespace {

constexpr int kHostIndex = 1;

struct Failures {
    int drive = 0;
    int raw = 0;
    int qt = 0;
    QString text() const
    {
        return drive + raw + qt == 0 ? QString()
                                     : QStringLiteral("failed: drive %1, raw %2, Qt %3").arg(drive).arg(raw).arg(qt);
    }
};

void measureSize(BenchContext &ctx, UdpController &controller, CDriveBaseClass *drive, RawUdpClient &raw,
                 QtUdpClient &qt, int bytes)
{
    const int count = bytes / 4;
    const QString tag = BenchTags::naiTag(1);
    const QByteArray request = readRequest(BenchTags::kNaiArea, 0, bytes);
    const int replySize = 4 + bytes;
    Failures failures;
    Probe viaDrive(QStringLiteral("drive"), [&] {
        if (drive->ReadVariable(tag, TYPE_FLOAT, count).status != RecordStatus::Ok)
            ++failures.drive;
    });
    Probe viaRaw(QStringLiteral("raw"), [&] {
        if (raw.roundTrip(request) != replySize)
            ++failures.raw;
    });
    Probe viaQt(QStringLiteral("qt"), [&] {
        if (qt.roundTrip(request) != replySize)
            ++failures.qt;
    });
    runInterleaved({&viaDrive, &viaRaw, &viaQt}, {ctx.pick(40, 5), ctx.pick(250, 40)},
                   [&] { controller.sim.clearFrames(); });

    const QString name = QStringLiteral("drive read %1 B").arg(bytes);
    const bool goals = bytes == 160;
    Line againstRaw{1, name, Unit::Time, viaDrive.wall(), QStringLiteral("raw UDP"), viaRaw.wall()};
    if (goals)
        againstRaw.goals = {Goal::ratioAtMost(1.5)};
    againstRaw.note = failures.text();
    ctx.table.add(againstRaw);
    Line againstQt{1, name, Unit::Time, viaDrive.wall(), QStringLiteral("bare Qt path"), viaQt.wall()};
    if (goals)
        againstQt.goals = {Goal::ratioAtMost(1.10)};
    ctx.table.add(againstQt);
    if (goals)
        ctx.table.add({1, QStringLiteral("bare Qt path %1 B").arg(bytes), Unit::Time, viaQt.wall(),
                       QStringLiteral("raw UDP"), viaRaw.wall()});
}

// The record's time is local time, and with TZ unset the C library looks at
// the zone file on every conversion. The same 160-byte read with TZ naming
// that file shows what the drive itself adds; the Qt path reads no clock.
void measureWithZoneSet(BenchContext &ctx, UdpController &controller, CDriveBaseClass *drive, QtUdpClient &qt)
{
    if (qEnvironmentVariableIsSet("TZ"))
        return; // the lines above were already measured so
    const QString tag = BenchTags::naiTag(1);
    const QByteArray request = readRequest(BenchTags::kNaiArea, 0, 160);
    Probe viaDrive(QStringLiteral("drive"), [&] { drive->ReadVariable(tag, TYPE_FLOAT, 40); });
    Probe viaQt(QStringLiteral("qt"), [&] { qt.roundTrip(request); });
    qputenv("TZ", ":/etc/localtime");
    runInterleaved({&viaDrive, &viaQt}, {ctx.pick(40, 5), ctx.pick(250, 40)}, [&] { controller.sim.clearFrames(); });
    qunsetenv("TZ");
    Line line(1, QStringLiteral("drive read 160 B, TZ set"), Unit::Time, viaDrive.wall(),
              QStringLiteral("bare Qt path"), viaQt.wall());
    line.goals = {Goal::ratioAtMost(1.10)};
    line.note = QStringLiteral("TZ=:/etc/localtime, the same zone: no look at the zone file per read");
    ctx.table.add(line);
}

} // namespace

void Rows::oneTagReads(BenchContext &ctx)
{
    const QString what = QStringLiteral("one-tag reads");
    UdpController controller(kHostIndex);
    QString why;
    CDriveBaseClass *drive = nullptr;
    RawUdpClient raw;
    QtUdpClient qt;
    if (!controller.start(&why) || !(drive = connectedDrive(ctx.drives, controller.connectText(), &why)))
        return ctx.fail(1, what, why);
    if (raw.open(controller.host, controller.host, controller.port) &&
        qt.open(controller.host, controller.host, controller.port)) {
        for (const int bytes : {4, 160, 1280})
            measureSize(ctx, controller, drive, raw, qt, bytes);
        measureWithZoneSet(ctx, controller, drive, qt);
    } else {
        ctx.fail(1, what, QStringLiteral("no floor socket on %1").arg(controller.host.toString()));
    }
    releaseDrive(drive);
}
