#include "Interleave.h"

#include <QElapsedTimer>

#include <ctime>

double threadCpuNs()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) * 1e9 + double(now.tv_nsec);
}

namespace {

void runChunk(Probe &probe, int calls, bool keep)
{
    QElapsedTimer clock;
    for (int i = 0; i < calls; ++i) {
        const double cpuBefore = probe.timeCpu ? threadCpuNs() : 0;
        clock.start();
        probe.call();
        const double wall = double(clock.nsecsElapsed());
        const double cpu = probe.timeCpu ? threadCpuNs() - cpuBefore : 0;
        if (!keep)
            continue;
        probe.wallNs.push_back(wall);
        if (probe.timeCpu)
            probe.cpuNs.push_back(cpu);
    }
}

} // namespace

void runInterleaved(const std::vector<Probe *> &probes, Schedule schedule, const std::function<void()> &between)
{
    for (Probe *probe : probes) {
        probe->wallNs.reserve(probe->wallNs.size() + size_t(schedule.rounds) * size_t(schedule.chunk));
        if (probe->timeCpu)
            probe->cpuNs.reserve(probe->wallNs.capacity());
    }
    auto runRound = [&](bool keep) {
        for (Probe *probe : probes) {
            runChunk(*probe, schedule.chunk, keep);
            if (between)
                between();
        }
    };
    QElapsedTimer warmUp;
    warmUp.start();
    do
        runRound(false);
    while (warmUp.elapsed() < schedule.warmUpMs);
    for (int round = 0; round < schedule.rounds; ++round)
        runRound(true);
}
