// Row 8: N drive objects on N threads, each made on its own thread and
// talking to a simulator of its own address, reading as fast as they can.
// Requests per second in total show whether anything shared serialises them.

#include "Rows.h"

#include "BenchContext.h"
#include "Controllers.h"
#include "Machine.h"

#include "host/CDriveBaseClass.h"
#include "host/RecordStatus.h"

#include <QElapsedTimer>
#include <QThread>

#include <sys/resource.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>

namespace {

constexpr int kFirstHost = 6;
constexpr int kMostDrives = 4;

// Starts the reading threads together once every drive is connected.
class StartLine
{
public:
    explicit StartLine(int workers) : m_missing(workers) {}
    // A worker is ready and waits for the start.
    void arriveAndWait()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        --m_missing;
        m_changed.notify_all();
        m_changed.wait(lock, [this] { return m_started; });
    }
    // Waits for every worker, runs `beforeStart`, then starts them.
    template <typename Work> void start(Work beforeStart)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [this] { return m_missing == 0; });
        beforeStart();
        m_started = true;
        m_changed.notify_all();
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    int m_missing;
    bool m_started = false;
};

// Processor time of the whole process, simulators included, in seconds.
double processCpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval &t) { return double(t.tv_sec) + double(t.tv_usec) / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

struct Round {
    double requestsPerSecond = 0;
    double coresBusy = 0;   // processor time of this process over wall time
    double machineBusy = 0; // the same of the whole machine, other work included
    std::vector<double> latencyNs;
    int failures = 0;
};

// One round: `drives` threads read for `runMs`, all starting together.
Round runRound(const DriveLoader &loader, const QList<UdpController *> &controllers, int drives, int runMs)
{
    StartLine start(drives);
    std::atomic<int> failures{0};
    std::vector<std::vector<double>> latencies(static_cast<size_t>(drives));
    std::atomic<qint64> deadline{0};
    QElapsedTimer clock;
    clock.start();
    std::vector<std::unique_ptr<QThread>> threads;
    for (int i = 0; i < drives; ++i) {
        const QString text = controllers.at(i)->connectText();
        std::vector<double> *samples = &latencies[size_t(i)];
        threads.emplace_back(QThread::create([&loader, &start, &failures, &deadline, &clock, text, samples] {
            QString why;
            CDriveBaseClass *drive = connectedDrive(loader, text, &why);
            start.arriveAndWait();
            if (!drive) {
                ++failures;
                return;
            }
            const QString tag = BenchTags::naiTag(1);
            QElapsedTimer call;
            while (clock.elapsed() < deadline.load()) {
                call.start();
                if (drive->ReadVariable(tag, TYPE_FLOAT, 40).status != RecordStatus::Ok)
                    ++failures;
                samples->push_back(double(call.nsecsElapsed()));
            }
            releaseDrive(drive);
        }));
        threads.back()->start();
    }
    // The deadline is set before anyone starts: a worker must never see it unset.
    qint64 begin = 0;
    double cpuBefore = 0;
    Machine::CoreTicks machineBefore;
    start.start([&] {
        cpuBefore = processCpuSeconds();
        machineBefore = Machine::coreTicks();
        begin = clock.elapsed();
        deadline = begin + runMs;
    });
    for (auto &thread : threads)
        thread->wait();
    const double seconds = double(clock.elapsed() - begin) / 1000;
    const double cpu = processCpuSeconds() - cpuBefore;
    const Machine::CoreTicks machineAfter = Machine::coreTicks();

    Round round;
    for (const std::vector<double> &samples : latencies)
        round.latencyNs.insert(round.latencyNs.end(), samples.begin(), samples.end());
    round.requestsPerSecond = seconds > 0 ? double(round.latencyNs.size()) / seconds : 0;
    round.coresBusy = seconds > 0 ? cpu / seconds : 0;
    const qint64 ticks = machineAfter.total - machineBefore.total;
    round.machineBusy =
        ticks > 0 ? double(machineAfter.busy - machineBefore.busy) / double(ticks) * Machine::cores() : 0;
    round.failures = failures;
    return round;
}

} // namespace

void Rows::scale(BenchContext &ctx)
{
    const QString what = QStringLiteral("scale");
    std::vector<std::unique_ptr<UdpController>> owned;
    QList<UdpController *> controllers;
    QString why;
    for (int i = 0; i < kMostDrives; ++i) {
        owned.push_back(std::make_unique<UdpController>(kFirstHost + i));
        if (!owned.back()->start(&why))
            return ctx.fail(8, what, why);
        controllers.append(owned.back().get());
    }

    const int counts[] = {1, 2, kMostDrives};
    std::vector<double> rates[3];
    std::vector<double> latencies[3];
    std::vector<double> coresBusy[3];
    std::vector<double> machineBusy[3];
    int failures[3] = {};
    for (int round = 0; round < ctx.pick(6, 1); ++round)
        for (int i = 0; i < 3; ++i) {
            const Round result = runRound(ctx.drives, controllers, counts[i], ctx.pick(400, 150));
            rates[i].push_back(result.requestsPerSecond);
            coresBusy[i].push_back(result.coresBusy);
            machineBusy[i].push_back(result.machineBusy);
            latencies[i].insert(latencies[i].end(), result.latencyNs.begin(), result.latencyNs.end());
            failures[i] += result.failures;
            for (UdpController *controller : qAsConst(controllers))
                controller->sim.clearFrames();
        }

    // For a rate the bad tail is the low one: the P99 column holds the rate
    // that 99 % of the rounds reached.
    auto rateSummary = [](const std::vector<double> &samples) {
        Summary summary = summarize(samples);
        summary.p99 = percentile(samples, 0.01);
        return summary;
    };
    for (int i = 0; i < 3; ++i) {
        Line line{8, QStringLiteral("%1 drive%2 on %1 thread%2").arg(counts[i]).arg(counts[i] == 1 ? "" : "s"),
                  Unit::Rate, rateSummary(rates[i])};
        if (i > 0) {
            line.floorName = QStringLiteral("1 drive on 1 thread");
            line.floor = rateSummary(rates[0]);
        }
        const Summary latency = summarize(latencies[i]);
        // The cores kept busy tell a full machine from drives that wait on each other.
        line.note = QStringLiteral("per read %1, p99 %2; cores busy: %3 this process, %4 of %5 all")
                        .arg(formatFigure(latency.median, Unit::Time), formatFigure(latency.p99, Unit::Time))
                        .arg(summarize(coresBusy[i]).median, 0, 'f', 2)
                        .arg(summarize(machineBusy[i]).median, 0, 'f', 2)
                        .arg(Machine::cores());
        if (failures[i])
            line.note += QStringLiteral("; %1 failed").arg(failures[i]);
        ctx.table.add(line);
    }
}
