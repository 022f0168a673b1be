#pragma once

// Google Benchmark runs the rows that need no round trip. Repetitions of all
// benchmarks registered for one run are interleaved at random, so that noise
// of the machine falls on every side of a ratio alike.

#include <QMap>
#include <QString>
#include <QtGlobal>

#include <vector>

#ifdef SORVIK_HAVE_GOOGLE_BENCHMARK
#include <benchmark/benchmark.h>

namespace GoogleBench {

// Runs and then forgets the benchmarks registered so far. Per name, the real
// time per iteration of each repetition in nanoseconds; false with the first
// error in *error when a benchmark failed.
bool runRegistered(QMap<QString, std::vector<double>> *times, QString *error);

} // namespace GoogleBench
#endif
