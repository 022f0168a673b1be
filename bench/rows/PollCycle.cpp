// Row 3: a poll cycle of 1000 planned float tags, block by block, beside the
// same tags read one at a time, and the requests the simulator counts.

#include "Rows.h"

#include "BenchContext.h"
#include "Controllers.h"
#include "Interleave.h"

#include "host/CDriveBaseClass.h"
#include "host/RecordStatus.h"

#include <QStringList>

namespace {

constexpr int kHostIndex = 3;
const QString kConnectPar = QStringLiteral("1");

// One cycle: every block read once. False when a block gave fewer records than tags.
bool pollOnce(CDriveBaseClass *drive, const QList<QList<Induction::SReadInfo>> &keys)
{
    bool complete = true;
    for (const QList<Induction::SReadInfo> &key : keys) {
        const QMap<Induction::SReadInfo, CLabelVariable> records = drive->BlockReading(kConnectPar, key);
        complete = complete && !records.isEmpty() && records.size() == key.size() &&
                   records.first().status == RecordStatus::Ok;
    }
    return complete;
}

} // namespace

void Rows::pollCycle(BenchContext &ctx)
{
    const QString what = QStringLiteral("poll cycle");
    UdpController controller(kHostIndex);
    QString why;
    CDriveBaseClass *drive = nullptr;
    if (!controller.start(&why) || !(drive = connectedDrive(ctx.drives, controller.connectText(), &why)))
        return ctx.fail(3, what, why);

    QList<Induction::SReadInfo> infos;
    QStringList tags;
    for (int number = 1; number <= BenchTags::kFloatCount; ++number) {
        tags.append(BenchTags::naiTag(number));
        infos.append({tags.last(), TYPE_FLOAT});
    }
    const QList<QList<Induction::SReadInfo>> keys = drive->InductiveDrive_Read(kConnectPar, infos);

    // Requests of single cycles, as the simulator counts them.
    std::vector<double> requests;
    int incomplete = 0;
    for (int cycle = 0; cycle < ctx.pick(20, 3); ++cycle) {
        const int before = controller.sim.counters().reads;
        incomplete += pollOnce(drive, keys) ? 0 : 1;
        requests.push_back(controller.sim.counters().reads - before);
    }

    int failures = 0;
    Probe cycle{QStringLiteral("cycle"), [&] { failures += pollOnce(drive, keys) ? 0 : 1; }};
    Probe oneByOne{QStringLiteral("one by one"), [&] {
                       for (const QString &tag : qAsConst(tags))
                           failures += drive->ReadVariable(tag, TYPE_FLOAT, 1).status == RecordStatus::Ok ? 0 : 1;
                   }};
    runInterleaved({&cycle, &oneByOne}, {ctx.pick(30, 3), 1}, [&] { controller.sim.clearFrames(); });

    Line count{3,
               QStringLiteral("requests per poll cycle"),
               Unit::Count,
               summarize(requests),
               QStringLiteral("blocks planned"),
               summarize({double(keys.size())})};
    count.goals = {Goal::ratioEquals(1.0)};
    count.note = QStringLiteral("%1 tags in %2 blocks").arg(infos.size()).arg(keys.size());
    if (incomplete)
        count.note += QStringLiteral(", %1 cycles incomplete").arg(incomplete);
    ctx.table.add(count);

    Line speed{3,
               QStringLiteral("poll cycle of %1 tags").arg(infos.size()),
               Unit::Time,
               cycle.wall(),
               QStringLiteral("%1 one-tag reads").arg(infos.size()),
               oneByOne.wall()};
    speed.goals = {Goal::ratioAtMost(1.0 / 20)};
    if (speed.value.median > 0)
        speed.note = QStringLiteral("%1 times faster").arg(speed.floor.median / speed.value.median, 0, 'f', 1);
    if (failures)
        speed.note += QStringLiteral(", %1 reads failed").arg(failures);
    ctx.table.add(speed);
    releaseDrive(drive);
}
