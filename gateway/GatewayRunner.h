#pragma once

// The running gateway: its counters (and /metrics), the MQTT side, one poller
// per controller, the heartbeat, and the orderly stop. Lives on the main
// thread; the pollers run on threads of their own.
#include "GatewayConfig.h"
#include "GatewayMetrics.h"

#include <QDateTime>
#include <QHash>
#include <QObject>
#include <QTimer>

#include <memory>
#include <vector>

class ControllerPoller;
class Northbound;

class GatewayRunner : public QObject
{
    Q_OBJECT

public:
    // `libraryFile` is the drive library, already loaded once by the caller;
    // each poller makes its drive from it on its own thread.
    GatewayRunner(const GatewayConfig &config, const QString &libraryFile, QObject *parent = nullptr);
    ~GatewayRunner() override;

    // Serves /metrics if configured, opens the offline queue and the broker
    // connection, then starts polling. False with the reason when any of it
    // cannot start; nothing is left running then.
    bool start(bool startAfresh, QString *error);
    // Finishes the running cycles, sends a last heartbeat, flushes the queue
    // for up to `flushTimeoutMs` and says offline.
    void stop(int flushTimeoutMs);

private:
    void publishHeartbeat();
    void routeWrite(const QString &controller, const QByteArray &payload);

    GatewayConfig m_config;
    QString m_libraryFile;
    GatewayMetrics m_metrics;
    std::unique_ptr<Northbound> m_north;
    std::vector<std::unique_ptr<ControllerPoller>> m_pollers;
    QHash<QString, ControllerPoller *> m_pollerByName;
    QTimer m_heartbeat;
    QDateTime m_started;
    bool m_running = false;
};
