// Row 7: a one-tag read over a pseudo-terminal, beside the raw round trip of
// the same frames and the bare QSerialPort calls the link must make. The
// exchange flushes and waits with waitForBytesWritten(100), which on a
// terminal takes the reply in and still runs out its limit, and then with
// waitForReadyRead(300), which waits out its own for bytes beyond the reply:
// some 400 ms per exchange, however fast the answer.

#include "Rows.h"

#include "BenchContext.h"
#include "Controllers.h"
#include "Interleave.h"
#include "QtSerialClient.h"
#include "RawPtyClient.h"
#include "ReadFrame.h"

#include "host/CDriveBaseClass.h"

namespace {

// A pseudo-terminal has no line speed; this rate keeps the shortest reply gap.
const QString kLineSettings = QStringLiteral(",115200,8,1,N");

} // namespace

void Rows::serialRead(BenchContext &ctx)
{
    const QString what = QStringLiteral("serial read");
    // A simulator each, so that the drive and the floors have a terminal of their own.
    SorvikSimulator forDrive;
    SorvikSimulator forRaw;
    SorvikSimulator forQt;
    const QString drivePath = forDrive.startPty();
    const QString rawPath = forRaw.startPty();
    const QString qtPath = forQt.startPty();
    if (drivePath.isEmpty() || rawPath.isEmpty() || qtPath.isEmpty())
        return ctx.fail(7, what, QStringLiteral("no pseudo-terminal"));
    for (SorvikSimulator *sim : {&forDrive, &forRaw, &forQt})
        sim->preset(BenchTags::kNaiArea, 0, BenchTags::naiFloats());
    QString why;
    CDriveBaseClass *drive = connectedDrive(ctx.drives, drivePath + kLineSettings, &why);
    RawPtyClient raw;
    QtSerialClient qt;
    if (!drive || !raw.open(rawPath) || !qt.open(qtPath)) {
        releaseDrive(drive);
        return ctx.fail(7, what, drive ? QStringLiteral("cannot open the floors' terminals") : why);
    }

    const QString tag = BenchTags::naiTag(1);
    const QByteArray request = readRequest(BenchTags::kNaiArea, 0, 160);
    int failures = 0;
    Probe viaDrive{QStringLiteral("drive"),
                   [&] { failures += drive->ReadVariable(tag, TYPE_FLOAT, 40).status ? 1 : 0; }};
    Probe viaRaw{QStringLiteral("raw"), [&] { failures += raw.roundTrip(request, 4 + 160) == 4 + 160 ? 0 : 1; }};
    Probe viaQt{QStringLiteral("qt"), [&] { failures += qt.roundTrip(request, 4 + 160) == 4 + 160 ? 0 : 1; }};
    runInterleaved({&viaDrive, &viaRaw, &viaQt}, {ctx.pick(10, 2), 1});

    const QString name = QStringLiteral("drive read 160 B, pty");
    Line againstRaw{7, name, Unit::Time, viaDrive.wall(), QStringLiteral("raw pty round trip"), viaRaw.wall()};
    if (failures)
        againstRaw.note = QStringLiteral("%1 exchanges failed").arg(failures);
    ctx.table.add(againstRaw);
    Line againstQt{7, name, Unit::Time, viaDrive.wall(), QStringLiteral("bare QSerialPort path"), viaQt.wall()};
    againstQt.note = QStringLiteral("waitForBytesWritten(100) and waitForReadyRead(300) run out their limits on a pty");
    ctx.table.add(againstQt);
    releaseDrive(drive);
}
