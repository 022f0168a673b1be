#pragma once

// The gateway's counters, for the heartbeat message and a Prometheus
// /metrics endpoint. Every member is safe to call from any thread.
#include <QJsonObject>
#include <QString>

#include <memory>

class GatewayMetrics
{
public:
    GatewayMetrics();
    ~GatewayMetrics();
    GatewayMetrics(const GatewayMetrics &) = delete;
    GatewayMetrics &operator=(const GatewayMetrics &) = delete;

    // South, per controller.
    void addCycle(const QString &controller);
    void addOverrun(const QString &controller);
    void addRequests(const QString &controller, int requests);
    void addFailure(const QString &controller, int status); // one tag that came back with this status
    void addReconnect(const QString &controller);
    void addWrite(const QString &controller, bool done);
    // True for the first refusal of this reason, which alone is worth a warning.
    bool addWriteRefused(const QString &reason);
    // How long after its scheduled time a scan cycle started, over all controllers.
    void addLateness(double seconds);

    // North.
    void addPublished(int messages = 1);
    void addBuffered(int messages = 1);
    void addReplayed(int messages = 1);
    void addDropped(int messages = 1);

    // Totals over all controllers, by counter name; failures by status under "failures".
    QJsonObject snapshot() const;

    // Serves /metrics on "address:port" until destruction.
    bool serve(const QString &address, QString *error);

private:
    struct Private;
    std::unique_ptr<Private> d;
};
