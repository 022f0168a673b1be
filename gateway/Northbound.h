#pragma once

// The gateway's MQTT side: publishes what the pollers hand over, keeps data
// messages in the offline queue while the broker is away (or while older ones
// still wait there) and replays them oldest first, announces the gateway
// online and leaves a last will of offline, and passes write commands on.
//
// Threads: the members of GatewaySink may be called from any thread. The
// queue and the bookkeeping of what the broker has acknowledged live on a
// worker thread of their own; libmosquitto runs on its own thread and hands
// its news to that worker. open(), close() and the signals belong to the
// thread that made the Northbound.
#include "GatewayConfig.h"
#include "GatewaySink.h"

#include <QObject>
#include <QThread>

#include <atomic>
#include <memory>
#include <mutex>

class GatewayMetrics;
class MqttClient;

class Northbound : public QObject, public GatewaySink
{
    Q_OBJECT

public:
    Northbound(const GatewayConfig &config, GatewayMetrics *metrics, QObject *parent = nullptr);
    ~Northbound() override;

    // Opens the offline queue (an unusable file is refused with the reason,
    // or moved aside with startAfresh) and starts the MQTT client. A broker
    // that is not there yet is no error: data waits in the queue.
    bool open(QString *error, bool startAfresh = false);

    void publishData(const QString &topic, const QByteArray &payload) override;
    void publishStatus(const QString &topic, const QByteArray &payload) override;
    void publishEvent(const QString &topic, const QByteArray &payload) override;

    bool isConnected() const { return m_connected; }
    // Data messages not yet acknowledged by the broker: queued on disk or on their way.
    qint64 backlog() const { return m_backlog; }

    // Publishes what it can within the time (the queue included), then the
    // retained offline, and disconnects. What was not acknowledged stays in
    // the queue for the next start. Data handed over afterwards is refused and
    // counted as dropped.
    void close(int flushTimeoutMs);

    // Closes the broker connection without a goodbye, as a crash would, so
    // that the broker sends the last will; the client comes back by itself.
    void dropConnection();

signals:
    // A command on sorvik/<gateway>/<controller>/write, for that controller's poller.
    void writeCommand(const QString &controller, const QByteArray &payload);
    void connectionChanged(bool connected);

private:
    class Worker;

    void stopWorker();
    // Hands a message to the worker's method unless close() began; false then.
    bool post(void (Worker::*method)(const QString &, const QByteArray &), const QString &topic,
              const QByteArray &payload);
    void onConnection(bool connected);
    void onMessage(const QString &topic, const QByteArray &payload, bool retained);

    GatewayConfig m_config;
    GatewayMetrics *m_metrics;
    QThread m_thread;
    Worker *m_worker = nullptr;
    std::unique_ptr<MqttClient> m_client;
    std::atomic<bool> m_connected{false};
    std::atomic<qint64> m_backlog{0};
    std::atomic<bool> m_offlineAcknowledged{false};
    // Guards the hand-over to the worker against close().
    std::mutex m_acceptMutex;
    bool m_accepting = false;
};
