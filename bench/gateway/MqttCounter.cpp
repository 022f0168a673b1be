#include "MqttCounter.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QThread>

#include <mosquitto.h>

#include <algorithm>
#include <chrono>

namespace {

// The number after `"key":` in a compact JSON text; -1 when absent.
qint64 numberAfter(const QByteArray &text, const char *key)
{
    const int at = text.indexOf(key);
    if (at < 0)
        return -1;
    int i = at + int(qstrlen(key));
    qint64 value = 0;
    for (; i < text.size() && text.at(i) >= '0' && text.at(i) <= '9'; ++i)
        value = value * 10 + (text.at(i) - '0');
    return value;
}

double nowMs()
{
    using namespace std::chrono;
    return double(duration_cast<microseconds>(system_clock::now().time_since_epoch()).count()) / 1000;
}

} // namespace

MqttCounter::MqttCounter(const QString &gateway)
    : m_dataFilter("sorvik/" + gateway.toUtf8() + "/+/+"), m_heartbeat("sorvik/" + gateway.toUtf8() + "/heartbeat")
{
    mosquitto_lib_init();
    m_client = mosquitto_new(nullptr, true, this);
    mosquitto_connect_callback_set(m_client, &MqttCounter::onConnect);
    mosquitto_subscribe_callback_set(m_client, &MqttCounter::onSubscribe);
    mosquitto_message_callback_set(m_client, &MqttCounter::onMessage);
}

MqttCounter::~MqttCounter()
{
    if (m_started) {
        mosquitto_disconnect(m_client);
        mosquitto_loop_stop(m_client, false);
    }
    mosquitto_destroy(m_client);
}

bool MqttCounter::start(quint16 port, QString *why)
{
    if (mosquitto_connect_async(m_client, "127.0.0.1", port, 60) != MOSQ_ERR_SUCCESS ||
        mosquitto_loop_start(m_client) != MOSQ_ERR_SUCCESS) {
        *why = QStringLiteral("the subscriber cannot reach the broker");
        return false;
    }
    m_started = true;
    QElapsedTimer waited;
    waited.start();
    while (waited.elapsed() < 10000) {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (m_subscribed >= 2)
                return true;
        }
        QThread::msleep(10);
    }
    *why = QStringLiteral("the subscriber was not subscribed within 10 s");
    return false;
}

std::vector<Receipt> MqttCounter::receipts() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_receipts;
}

int MqttCounter::streams() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return int(m_topics.size());
}

qint64 MqttCounter::lastPublished() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_published;
}

void MqttCounter::onConnect(mosquitto *client, void *self, int rc)
{
    auto *counter = static_cast<MqttCounter *>(self);
    if (rc != 0)
        return;
    mosquitto_subscribe(client, nullptr, counter->m_dataFilter.constData(), 1);
    mosquitto_subscribe(client, nullptr, counter->m_heartbeat.constData(), 1);
}

void MqttCounter::onSubscribe(mosquitto *, void *self, int, int, const int *)
{
    auto *counter = static_cast<MqttCounter *>(self);
    std::lock_guard<std::mutex> lock(counter->m_mutex);
    ++counter->m_subscribed;
}

void MqttCounter::onMessage(mosquitto *, void *self, const mosquitto_message *message)
{
    const double received = nowMs();
    auto *counter = static_cast<MqttCounter *>(self);
    const QByteArray topic(message->topic);
    const QByteArray payload =
        QByteArray::fromRawData(static_cast<const char *>(message->payload), message->payloadlen);
    if (topic == counter->m_heartbeat) {
        const qint64 published = numberAfter(payload, "\"published\":");
        std::lock_guard<std::mutex> lock(counter->m_mutex);
        counter->m_published = published;
        return;
    }
    if (topic.endsWith("/status") || topic.endsWith("/write"))
        return;
    Receipt receipt;
    receipt.receivedMs = received;
    receipt.boot = numberAfter(payload, "\"boot\":");
    receipt.seq = numberAfter(payload, "\"seq\":");
    const int time = payload.indexOf("\"time\":\"");
    if (time >= 0)
        receipt.cycleStartMs =
            double(QDateTime::fromString(QString::fromLatin1(payload.mid(time + 8, 24)), Qt::ISODateWithMs)
                       .toMSecsSinceEpoch());
    receipt.values = int(payload.count("{\"value\":"));
    std::lock_guard<std::mutex> lock(counter->m_mutex);
    const auto known = std::find(counter->m_topics.begin(), counter->m_topics.end(), topic);
    receipt.stream = int(known - counter->m_topics.begin());
    if (known == counter->m_topics.end())
        counter->m_topics.push_back(topic);
    counter->m_receipts.push_back(receipt);
}
