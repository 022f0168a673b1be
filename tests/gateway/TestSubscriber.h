#pragma once

// An MQTT client of the test itself (libmosquitto): subscribes to topic
// filters and collects what the broker delivers, on libmosquitto's own
// thread, for the test to look at; it can also publish (write commands).
#include <QByteArray>
#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QList>
#include <QString>
#include <QStringList>
#include <QThread>
#include <QUuid>

#include <mosquitto.h>

#include <atomic>
#include <functional>
#include <mutex>

class TestSubscriber
{
public:
    struct Message {
        QString topic;
        QByteArray payload;
        bool retained = false;
        int qos = 0;
    };

    // A persistent session (cleanSession false) keeps its subscriptions and
    // queued messages at a broker with persistence across its restarts.
    explicit TestSubscriber(bool cleanSession = true)
    {
        static std::once_flag once;
        std::call_once(once, [] { mosquitto_lib_init(); });
        const QByteArray id = "test-" + QUuid::createUuid().toByteArray(QUuid::WithoutBraces).left(18);
        m_client = mosquitto_new(id.constData(), cleanSession, this);
        mosquitto_reconnect_delay_set(m_client, 1, 1, false);
        mosquitto_connect_callback_set(m_client, &TestSubscriber::onConnect);
        mosquitto_subscribe_callback_set(m_client, &TestSubscriber::onSubscribe);
        mosquitto_message_callback_set(m_client, &TestSubscriber::onMessage);
    }
    ~TestSubscriber()
    {
        if (m_started) {
            mosquitto_disconnect(m_client);
            mosquitto_loop_stop(m_client, false);
        }
        mosquitto_destroy(m_client);
    }
    TestSubscriber(const TestSubscriber &) = delete;
    TestSubscriber &operator=(const TestSubscriber &) = delete;

    void setCredentials(const QString &user, const QString &password)
    {
        mosquitto_username_pw_set(m_client, user.toUtf8().constData(), password.toUtf8().constData());
    }

    // Speaks TLS, trusting the certificate authority in this file, with a
    // client certificate when given.
    void setTls(const QString &caFile, const QString &certFile = QString(), const QString &keyFile = QString())
    {
        const QByteArray cert = certFile.toLocal8Bit();
        const QByteArray key = keyFile.toLocal8Bit();
        mosquitto_tls_set(m_client, caFile.toLocal8Bit().constData(), nullptr,
                          cert.isEmpty() ? nullptr : cert.constData(), key.isEmpty() ? nullptr : key.constData(),
                          nullptr);
    }

    // Connects and subscribes to every filter with QoS 1; true once the broker
    // has acknowledged the connection and every subscription, so nothing
    // published afterwards is missed.
    bool connectAndSubscribe(const QString &host, int port, const QStringList &filters, int timeoutMs = 5000)
    {
        m_filters = filters;
        if (mosquitto_connect_async(m_client, host.toUtf8().constData(), port, 30) != MOSQ_ERR_SUCCESS)
            return false;
        if (mosquitto_loop_start(m_client) != MOSQ_ERR_SUCCESS)
            return false;
        m_started = true;
        return waitFor([this] { return m_connected && m_subscribed.load() >= m_filters.size(); }, timeoutMs);
    }

    bool publish(const QString &topic, const QByteArray &payload, int qos = 1, bool retain = false)
    {
        return mosquitto_publish(m_client, nullptr, topic.toUtf8().constData(), payload.size(), payload.constData(),
                                 qos, retain) == MOSQ_ERR_SUCCESS;
    }

    QList<Message> messages() const
    {
        // A copy of its own: a shared one would be grown or freed by
        // libmosquitto's thread after the lock, through Qt's reference count alone.
        std::lock_guard<std::mutex> lock(m_mutex);
        QList<Message> out = m_messages;
        out.detach();
        return out;
    }
    QList<Message> messages(const QString &topic) const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        QList<Message> out;
        for (const Message &message : m_messages)
            if (message.topic == topic)
                out << message;
        return out;
    }
    int count(const QString &topic) const { return messages(topic).size(); }

    // Spins the Qt event loop until the condition holds or the time is up.
    static bool waitFor(const std::function<bool()> &condition, int timeoutMs)
    {
        const QDeadlineTimer deadline(timeoutMs);
        while (!condition()) {
            if (deadline.hasExpired())
                return false;
            QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
            QThread::msleep(5);
        }
        return true;
    }

private:
    static void onConnect(mosquitto *client, void *self, int rc)
    {
        if (rc != 0)
            return;
        auto *subscriber = static_cast<TestSubscriber *>(self);
        subscriber->m_connected = true;
        // Subscriptions go again after every reconnection (a clean session forgets them).
        subscriber->m_subscribed = 0;
        for (const QString &filter : qAsConst(subscriber->m_filters)) // no detach: the test thread reads it
            mosquitto_subscribe(client, nullptr, filter.toUtf8().constData(), 1);
    }
    static void onSubscribe(mosquitto *, void *self, int, int, const int *)
    {
        ++static_cast<TestSubscriber *>(self)->m_subscribed;
    }
    static void onMessage(mosquitto *, void *self, const mosquitto_message *message)
    {
        auto *subscriber = static_cast<TestSubscriber *>(self);
        Message copy;
        copy.topic = QString::fromUtf8(message->topic);
        copy.payload = QByteArray(static_cast<const char *>(message->payload), message->payloadlen);
        copy.retained = message->retain;
        copy.qos = message->qos;
        std::lock_guard<std::mutex> lock(subscriber->m_mutex);
        subscriber->m_messages << copy;
    }

    mosquitto *m_client = nullptr;
    QStringList m_filters; // written before the loop starts, read only on its thread afterwards
    std::atomic<bool> m_connected{false};
    std::atomic<int> m_subscribed{0};
    bool m_started = false;
    // std::mutex rather than QMutex: ThreadSanitizer sees through it.
    mutable std::mutex m_mutex;
    QList<Message> m_messages;
};
