#include "Northbound.h"

#include "GatewayMetrics.h"
#include "MqttClient.h"
#include "OfflineBuffer.h"
#include "Topics.h"

#include <QDeadlineTimer>
#include <QHash>
#include <QLoggingCategory>

#include <algorithm>

namespace {
Q_LOGGING_CATEGORY(lcNorth, "sorvik.gateway.north")

// Replayed messages on their way at once: enough to keep the link busy,
// few enough that a broken connection leaves little to send twice.
constexpr int kReplayWindow = 100;

const QByteArray kOnline = QByteArrayLiteral("online");
const QByteArray kOffline = QByteArrayLiteral("offline");
} // namespace

// Everything that touches the offline queue, on the worker thread, one
// call at a time: the rule "a data message goes live only when nothing of
// its kind waits on disk" needs no lock there.
class Northbound::Worker : public QObject
{
public:
    Worker(const GatewayConfig &config, GatewayMetrics *metrics, std::atomic<qint64> *backlog,
           std::atomic<bool> *offlineAcknowledged)
        : m_config(config), m_metrics(metrics), m_backlog(backlog), m_offlineAcknowledged(offlineAcknowledged),
          m_buffer(config.buffer.path, config.buffer.maxBytes, config.buffer.maxFileBytes)
    {
    }

    void setClient(MqttClient *client) { m_client = client; }

    bool openBuffer(bool startAfresh, QString *error)
    {
        if (!m_buffer.open(error, startAfresh))
            return false;
        updateBacklog();
        return true;
    }

    void data(const QString &topic, const QByteArray &payload)
    {
        // Live only when nothing waits on disk: otherwise this message would
        // overtake older ones of its stream.
        if (m_connected && m_buffer.count() == 0) {
            int mid = 0;
            if (m_client->publish(topic, payload, m_config.broker.qos, false, &mid)) {
                m_inflight.insert(mid, {false, m_config.broker.qos, ++m_order, {0, topic, payload}});
                if (m_config.broker.qos > 0)
                    ++m_live;
                endDropEpisode();
                updateBacklog();
                return;
            }
        }
        enqueue(topic, payload);
        pump();
        updateBacklog();
    }

    // The latest state per topic, sent now if the broker is there and again
    // at every connection, so that a retained state is never stale.
    void status(const QString &topic, const QByteArray &payload)
    {
        m_statuses.insert(topic, payload);
        if (m_connected)
            m_client->publish(topic, payload, 1, true);
    }

    // Heartbeats and write replies pass: nobody wants an old one later.
    void passEvent(const QString &topic, const QByteArray &payload)
    {
        if (!m_connected || !m_client->publish(topic, payload, m_config.broker.qos, false))
            qCDebug(lcNorth).noquote() << QStringLiteral("no broker: %1 not sent").arg(topic);
    }

    void connection(bool connected)
    {
        m_connected = connected;
        if (!connected) {
            forgetUnconfirmedQos0();
            return;
        }
        // Listening before saying online: whoever waits for online may write.
        m_client->subscribe(Topics::writeFilter(m_config.name), 1);
        m_client->publish(Topics::gatewayStatus(m_config.name), kOnline, 1, true);
        for (auto it = m_statuses.cbegin(); it != m_statuses.cend(); ++it)
            m_client->publish(it.key(), it.value(), 1, true);
        if (m_buffer.count() > 0)
            qCInfo(lcNorth).noquote() << QStringLiteral("replaying %1 queued messages").arg(m_buffer.count());
        pump();
    }

    void acknowledged(int mid)
    {
        if (mid == m_offlineMid)
            *m_offlineAcknowledged = true;
        const auto it = m_inflight.find(mid);
        if (it == m_inflight.end())
            return; // a status or an event
        const Pending pending = it.value();
        m_inflight.erase(it);
        if (!pending.replay && pending.qos > 0)
            --m_live;
        if (pending.replay) {
            m_buffer.remove(pending.entry);
            --m_replaying;
            count(&GatewayMetrics::addReplayed);
            if (m_buffer.count() == 0)
                endDropEpisode();
        }
        count(&GatewayMetrics::addPublished);
        pump();
        updateBacklog();
    }

