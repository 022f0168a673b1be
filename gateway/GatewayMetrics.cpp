#include "GatewayMetrics.h"

#include <QHash>
#include <QSet>

#include <prometheus/counter.h>
#include <prometheus/exposer.h>
#include <prometheus/gauge.h>
#include <prometheus/histogram.h>
#include <prometheus/registry.h>

#include <exception>
#include <mutex>

namespace {
using prometheus::Counter;
using prometheus::Family;

Family<Counter> &family(prometheus::Registry &registry, const char *name, const char *help)
{
    return prometheus::BuildCounter().Name(name).Help(help).Register(registry);
}

// Fine at the low end, where a healthy schedule lies, so that a median of a
// millisecond or two can be told from one of ten; a whole interval at the top.
const prometheus::Histogram::BucketBoundaries kLatenessBounds{0.0005, 0.001, 0.0015, 0.002, 0.003, 0.005, 0.0075, 0.01,
                                                              0.015,  0.02,  0.03,   0.05,  0.075, 0.1,   0.15,   0.2,
                                                              0.3,    0.5,   1,      2,     5,     10};
} // namespace

struct GatewayMetrics::Private {
    std::shared_ptr<prometheus::Registry> registry = std::make_shared<prometheus::Registry>();
    Family<Counter> &cycles = family(*registry, "sorvik_gateway_cycles_total", "Scan cycles run, per controller");
    Family<Counter> &overruns =
        family(*registry, "sorvik_gateway_overruns_total", "Cycles skipped because the one before overran");
    Family<Counter> &requests =
        family(*registry, "sorvik_gateway_requests_total", "Requests sent to the controller (blocks and single tags)");
    Family<Counter> &failures =
        family(*registry, "sorvik_gateway_failures_total", "Tags read or written with a failure, by drive status");
    Family<Counter> &reconnects =
        family(*registry, "sorvik_gateway_reconnects_total", "Reconnections after the controller was lost");
    Family<Counter> &writes =
        family(*registry, "sorvik_gateway_writes_total", "Write commands carried out, by outcome");
    Family<Counter> &refused =
        family(*registry, "sorvik_gateway_writes_refused_total", "Write commands refused, by reason");
    Family<Counter> &messages =
        family(*registry, "sorvik_gateway_messages_total",
               "Data messages: published (acknowledged by the broker), buffered, replayed, dropped");
    Counter &published = messages.Add({{"outcome", "published"}});
    Counter &buffered = messages.Add({{"outcome", "buffered"}});
    Counter &replayed = messages.Add({{"outcome", "replayed"}});
    Counter &dropped = messages.Add({{"outcome", "dropped"}});
    prometheus::Histogram &lateness =
        prometheus::BuildHistogram()
            .Name("sorvik_gateway_scan_lateness_seconds")
            .Help("How long after its scheduled time each scan of a connected controller started")
            .Register(*registry)
            .Add({}, kLatenessBounds);
    prometheus::Gauge &largest = prometheus::BuildGauge()
                                     .Name("sorvik_gateway_scan_lateness_max_seconds")
                                     .Help("The largest lateness of a scan cycle start since the gateway started")
                                     .Register(*registry)
                                     .Add({});
    std::unique_ptr<prometheus::Exposer> exposer;

    // Totals for the heartbeat, beside the per-controller series.
    std::mutex mutex; // not QMutex: ThreadSanitizer sees through this one
    QHash<QString, double> totals;
    QHash<int, double> failuresByStatus;
    QSet<QString> refusedReasons;
    double latenessMax = 0;

    void add(Family<Counter> &family, const prometheus::Labels &labels, const QString &total, double amount)
    {
        family.Add(labels).Increment(amount);
        std::lock_guard<std::mutex> lock(mutex);
        totals[total] += amount;
    }
    void add(Counter &counter, const QString &total, double amount)
    {
        counter.Increment(amount);
        std::lock_guard<std::mutex> lock(mutex);
        totals[total] += amount;
    }
};

