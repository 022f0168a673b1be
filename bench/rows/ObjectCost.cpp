// Row 9: what a drive object costs before its first read: the time to build
// it and connect it to a controller (the handshake answered), and the memory
// it holds, beside a bare QObject owning a QUdpSocket bound and answered the
// same way. The read plan of 1000 tags on one object has a line of its own.

#include "Rows.h"

#include "BenchContext.h"
#include "Controllers.h"

#include "host/CDriveBaseClass.h"
#include "link/SorvikProtocol.h"

#include <QElapsedTimer>
#include <QFile>
#include <QUdpSocket>

#include <malloc.h>
#include <unistd.h>

#include <memory>
#include <vector>

namespace {

constexpr int kHostIndex = 9;
constexpr int kChunk = 50; // objects of one side built in a row before the other side's turn

// Heap bytes in use, small blocks and mapped ones alike.
double heapBytes()
{
    const struct mallinfo2 info = mallinfo2();
    return double(info.uordblks + info.hblkhd);
}

double residentBytes()
{
    QFile statm(QStringLiteral("/proc/self/statm"));
    if (!statm.open(QIODevice::ReadOnly))
        return 0;
    const QList<QByteArray> pages = statm.readAll().split(' ');
    return pages.size() > 1 ? pages.at(1).toDouble() * double(sysconf(_SC_PAGESIZE)) : 0;
}

struct Memory {
    double heap = heapBytes();
    double resident = residentBytes();
};

// Hands the free pages of the heap back first, so that what earlier rows freed
// and left resident cannot hide the growth that follows.
Memory trimmedMemory()
{
    malloc_trim(0);
    return Memory();
}

// One side's figures: a time per object, and per chunk the bytes each object added.
struct Side {
    std::vector<double> timeNs;
    std::vector<double> heapPerObject;
    std::vector<double> residentPerObject;
    int failures = 0;

    // Builds `count` objects with `build`, timing each, and books what they hold.
    template <typename Build> void chunk(int count, Build build)
    {
        const Memory before = trimmedMemory();
        QElapsedTimer clock;
        for (int i = 0; i < count; ++i) {
            clock.start();
            const bool ok = build();
            timeNs.push_back(double(clock.nsecsElapsed()));
            failures += ok ? 0 : 1;
        }
        const Memory after;
        heapPerObject.push_back((after.heap - before.heap) / count);
        residentPerObject.push_back((after.resident - before.resident) / count);
    }
};

// The floor: the least a link object holds, an owner and its socket bound to
// the controller's address and the drive's port, whose handshake is answered.
bool bareLink(std::vector<std::unique_ptr<QObject>> &kept, const UdpController &controller)
{
    using namespace SorvikProtocol;
    auto owner = std::make_unique<QObject>();
    auto *socket = new QUdpSocket(owner.get());
    socket->bind(controller.host, kLocalUdpPort);
    const char handshake[] = {char(kHandshake0), char(kHandshake1)};
    socket->writeDatagram(handshake, sizeof handshake, controller.host, controller.port);
    char reply[8];
    const bool answered = socket->waitForReadyRead(300) && socket->readDatagram(reply, sizeof reply) >= 2;
    kept.push_back(std::move(owner));
    return answered;
}

QList<Induction::SReadInfo> floatTags()
{
    QList<Induction::SReadInfo> infos;
    for (int i = 1; i <= BenchTags::kFloatCount; ++i)
        infos.append({BenchTags::naiTag(i), TYPE_FLOAT});
    return infos;
}

void planMemory(BenchContext &ctx)
{
    CDriveBaseClass *drive = ctx.drives.create();
    const Memory start = trimmedMemory();
    QList<Induction::SReadInfo> infos = floatTags();
    const Memory listed;
    const int blocks = drive->InductiveDrive_Read(QStringLiteral("1"), infos).size();
    const Memory planned;
    infos.clear();
    Line line(9, QStringLiteral("read plan of %1 tags, heap").arg(BenchTags::kFloatCount), Unit::Bytes,
              {planned.heap - listed.heap, planned.heap - listed.heap, 1}, QStringLiteral("the tag list itself"),
              {listed.heap - start.heap, listed.heap - start.heap, 1});
    line.note = QStringLiteral("%1 blocks; resident %2 (the list %3)")
                    .arg(blocks)
                    .arg(formatFigure(planned.resident - listed.resident, Unit::Bytes),
                         formatFigure(listed.resident - start.resident, Unit::Bytes));
    ctx.table.add(line);
    drive->DelInductiveDrive_Read(QStringLiteral("1"));
}

} // namespace

void Rows::objectCost(BenchContext &ctx)
{
    const QString what = QStringLiteral("drive object cost");
    UdpController controller(kHostIndex);
    QString why;
    if (!controller.start(&why))
        return ctx.fail(9, what, why);

    // The first object of a process compiles the tag patterns that every
    // later one shares: the row's first is timed apart.
    const Memory beforeFirst = trimmedMemory();
    QElapsedTimer first;
    first.start();
    CDriveBaseClass *firstDrive = connectedDrive(ctx.drives, controller.connectText(), &why);
    const double firstNs = double(first.nsecsElapsed());
    const Memory afterFirst;
    if (!firstDrive)
        return ctx.fail(9, what, why);

    const int objects = ctx.pick(1000, 100);
    std::vector<CDriveBaseClass *> drives{firstDrive};
    std::vector<std::unique_ptr<QObject>> floors;
    bareLink(floors, controller);
    Side drive;
    Side floor;
    for (int built = 0; built < objects; built += kChunk) {
        const int count = qMin(kChunk, objects - built);
        drive.chunk(count, [&] {
            CDriveBaseClass *made = ctx.drives.create();
            drives.push_back(made);
            return made && made->ConnectDrive(controller.connectText()) == 0;
        });
        floor.chunk(count, [&] { return bareLink(floors, controller); });
    }

    Line time(9, QStringLiteral("build and connect a drive object"), Unit::Time, summarize(drive.timeNs),
              QStringLiteral("QObject + QUdpSocket, handshake"), summarize(floor.timeNs));
    time.goals = {Goal::valueAtMost(100e3)};
    time.note =
        QStringLiteral("%1 objects on one simulator; the row's first %2 and %3 heap (a process's first also "
                       "compiles the tag patterns)")
            .arg(objects)
            .arg(formatFigure(firstNs, Unit::Time), formatFigure(afterFirst.heap - beforeFirst.heap, Unit::Bytes));
    if (drive.failures + floor.failures > 0)
        time.note += QStringLiteral("; not answered: drive %1, floor %2").arg(drive.failures).arg(floor.failures);
    ctx.table.add(time);
    Line resident(9, QStringLiteral("drive object, resident"), Unit::Bytes, summarize(drive.residentPerObject),
                  QStringLiteral("QObject + QUdpSocket, resident"), summarize(floor.residentPerObject));
    resident.goals = {Goal::valueAtMost(64 * 1024)};
    resident.note = QStringLiteral("per object, over chunks of %1; kernel socket buffers not counted").arg(kChunk);
    ctx.table.add(resident);
    ctx.table.add({9, QStringLiteral("drive object, heap"), Unit::Bytes, summarize(drive.heapPerObject),
                   QStringLiteral("QObject + QUdpSocket, heap"), summarize(floor.heapPerObject)});

    for (CDriveBaseClass *made : drives)
        releaseDrive(made);
    floors.clear();
    planMemory(ctx);
}
