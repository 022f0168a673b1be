#pragma once

// The soak's MQTT subscriber (libmosquitto, on its own thread): a persistent
// session at QoS 1, so that the broker keeps what arrives while it is away
// across a restart of the broker, and an inbox the checker empties.
#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>

#include <mosquitto.h>

#include <atomic>
#include <mutex>

class ChaosSubscriber
{
public:
    struct Message {
        QString topic;
        QByteArray payload;
        qint64 receivedMs = 0; // since the epoch
    };

    ChaosSubscriber(const QString &clientId, const QString &filter) : m_filter(filter.toUtf8())
    {
        mosquitto_lib_init();
        m_client = mosquitto_new(clientId.toUtf8().constData(), false, this);
        mosquitto_reconnect_delay_set(m_client, 1, 1, false);
        mosquitto_connect_callback_set(m_client, &ChaosSubscriber::onConnect);
        mosquitto_subscribe_callback_set(m_client, [](mosquitto *, void *self, int, int, const int *) {
            static_cast<ChaosSubscriber *>(self)->m_subscribed = true;
        });
        mosquitto_message_callback_set(m_client, &ChaosSubscriber::onMessage);
    }
    ~ChaosSubscriber()
    {
        mosquitto_disconnect(m_client);
        mosquitto_loop_stop(m_client, true);
        mosquitto_destroy(m_client);
        mosquitto_lib_cleanup();
    }
    ChaosSubscriber(const ChaosSubscriber &) = delete;
    ChaosSubscriber &operator=(const ChaosSubscriber &) = delete;

    bool start(int port)
    {
        return mosquitto_connect_async(m_client, "127.0.0.1", port, 5) == MOSQ_ERR_SUCCESS &&
               mosquitto_loop_start(m_client) == MOSQ_ERR_SUCCESS;
    }
    bool isSubscribed() const { return m_subscribed; }

    QList<Message> take()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        QList<Message> out;
        out.swap(m_inbox);
        return out;
    }

private:
    static void onConnect(mosquitto *client, void *self, int rc)
    {
        // The session keeps the subscription; asking again costs nothing and
        // covers a broker that lost it.
        if (rc == 0)
            mosquitto_subscribe(client, nullptr, static_cast<ChaosSubscriber *>(self)->m_filter.constData(), 1);
    }
    static void onMessage(mosquitto *, void *self, const mosquitto_message *message)
    {
        auto *subscriber = static_cast<ChaosSubscriber *>(self);
        Message copy{QString::fromUtf8(message->topic),
                     QByteArray(static_cast<const char *>(message->payload), message->payloadlen),
                     QDateTime::currentMSecsSinceEpoch()};
        std::lock_guard<std::mutex> lock(subscriber->m_mutex);
        subscriber->m_inbox << copy;
    }

    QByteArray m_filter;
    mosquitto *m_client = nullptr;
    std::atomic<bool> m_subscribed{false};
    std::mutex m_mutex;
    QList<Message> m_inbox;
};