namespace {
prometheus::Labels controllerLabel(const QString &controller)
{
    return {{"controller", controller.toStdString()}};
}
} // namespace

GatewayMetrics::GatewayMetrics() : d(std::make_unique<Private>()) {}

GatewayMetrics::~GatewayMetrics() = default;

void GatewayMetrics::addCycle(const QString &controller)
{
    d->add(d->cycles, controllerLabel(controller), QStringLiteral("cycles"), 1);
}

void GatewayMetrics::addOverrun(const QString &controller)
{
    d->add(d->overruns, controllerLabel(controller), QStringLiteral("overruns"), 1);
}

void GatewayMetrics::addRequests(const QString &controller, int requests)
{
    if (requests > 0)
        d->add(d->requests, controllerLabel(controller), QStringLiteral("requests"), requests);
}

void GatewayMetrics::addFailure(const QString &controller, int status)
{
    d->failures.Add({{"controller", controller.toStdString()}, {"status", std::to_string(status)}}).Increment();
    std::lock_guard<std::mutex> lock(d->mutex);
    d->failuresByStatus[status] += 1;
}

void GatewayMetrics::addReconnect(const QString &controller)
{
    d->add(d->reconnects, controllerLabel(controller), QStringLiteral("reconnects"), 1);
}

void GatewayMetrics::addWrite(const QString &controller, bool done)
{
    d->add(d->writes, {{"controller", controller.toStdString()}, {"outcome", done ? "done" : "failed"}},
           done ? QStringLiteral("writesDone") : QStringLiteral("writesFailed"), 1);
}

bool GatewayMetrics::addWriteRefused(const QString &reason)
{
    d->add(d->refused, {{"reason", reason.toStdString()}}, QStringLiteral("writesRefused"), 1);
    std::lock_guard<std::mutex> lock(d->mutex);
    if (d->refusedReasons.contains(reason))
        return false;
    d->refusedReasons.insert(reason);
    return true;
}

void GatewayMetrics::addLateness(double seconds)
{
    seconds = qMax(0.0, seconds);
    d->lateness.Observe(seconds);
    std::lock_guard<std::mutex> lock(d->mutex);
    if (seconds > d->latenessMax) {
        d->latenessMax = seconds;
        d->largest.Set(seconds);
    }
}

void GatewayMetrics::addPublished(int messages)
{
    d->add(d->published, QStringLiteral("published"), messages);
}

void GatewayMetrics::addBuffered(int messages)
{
    d->add(d->buffered, QStringLiteral("buffered"), messages);
}

void GatewayMetrics::addReplayed(int messages)
{
    d->add(d->replayed, QStringLiteral("replayed"), messages);
}

void GatewayMetrics::addDropped(int messages)
{
    d->add(d->dropped, QStringLiteral("dropped"), messages);
}

QJsonObject GatewayMetrics::snapshot() const
{
    std::lock_guard<std::mutex> lock(d->mutex);
    QJsonObject out;
    // Every counter is there from the start, zero until it counts.
    for (const char *name : {"cycles", "overruns", "requests", "reconnects", "writesDone", "writesFailed",
                             "writesRefused", "published", "buffered", "replayed", "dropped"})
        out.insert(QLatin1String(name), qint64(d->totals.value(QLatin1String(name))));
    QJsonObject failures;
    for (auto it = d->failuresByStatus.cbegin(); it != d->failuresByStatus.cend(); ++it)
        failures.insert(QString::number(it.key()), qint64(it.value()));
    out.insert(QStringLiteral("failures"), failures);
    return out;
}

bool GatewayMetrics::serve(const QString &address, QString *error)
{
    try {
        auto exposer = std::make_unique<prometheus::Exposer>(address.toStdString(), 1);
        exposer->RegisterCollectable(d->registry);
        d->exposer = std::move(exposer);
        return true;
    } catch (const std::exception &e) {
        // The reason alone: the caller says what it was starting.
        if (error)
            *error = QString::fromLocal8Bit(e.what());
        return false;
    }
}
