#pragma once

// The subscriber at the far end of the benchmark: takes every data message of
// one gateway from the broker (QoS 1) on libmosquitto's own thread and notes
// its stream, boot, number, cycle start, the moment it arrived and how many
// good values it carried. It reads the few fields it needs straight from the
// text, so that counting costs the machine little beside the gateway.
#include <QByteArray>
#include <QString>

#include <mutex>
#include <vector>

struct mosquitto;

struct Receipt {
    int stream = 0; // index of the topic, in order of first arrival
    qint64 boot = 0;
    qint64 seq = 0;
    double cycleStartMs = 0; // ms since the epoch, as the message says
    double receivedMs = 0;   // ms since the epoch, on arrival
    int values = 0;          // good values
};

class MqttCounter
{
public:
    explicit MqttCounter(const QString &gateway);
    ~MqttCounter();
    MqttCounter(const MqttCounter &) = delete;
    MqttCounter &operator=(const MqttCounter &) = delete;

    // True once connected and subscribed.
    bool start(quint16 port, QString *why);
    std::vector<Receipt> receipts() const;
    int streams() const;
    // What the last heartbeat says the broker took; -1 before the first.
    qint64 lastPublished() const;

private:
    static void onConnect(mosquitto *client, void *self, int rc);
    static void onSubscribe(mosquitto *, void *self, int, int, const int *);
    static void onMessage(mosquitto *, void *self, const struct mosquitto_message *message);

    QByteArray m_dataFilter;
    QByteArray m_heartbeat;
    mosquitto *m_client = nullptr;
    bool m_started = false;
    mutable std::mutex m_mutex;
    int m_subscribed = 0;
    std::vector<Receipt> m_receipts;
    std::vector<QByteArray> m_topics;
    qint64 m_published = -1;
};
