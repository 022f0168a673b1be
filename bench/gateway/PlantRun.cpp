#include "PlantRun.h"

#include "BenchBroker.h"
#include "GatewayUnderTest.h"
#include "MqttCounter.h"
#include "PlantSimulators.h"
#include "Samples.h"

#include <QDateTime>
#include <QThread>

#include <map>
#include <memory>
#include <set>
#include <utility>

QStringList PlantFigures::missedGoals() const
{
    if (!failure.isEmpty())
        return {failure};
    // Below 200 controllers the goals of 200 stand.
    const double scale = qMax(1.0, controllers / 200.0);
    QStringList missed;
    if (lateP99Ms > 50)
        missed << QStringLiteral("lateness p99 > 50 ms");
    if (overruns > 0)
        missed << QStringLiteral("overruns");
    if (missing > 0)
        missed << QStringLiteral("missing");
    if (cpuPerSecond > 0.5 * scale)
        missed << QStringLiteral("processor > %1 core").arg(0.5 * scale, 0, 'f', 2);
    if (residentMb > 200 * scale)
        missed << QStringLiteral("resident > %1 MB").arg(200 * scale, 0, 'f', 0);
    if (receiptP99Ms > 50)
        missed << QStringLiteral("receipt p99 > 50 ms");
    if (!cleanStop)
        missed << QStringLiteral("no clean stop");
    return missed;
}

PlantFigures runPlant(const PlantSetup &setup, PlantSimulators &sims, BenchBroker &broker, int controllers,
                      int poolThreads, int dead)
{
    PlantFigures figures;
    figures.controllers = controllers;
    figures.poolThreads = poolThreads;
    figures.dead = dead;
    QString why;
    if (!sims.grow(controllers - dead, &why)) {
        figures.failure = why;
        return figures;
    }
    QStringList connections;
    for (int k = 0; k < controllers - dead; ++k)
        connections << sims.connectText(k);
    // The dead: silent simulators on addresses of their own, spread over
    // the list so that a pool puts them on different threads.
    std::vector<std::unique_ptr<SorvikSimulator>> silent;
    SimFaults faults;
    faults.silent = true;
    for (int k = 0; k < dead; ++k) {
        silent.push_back(std::make_unique<SorvikSimulator>());
        const QString host = sims.address(0).section(QLatin1Char('.'), 0, 1) + QStringLiteral(".250.%1").arg(k + 1);
        const quint16 port = silent.back()->startUdp(QHostAddress(host), 0);
        silent.back()->setFaults(faults);
        connections.insert(qMin(connections.size(), (k + 1) * controllers / (dead + 1)),
                           QStringLiteral("%1:%2").arg(host).arg(port));
    }

    GatewayUnderTest gateway;
    MqttCounter counter(gateway.name());
    if (!counter.start(broker.port(), &why) ||
        !gateway.start(setup.gatewayProgram, setup.library, connections, broker.port(), poolThreads, &why)) {
        figures.failure = why;
        return figures;
    }
    // Start-up (the configuration of N x 1000 tags is read and planned) and
    // the first cycles are not measured.
    if (!gateway.waitForCycles(controllers - dead, setup.warmCycles + 1, 60000 + 200 * controllers)) {
        figures.failure = QStringLiteral("the gateway did not reach its cycles");
        return figures;
    }
    QThread::msleep(300);
    const GatewayReading before = gateway.read();
    const double windowStart = double(QDateTime::currentMSecsSinceEpoch());
    QThread::sleep(ulong(setup.windowSeconds));
    const GatewayReading after = gateway.read();
    const double windowEnd = double(QDateTime::currentMSecsSinceEpoch());
    figures.cleanStop = gateway.stop();
    QThread::msleep(setup.warmCycles > 0 ? 1000 : 300); // the last messages and heartbeat on their way

    const double seconds = (windowEnd - windowStart) / 1000;
    figures.cpuPerSecond = (after.cpuSeconds - before.cpuSeconds) / seconds;
    figures.residentMb = after.residentMb;
    figures.overruns = qint64(after.metrics.value(QStringLiteral("sorvik_gateway_overruns_total")) -
                              before.metrics.value(QStringLiteral("sorvik_gateway_overruns_total")));
    figures.lateMedianMs = latenessQuantileMs(before, after, 0.5);
    figures.lateP99Ms = latenessQuantileMs(before, after, 0.99);
    figures.lateMaxMs = after.metrics.value(QStringLiteral("sorvik_gateway_scan_lateness_max_seconds")) * 1000;
    // Interpolated within a bucket, a quantile can come out above the largest
    // lateness seen; it is at most that.
    figures.lateMedianMs = qMin(figures.lateMedianMs, figures.lateMaxMs);
    figures.lateP99Ms = qMin(figures.lateP99Ms, figures.lateMaxMs);

    std::vector<double> receipt;
    qint64 values = 0;
    std::map<std::pair<int, qint64>, std::set<qint64>> seqs; // (stream, boot) -> numbers
    const std::vector<Receipt> receipts = counter.receipts();
    for (const Receipt &r : receipts) {
        seqs[{r.stream, r.boot}].insert(r.seq);
        if (r.cycleStartMs < windowStart || r.cycleStartMs >= windowEnd)
            continue;
        values += r.values;
        receipt.push_back(r.receivedMs - r.cycleStartMs);
    }
    figures.tagsPerSecond = double(values) / seconds;
    const Summary delays = summarize(receipt);
    figures.receiptMedianMs = delays.median;
    figures.receiptP99Ms = delays.p99;
    qint64 distinct = 0;
    for (const auto &stream : seqs) {
        distinct += qint64(stream.second.size());
        // Numbers run from 1 per boot: a gap is a message lost on the way.
        figures.missing += *stream.second.rbegin() - qint64(stream.second.size());
    }
    // A loss at the very end of a stream leaves no gap; the last heartbeat's
    // count of what the broker took tells it. A stream never seen at all is
    // missing too.
    figures.missing += qMax<qint64>(0, counter.lastPublished() - distinct);
    figures.missing += qMax(0, controllers - counter.streams());
    return figures;
}