    void publishOffline()
    {
        int mid = 0;
        if (m_connected && m_client->publish(Topics::gatewayStatus(m_config.name), kOffline, 1, true, &mid))
            m_offlineMid = mid;
        else
            *m_offlineAcknowledged = true; // nobody to tell; the broker already sent the will
    }

    // At the end: live messages the broker never acknowledged go to the
    // queue, so the next start sends them (perhaps twice: (boot, seq) in
    // the payload tells a repeat).
    void finish()
    {
        QList<Pending> unacknowledged;
        for (const Pending &pending : qAsConst(m_inflight))
            if (!pending.replay)
                unacknowledged << pending;
        std::sort(unacknowledged.begin(), unacknowledged.end(),
                  [](const Pending &a, const Pending &b) { return a.order < b.order; });
        m_inflight.clear();
        m_live = 0;
        m_replaying = 0;
        for (const Pending &pending : qAsConst(unacknowledged))
            enqueue(pending.entry.topic, pending.entry.payload);
        if (!unacknowledged.isEmpty())
            qCWarning(lcNorth).noquote()
                << QStringLiteral("%1 messages were not acknowledged before the end; they wait in the offline queue")
                       .arg(unacknowledged.size());
        if (m_buffer.count() > 0)
            qCInfo(lcNorth).noquote()
                << QStringLiteral("%1 messages wait in the offline queue for the next start").arg(m_buffer.count());
        endDropEpisode();
        m_buffer.close();
        updateBacklog();
    }

private:
    struct Pending {
        bool replay = false;
        int qos = 1;
        qint64 order = 0;
        OfflineBuffer::Entry entry;
    };

    void count(void (GatewayMetrics::*counter)(int), int messages = 1)
    {
        if (m_metrics && messages > 0)
            (m_metrics->*counter)(messages);
    }

    void enqueue(const QString &topic, const QByteArray &payload)
    {
        int dropped = 0;
        const bool queued = m_buffer.isOpen() && m_buffer.append(topic, payload, &dropped);
        if (queued)
            count(&GatewayMetrics::addBuffered);
        // A queue that cannot take a message loses it: counted, and said once
        // per episode however many it costs (the sum when the queue drains).
        const int lost = dropped + (queued ? 0 : 1);
        if (lost == 0)
            return;
        if (m_droppedInEpisode == 0) {
            if (m_buffer.diskFull())
                qCWarning(lcNorth).noquote() << QStringLiteral("offline queue %1 cannot grow (disk full or "
                                                               "max_file_bytes reached): dropping the oldest messages")
                                                    .arg(m_config.buffer.path);
            else if (queued)
                qCWarning(lcNorth).noquote()
                    << QStringLiteral("offline queue full (%1 bytes): dropping the oldest messages")
                           .arg(m_config.buffer.maxBytes);
            else
                qCWarning(lcNorth).noquote()
                    << QStringLiteral("offline queue refused a message of %1: %2; dropping messages until it takes "
                                      "them again")
                           .arg(topic, m_buffer.lastError());
        }
        m_droppedInEpisode += lost;
        count(&GatewayMetrics::addDropped, lost);
    }

    void endDropEpisode()
    {
        if (m_droppedInEpisode == 0)
            return;
        qCWarning(lcNorth).noquote()
            << QStringLiteral("%1 messages were dropped while the offline queue was full").arg(m_droppedInEpisode);
        m_droppedInEpisode = 0;
    }

    // Hands queued messages to the client, oldest first, with QoS 1. A row
    // leaves the disk only when the broker has acknowledged it; libmosquitto
    // sends again what was on its way when a connection broke, so the rows
    // handed out are not handed out twice. Live messages still on their way
    // are older than anything queued (live goes out only with an empty
    // queue): after a reconnection libmosquitto sends them again, and the
    // replay waits for their acknowledgement so that no stream is reordered.
    void pump()
    {
        while (m_connected && m_live == 0 && m_replaying < kReplayWindow) {
            const QList<OfflineBuffer::Entry> batch = m_buffer.after(m_handedOut, kReplayWindow - m_replaying);
            if (batch.isEmpty())
                return;
            for (const OfflineBuffer::Entry &entry : batch) {
                int mid = 0;
                if (!m_client->publish(entry.topic, entry.payload, 1, false, &mid))
                    return; // the next connection takes it up again
                m_inflight.insert(mid, {true, 1, ++m_order, entry});
                ++m_replaying;
                m_handedOut = entry.id;
                m_buffer.setHandedOutUpTo(entry.id);
            }
        }
    }

