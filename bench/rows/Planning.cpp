// Row 4: planning tag lists of 1 000, 10 000 and 100 000 tags spread over
// many areas and types, through the drive's interface.

#include "Rows.h"

#include "BenchContext.h"
#include "GoogleBench.h"

#include "host/CDriveBaseClass.h"
#include "protocol/SorvikAreas.h"

#include <algorithm>
#include <random>

#ifdef SORVIK_HAVE_GOOGLE_BENCHMARK
namespace {

const QString kConnectPar = QStringLiteral("1");

// The areas the planner reads as numbers, in the order of their codes: the
// frames address AO_F and AO_S by no group, so they stay out with the string
// areas (block group) and Custom, which the engine does not plan.
QStringList plannedAreas()
{
    using namespace SorvikProtocol;
    QStringList prefixes;
    for (int code = 1; code < kAreaCodeCount; ++code) {
        const int i = indexOfCode(code);
        if (i < 0 || kAreas[i].key == 0)
            continue;
        if (kAreas[i].group != AreaGroup::None && kAreas[i].group != AreaGroup::Block)
            prefixes << QLatin1String(kAreas[i].prefix);
    }
    return prefixes;
}

// `count` distinct tags, round robin over the areas with the types 1 to 11,
// in a shuffled order as a host's list would come.
QList<Induction::SReadInfo> spreadTags(int count)
{
    static const QStringList areas = plannedAreas();
    const int areaCount = areas.size();
    std::vector<Induction::SReadInfo> tags;
    tags.reserve(size_t(count));
    for (int i = 0; i < count; ++i)
        tags.push_back({QStringLiteral("%1%2").arg(areas[i % areaCount]).arg(i / areaCount + 1), 1 + (i / 3) % 11});
    std::shuffle(tags.begin(), tags.end(), std::mt19937(20240807));
    return QList<Induction::SReadInfo>(tags.begin(), tags.end());
}

// "plan 100 000 tags": thousands set apart by a space.
QString sizeName(int count)
{
    QString digits = QString::number(count);
    for (int at = digits.size() - 3; at > 0; at -= 3)
        digits.insert(at, QLatin1Char(' '));
    return QStringLiteral("plan %1 tags").arg(digits);
}

} // namespace
#endif

void Rows::planning(BenchContext &ctx)
{
    const QString what = QStringLiteral("planning");
#ifndef SORVIK_HAVE_GOOGLE_BENCHMARK
    ctx.table.skip(4, what, QStringLiteral("Google Benchmark (libbenchmark-dev) was not found when this was built"));
#else
    CDriveBaseClass *drive = ctx.drives.create(); // planning needs no connection
    if (!drive)
        return ctx.fail(4, what, QStringLiteral("the factory gave no drive"));

    const int sizes[] = {1000, 10000, 100000};
    int blocks[3] = {};
    for (int i = 0; i < 3; ++i) {
        const QList<Induction::SReadInfo> infos = spreadTags(sizes[i]);
        blocks[i] = drive->InductiveDrive_Read(kConnectPar, infos).size();
        drive->DelInductiveDrive_Read(kConnectPar);
        benchmark::RegisterBenchmark(qPrintable(sizeName(sizes[i])),
                                     [drive, infos](benchmark::State &state) {
                                         for (auto _ : state) {
                                             QList<QList<Induction::SReadInfo>> keys =
                                                 drive->InductiveDrive_Read(kConnectPar, infos);
                                             // The plan and the keys are freed outside the timing.
                                             state.PauseTiming();
                                             benchmark::DoNotOptimize(keys);
                                             keys = {};
                                             drive->DelInductiveDrive_Read(kConnectPar);
                                             state.ResumeTiming();
                                         }
                                     })
            ->MinTime(ctx.pick(0.15, 0.02))
            ->Repetitions(ctx.pick(10, 3))
            // The first plans of a process also pay for growing its heap.
            ->MinWarmUpTime(ctx.pick(0.3, 0.05));
    }
    QMap<QString, std::vector<double>> times;
    QString error;
    if (!GoogleBench::runRegistered(&times, &error))
        return ctx.fail(4, what, error);

    const Summary small = summarize(times.value(sizeName(1000)));
    const Summary middle = summarize(times.value(sizeName(10000)));
    const Summary large = summarize(times.value(sizeName(100000)));
    ctx.table.add({4, sizeName(1000), Unit::Time, small});
    ctx.table.add({4, sizeName(10000), Unit::Time, middle, sizeName(1000), small});
    Line top{4, sizeName(100000), Unit::Time, large, sizeName(10000), middle};
    top.goals = {Goal::ratioAtMost(12), Goal::valueAtMost(0.25e9)};
    top.note = QStringLiteral("%1 areas, types 1 to 11; %2 blocks").arg(plannedAreas().size()).arg(blocks[2]);
    ctx.table.add(top);
#endif
}
