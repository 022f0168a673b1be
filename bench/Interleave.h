#pragma once

// Series measured in turn, a chunk of each at a time, so that whatever else
// the machine does hits every side of a ratio alike.

#include "Samples.h"

#include <QString>

#include <functional>
#include <utility>
#include <vector>

// One series: a call to time, and what each call took.
struct Probe {
    Probe(QString name, std::function<void()> call, bool timeCpu = false)
        : name(std::move(name)), call(std::move(call)), timeCpu(timeCpu)
    {
    }

    QString name;
    std::function<void()> call;
    bool timeCpu;               // also take the processor time of the calling thread
    std::vector<double> wallNs; // one sample per call
    std::vector<double> cpuNs;

    Summary wall() const { return summarize(wallNs); }
    Summary cpu() const { return summarize(cpuNs); }
};

struct Schedule {
    int rounds = 1;     // chunks of each probe that are kept
    int chunk = 1;      // calls per chunk
    int warmUpMs = 100; // rounds before them that are not kept: at least one, and this long
};

// Runs the probes in turn, rounds of a chunk of each: warm-up rounds first,
// then `schedule.rounds` that are kept. `between` runs after every chunk,
// outside the timing (e.g. to empty a record).
void runInterleaved(const std::vector<Probe *> &probes, Schedule schedule,
                    const std::function<void()> &between = std::function<void()>());

// Processor time of the calling thread, in nanoseconds.
double threadCpuNs();