    // A QoS 0 message is confirmed only by being written to the socket; one
    // caught in a broken connection is never confirmed. The operator chose
    // at most once for these: they are let go, and said so.
    void forgetUnconfirmedQos0()
    {
        int forgotten = 0;
        for (auto it = m_inflight.begin(); it != m_inflight.end();) {
            if (!it->replay && it->qos == 0) {
                it = m_inflight.erase(it);
                ++forgotten;
            } else {
                ++it;
            }
        }
        if (forgotten > 0)
            qCInfo(lcNorth).noquote() << QStringLiteral(
                                             "%1 QoS 0 messages may not have reached the broker before it went away")
                                             .arg(forgotten);
        updateBacklog();
    }

    void updateBacklog()
    {
        // m_replaying counts the replayed entries of m_inflight, so the rest
        // are live: no walk over thousands of messages per message.
        *m_backlog = m_buffer.count() + (m_inflight.size() - m_replaying);
    }

    const GatewayConfig &m_config;
    GatewayMetrics *m_metrics;
    std::atomic<qint64> *m_backlog;
    std::atomic<bool> *m_offlineAcknowledged;
    MqttClient *m_client = nullptr;
    OfflineBuffer m_buffer;
    bool m_connected = false;
    QHash<int, Pending> m_inflight; // by libmosquitto's message id
    QHash<QString, QByteArray> m_statuses;
    qint64 m_order = 0;
    qint64 m_handedOut = 0;
    int m_replaying = 0; // queued messages on their way
    int m_live = 0;      // live QoS 1 or 2 messages on their way
    int m_offlineMid = -1;
    qint64 m_droppedInEpisode = 0;
};

Northbound::Northbound(const GatewayConfig &config, GatewayMetrics *metrics, QObject *parent)
    : QObject(parent), m_config(config), m_metrics(metrics)
{
    m_thread.setObjectName(QStringLiteral("north"));
}

Northbound::~Northbound()
{
    close(0);
}

bool Northbound::open(QString *error, bool startAfresh)
{
    if (m_worker)
        return true;
    m_worker = new Worker(m_config, m_metrics, &m_backlog, &m_offlineAcknowledged);
    m_worker->moveToThread(&m_thread);
    m_thread.start();
    bool opened = false;
    QMetaObject::invokeMethod(
        m_worker, [&] { opened = m_worker->openBuffer(startAfresh, error); }, Qt::BlockingQueuedConnection);
    if (!opened) {
        stopWorker();
        return false;
    }

    MqttClient::Will will{Topics::gatewayStatus(m_config.name), kOffline, 1, true};
    MqttClient::Handlers handlers;
    handlers.connection = [this](bool connected, int) { onConnection(connected); };
    handlers.published = [worker = m_worker](int mid) {
        QMetaObject::invokeMethod(
            worker, [worker, mid] { worker->acknowledged(mid); }, Qt::QueuedConnection);
    };
    handlers.message = [this](const QString &topic, const QByteArray &payload, bool retained) {
        onMessage(topic, payload, retained);
    };
    const QString clientId = m_config.broker.clientId.isEmpty() ? QStringLiteral("sorvik-gateway-") + m_config.name
                                                                : m_config.broker.clientId;
    m_client = std::make_unique<MqttClient>(m_config.broker, clientId, will, handlers);
    m_worker->setClient(m_client.get());
    {
        std::lock_guard<std::mutex> lock(m_acceptMutex);
        m_accepting = true;
    }
    if (!m_client->start(error)) {
        {
            std::lock_guard<std::mutex> lock(m_acceptMutex);
            m_accepting = false;
        }
        QMetaObject::invokeMethod(
            m_worker, [this] { m_worker->finish(); }, Qt::BlockingQueuedConnection);
        m_client.reset();
        stopWorker();
        return false;
    }
    return true;
}

