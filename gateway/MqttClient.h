#pragma once

// A small wrapper of one libmosquitto client: connection settings, last will,
// a network thread of its own that reconnects for as long as it runs (also
// when the broker was not there at the start, or refused us), and plain
// callbacks.
// The callbacks run on libmosquitto's thread: whoever sets them hands the
// work on to its own thread. publish() may be called from any thread.
#include "GatewayConfig.h"

#include <QByteArray>
#include <QString>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

struct mosquitto;
struct mosquitto_message;

class MqttClient
{
public:
    struct Will {
        QString topic;
        QByteArray payload;
        int qos = 1;
        bool retain = true;
    };
    struct Handlers {
        std::function<void(bool connected, int reasonCode)> connection;
        std::function<void(int messageId)> published; // QoS 0: sent; QoS 1: acknowledged by the broker
        std::function<void(const QString &topic, const QByteArray &payload, bool retained)> message;
    };

    MqttClient(const BrokerConfig &config, const QString &clientId, const Will &will, const Handlers &handlers);
    ~MqttClient();
    MqttClient(const MqttClient &) = delete;
    MqttClient &operator=(const MqttClient &) = delete;

    // Sets the client up and starts its thread. A broker that is not there
    // yet is not an error: the thread keeps trying.
    bool start(QString *error);
    // Disconnects cleanly (the broker keeps the will to itself) and ends the thread.
    void stop();
    // Closes the socket without a goodbye, as a crash would: the broker sends
    // the will; the client then reconnects by itself.
    void dropConnection();

    // True when libmosquitto took the message (a QoS 1 or 2 one also without
    // a connection: it goes out at the next); messageId identifies its acknowledgement.
    bool publish(const QString &topic, const QByteArray &payload, int qos, bool retain, int *messageId = nullptr);
    bool subscribe(const QString &filter, int qos);

    static QString errorText(int code);

private:
    void run();
    void pause(int seconds);

    static void onConnect(mosquitto *, void *self, int rc);
    static void onDisconnect(mosquitto *, void *self, int rc);
    static void onPublish(mosquitto *, void *self, int mid);
    static void onMessage(mosquitto *, void *self, const mosquitto_message *message);

    BrokerConfig m_config;
    QString m_clientId;
    Will m_will;
    Handlers m_handlers;
    mosquitto *m_client = nullptr;
    std::thread m_thread;
    std::atomic<bool> m_stopping{false};
    std::atomic<int> m_attempts{0}; // failed attempts since the last good connection
    std::atomic<bool> m_connectedNow{false};
    std::atomic<bool> m_unreachableSaid{false};
    std::mutex m_pauseMutex;
    std::condition_variable m_pauseEnded;
};
