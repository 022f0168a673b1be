#include "PollFloor.h"

#include "Controllers.h"
#include "DriveLoader.h"
#include "GroupPlan.h"
#include "host/CDriveBaseClass.h"
#include "host/RecordStatus.h"

#include <QThread>

#include <time.h>

#include <chrono>
#include <memory>
#include <mutex>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kInterval = std::chrono::milliseconds(1000);

double threadCpuSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) / 1e9;
}

ScanGroupConfig plantGroup()
{
    ScanGroupConfig group;
    group.name = QStringLiteral("all");
    group.intervalMs = 1000;
    for (int i = 1; i <= BenchTags::kFloatCount; ++i) {
        TagConfig tag;
        tag.name = QStringLiteral("v%1").arg(i);
        tag.tag = BenchTags::naiTag(i);
        tag.dataType = TYPE_FLOAT;
        group.tags.append(tag);
    }
    return group;
}

struct ThreadFigures {
    qint64 goodTags = 0;
    std::vector<double> latenessMs;
    int overruns = 0;
    double cpuSeconds = 0;
    QString failure;
};

void pollOne(const DriveLoader &loader, const QString &connection, const ScanGroupConfig &group, Clock::time_point base,
             int warmCycles, int windowCycles, ThreadFigures *figures)
{
    // The handshake again when a datagram of the run before stood in its
    // place, or its reply was slow among hundreds of drives starting at once;
    // the gateway retries the same way, only later.
    CDriveBaseClass *drive = loader.create();
    int result = drive ? drive->ConnectDrive(connection) : -1;
    for (int attempt = 0; attempt < 5 && result == -2; ++attempt)
        result = drive->ConnectDrive(connection);
    if (result != 0) {
        figures->failure = QStringLiteral("ConnectDrive(%1) answered %2").arg(connection).arg(result);
        releaseDrive(drive);
        return;
    }
    const GroupPlan plan = GroupPlan::make(drive, QStringLiteral("floor"), group);
    double cpuAtWindow = 0;
    const int cycles = warmCycles + windowCycles;
    int cycle = 0;
    while (cycle < cycles) {
        const Clock::time_point due = base + cycle * kInterval;
        std::this_thread::sleep_until(due);
        const bool measured = cycle >= warmCycles;
        if (cycle == warmCycles)
            cpuAtWindow = threadCpuSeconds();
        if (measured)
            figures->latenessMs.push_back(std::chrono::duration<double, std::milli>(Clock::now() - due).count());
        for (const PlannedBlock &block : plan.blocks) {
            const auto records = drive->BlockReading(plan.connectPar, block.key);
            if (measured)
                for (const CLabelVariable &record : records)
                    figures->goodTags += record.status == RecordStatus::Ok ? 1 : 0;
        }
        // Starts that passed while this one ran are skipped, as the gateway does.
        ++cycle;
        while (cycle < cycles && base + cycle * kInterval < Clock::now()) {
            figures->overruns += cycle >= warmCycles ? 1 : 0;
            ++cycle;
        }
    }
    figures->cpuSeconds = threadCpuSeconds() - cpuAtWindow;
    releaseDrive(drive);
}

} // namespace

FloorFigures measureFloor(const DriveLoader &loader, const QStringList &connections, int warmCycles, int windowCycles)
{
    const ScanGroupConfig group = plantGroup();
    // Connecting hundreds of drives takes a moment: the schedule starts after it.
    const Clock::time_point base = Clock::now() + std::chrono::milliseconds(500 + 5 * connections.size());
    std::vector<ThreadFigures> figures(size_t(connections.size()));
    std::vector<std::unique_ptr<QThread>> threads;
    for (int k = 0; k < connections.size(); ++k) {
        ThreadFigures *mine = &figures[size_t(k)];
        const QString connection = connections.at(k);
        threads.emplace_back(QThread::create(
            [&, connection, mine] { pollOne(loader, connection, group, base, warmCycles, windowCycles, mine); }));
        threads.back()->start();
    }
    FloorFigures out;
    double cpu = 0;
    qint64 good = 0;
    for (size_t k = 0; k < threads.size(); ++k) {
        threads[k]->wait();
        const ThreadFigures &one = figures[k];
        if (!one.failure.isEmpty() && out.failure.isEmpty())
            out.failure = connections.at(int(k)) + QStringLiteral(": ") + one.failure;
        out.latenessMs.insert(out.latenessMs.end(), one.latenessMs.begin(), one.latenessMs.end());
        out.overruns += one.overruns;
        cpu += one.cpuSeconds;
        good += one.goodTags;
    }
    out.tagsPerSecond = double(good) / windowCycles;
    out.cpuPerSecond = cpu / windowCycles;
    return out;
}