bool Northbound::post(void (Worker::*method)(const QString &, const QByteArray &), const QString &topic,
                      const QByteArray &payload)
{
    std::lock_guard<std::mutex> lock(m_acceptMutex);
    if (!m_accepting)
        return false;
    QMetaObject::invokeMethod(
        m_worker, [worker = m_worker, method, topic, payload] { (worker->*method)(topic, payload); },
        Qt::QueuedConnection);
    return true;
}

void Northbound::publishData(const QString &topic, const QByteArray &payload)
{
    if (post(&Worker::data, topic, payload))
        return;
    qCWarning(lcNorth).noquote() << QStringLiteral("closed: a message of %1 dropped").arg(topic);
    if (m_metrics)
        m_metrics->addDropped();
}

void Northbound::publishStatus(const QString &topic, const QByteArray &payload)
{
    post(&Worker::status, topic, payload);
}

void Northbound::publishEvent(const QString &topic, const QByteArray &payload)
{
    post(&Worker::passEvent, topic, payload);
}

void Northbound::close(int flushTimeoutMs)
{
    if (!m_worker)
        return;
    {
        std::lock_guard<std::mutex> lock(m_acceptMutex);
        m_accepting = false;
    }
    // Sleeps rather than running this thread's events: the work is done on
    // the worker's and libmosquitto's threads.
    const QDeadlineTimer deadline(std::max(flushTimeoutMs, 0));
    const auto waitUntil = [](const QDeadlineTimer &until, const auto &done) {
        while (!done() && !until.hasExpired())
            QThread::msleep(10);
    };
    if (m_client) {
        // A broker that went away does not come back for our leaving: what
        // waits stays on disk.
        waitUntil(deadline, [this] { return m_backlog == 0 || !m_connected; });
        m_offlineAcknowledged = false;
        QMetaObject::invokeMethod(
            m_worker, [this] { m_worker->publishOffline(); }, Qt::BlockingQueuedConnection);
        // offline is worth a moment even when the data used all the time.
        waitUntil(QDeadlineTimer(std::max<qint64>(deadline.remainingTime(), 500)),
                  [this] { return m_offlineAcknowledged || !m_connected; });
        m_client->stop();
    }
    QMetaObject::invokeMethod(
        m_worker, [this] { m_worker->finish(); }, Qt::BlockingQueuedConnection);
    m_client.reset();
    stopWorker();
    if (m_connected.exchange(false))
        emit connectionChanged(false);
}

void Northbound::stopWorker()
{
    m_thread.quit();
    m_thread.wait();
    delete m_worker;
    m_worker = nullptr;
}

void Northbound::dropConnection()
{
    if (m_client)
        m_client->dropConnection();
}

// On libmosquitto's thread.
void Northbound::onConnection(bool connected)
{
    QMetaObject::invokeMethod(
        m_worker, [worker = m_worker, connected] { worker->connection(connected); }, Qt::QueuedConnection);
    if (m_connected.exchange(connected) != connected)
        QMetaObject::invokeMethod(
            this, [this, connected] { emit connectionChanged(connected); }, Qt::QueuedConnection);
}

// On libmosquitto's thread.
void Northbound::onMessage(const QString &topic, const QByteArray &payload, bool retained)
{
    const QStringList levels = topic.split('/');
    if (levels.size() != 4 || levels.at(3) != QLatin1String("write") || levels.at(1) != m_config.name)
        return;
    // A retained command would be carried out again at every connection:
    // only commands sent while we listen move anything.
    if (retained) {
        qCWarning(lcNorth).noquote() << QStringLiteral("retained write command on %1 ignored").arg(topic);
        return;
    }
    const QString controller = levels.at(2);
    QMetaObject::invokeMethod(
        this, [this, controller, payload] { emit writeCommand(controller, payload); }, Qt::QueuedConnection);
}
