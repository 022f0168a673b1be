#include "MqttClient.h"

#include <QLoggingCategory>

#include <mosquitto.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include <algorithm>
#include <mutex>

namespace {
Q_LOGGING_CATEGORY(lcMqtt, "sorvik.gateway.mqtt")

// libmosquitto wants one initialisation per process, before any client.
void initialiseLibrary()
{
    static std::once_flag once;
    std::call_once(once, [] { mosquitto_lib_init(); });
}

bool failed(QString *error, const QString &message)
{
    if (error)
        *error = message;
    return false;
}
} // namespace

MqttClient::MqttClient(const BrokerConfig &config, const QString &clientId, const Will &will, const Handlers &handlers)
    : m_config(config), m_clientId(clientId), m_will(will), m_handlers(handlers)
{
}

MqttClient::~MqttClient()
{
    stop();
    if (m_client)
        mosquitto_destroy(m_client);
}

QString MqttClient::errorText(int code)
{
    if (code == MOSQ_ERR_ERRNO)
        return QString::fromLocal8Bit(strerror(errno));
    return QString::fromUtf8(mosquitto_strerror(code));
}

bool MqttClient::start(QString *error)
{
    initialiseLibrary();
    if (!m_client) {
        m_client = mosquitto_new(m_clientId.toUtf8().constData(), true, this);
        if (!m_client)
            return failed(error, QStringLiteral("cannot create the MQTT client: %1").arg(errorText(MOSQ_ERR_ERRNO)));
    }
    mosquitto_connect_callback_set(m_client, &MqttClient::onConnect);
    mosquitto_disconnect_callback_set(m_client, &MqttClient::onDisconnect);
    mosquitto_publish_callback_set(m_client, &MqttClient::onPublish);
    mosquitto_message_callback_set(m_client, &MqttClient::onMessage);
    // Our own thread runs the network loop (see run()).
    mosquitto_threaded_set(m_client, true);

    int rc = MOSQ_ERR_SUCCESS;
    if (!m_will.topic.isEmpty()) {
        rc = mosquitto_will_set(m_client, m_will.topic.toUtf8().constData(), m_will.payload.size(),
                                m_will.payload.constData(), m_will.qos, m_will.retain);
        if (rc != MOSQ_ERR_SUCCESS)
            return failed(error, QStringLiteral("cannot set the last will: %1").arg(errorText(rc)));
    }
    if (!m_config.user.isEmpty()) {
        rc = mosquitto_username_pw_set(m_client, m_config.user.toUtf8().constData(),
                                       m_config.password.isEmpty() ? nullptr : m_config.password.toUtf8().constData());
        if (rc != MOSQ_ERR_SUCCESS)
            return failed(error, QStringLiteral("cannot set the broker user: %1").arg(errorText(rc)));
    }
    if (!m_config.caFile.isEmpty()) {
        const QByteArray ca = m_config.caFile.toLocal8Bit();
        const QByteArray cert = m_config.certFile.toLocal8Bit();
        const QByteArray key = m_config.keyFile.toLocal8Bit();
        rc = mosquitto_tls_set(m_client, ca.constData(), nullptr, cert.isEmpty() ? nullptr : cert.constData(),
                               key.isEmpty() ? nullptr : key.constData(), nullptr);
        if (rc != MOSQ_ERR_SUCCESS)
            return failed(error,
                          QStringLiteral("cannot use the TLS files (CA %1): %2").arg(m_config.caFile, errorText(rc)));
    }

    rc =
        mosquitto_connect_async(m_client, m_config.host.toUtf8().constData(), m_config.port, m_config.keepaliveSeconds);
    if (rc == MOSQ_ERR_INVAL)
        return failed(
            error,
            QStringLiteral("cannot connect to %1:%2: %3").arg(m_config.host).arg(m_config.port).arg(errorText(rc)));
    // Refused or unreachable now: the gateway starts anyway, queues its data,
    // and the client's thread keeps trying.
    if (rc != MOSQ_ERR_SUCCESS && !m_unreachableSaid.exchange(true))
        qCWarning(lcMqtt).noquote() << QStringLiteral("broker %1:%2 not reachable (%3); trying again")
                                           .arg(m_config.host)
                                           .arg(m_config.port)
                                           .arg(errorText(rc));
    m_stopping = false;
    m_thread = std::thread([this] { run(); });
    return true;
}

void MqttClient::stop()
{
    if (!m_thread.joinable())
        return;
    {
        std::lock_guard<std::mutex> lock(m_pauseMutex);
        m_stopping = true;
    }
    m_pauseEnded.notify_all();
    mosquitto_disconnect(m_client);
    m_thread.join();
}

// libmosquitto's own thread (loop_start) gives up for good when the first
// connection fails; a gateway must not. So: run the loop, and whenever the
// connection is gone wait 1, 2, 3, 4, then every 5 seconds and try again.
// Data waits on disk meanwhile, and a broker that is back soon is found soon.
void MqttClient::run()
{
    while (!m_stopping) {
        const int looped = mosquitto_loop(m_client, 100, 1);
        if (looped == MOSQ_ERR_SUCCESS)
            continue;
        if (m_stopping)
            break;
        // A failed TLS handshake or a refused socket ends here without a
        // disconnect callback: said once per outage like the others.
        if (looped != MOSQ_ERR_NO_CONN && looped != MOSQ_ERR_CONN_LOST && !m_connectedNow &&
            !m_unreachableSaid.exchange(true))
            qCWarning(lcMqtt).noquote() << QStringLiteral("broker %1:%2 not reachable (%3); trying again")
                                               .arg(m_config.host)
                                               .arg(m_config.port)
                                               .arg(errorText(looped));
        pause(std::min(++m_attempts, 5));
        if (m_stopping)
            break;
        const int rc = mosquitto_reconnect_async(m_client);
        if (rc != MOSQ_ERR_SUCCESS)
            qCDebug(lcMqtt).noquote() << QStringLiteral("broker %1:%2 not reachable: %3")
                                             .arg(m_config.host)
                                             .arg(m_config.port)
                                             .arg(errorText(rc));
    }
    // Lets the goodbye out before the socket closes.
    for (int i = 0; i < 10 && mosquitto_loop(m_client, 50, 1) == MOSQ_ERR_SUCCESS; ++i) {
    }
}

void MqttClient::pause(int seconds)
{
    std::unique_lock<std::mutex> lock(m_pauseMutex);
    m_pauseEnded.wait_for(lock, std::chrono::seconds(seconds), [this] { return m_stopping.load(); });
}

void MqttClient::dropConnection()
{
    const int fd = m_client ? mosquitto_socket(m_client) : -1;
    if (fd >= 0)
        ::shutdown(fd, SHUT_RDWR);
}

bool MqttClient::publish(const QString &topic, const QByteArray &payload, int qos, bool retain, int *messageId)
{
    if (!m_client)
        return false;
    const int rc = mosquitto_publish(m_client, messageId, topic.toUtf8().constData(), payload.size(),
                                     payload.constData(), qos, retain);
    // Without a connection libmosquitto still keeps a QoS 1 or 2 message and
    // sends it once connected (its acknowledgement comes as for any other):
    // it was taken, and handing it over again would send it twice.
    if (rc == MOSQ_ERR_NO_CONN)
        return qos > 0;
    if (rc != MOSQ_ERR_SUCCESS)
        qCWarning(lcMqtt).noquote() << QStringLiteral("publishing on %1 failed: %2").arg(topic, errorText(rc));
    return rc == MOSQ_ERR_SUCCESS;
}

bool MqttClient::subscribe(const QString &filter, int qos)
{
    return m_client && mosquitto_subscribe(m_client, nullptr, filter.toUtf8().constData(), qos) == MOSQ_ERR_SUCCESS;
}

void MqttClient::onConnect(mosquitto *, void *self, int rc)
{
    auto *client = static_cast<MqttClient *>(self);
    // A refusal (credentials, client id) is said once, not at every attempt.
    if (rc != 0 && !client->m_unreachableSaid.exchange(true))
        qCWarning(lcMqtt).noquote() << QStringLiteral("broker %1:%2 refused the connection: %3")
                                           .arg(client->m_config.host)
                                           .arg(client->m_config.port)
                                           .arg(QString::fromUtf8(mosquitto_connack_string(rc)));
    else
        client->m_attempts = 0;
    client->m_connectedNow = rc == 0;
    if (rc == 0)
        client->m_unreachableSaid = false;
    if (rc == 0)
        qCInfo(lcMqtt).noquote()
            << QStringLiteral("connected to %1:%2").arg(client->m_config.host).arg(client->m_config.port);
    if (client->m_handlers.connection)
        client->m_handlers.connection(rc == 0, rc);
}

void MqttClient::onDisconnect(mosquitto *, void *self, int rc)
{
    auto *client = static_cast<MqttClient *>(self);
    const bool wasConnected = client->m_connectedNow.exchange(false);
    // 0: our own goodbye. Otherwise said once per outage, not at every attempt.
    if (rc == 0) {
        if (wasConnected)
            qCInfo(lcMqtt).noquote()
                << QStringLiteral("disconnected from %1:%2").arg(client->m_config.host).arg(client->m_config.port);
    } else if (wasConnected)
        qCWarning(lcMqtt).noquote() << QStringLiteral("lost the broker %1:%2 (%3)")
                                           .arg(client->m_config.host)
                                           .arg(client->m_config.port)
                                           .arg(errorText(rc));
    else if (!client->m_unreachableSaid.exchange(true))
        qCWarning(lcMqtt).noquote() << QStringLiteral("broker %1:%2 not reachable (%3); trying again")
                                           .arg(client->m_config.host)
                                           .arg(client->m_config.port)
                                           .arg(errorText(rc));
    if (client->m_handlers.connection)
        client->m_handlers.connection(false, rc);
}

void MqttClient::onPublish(mosquitto *, void *self, int mid)
{
    auto *client = static_cast<MqttClient *>(self);
    if (client->m_handlers.published)
        client->m_handlers.published(mid);
}

void MqttClient::onMessage(mosquitto *, void *self, const mosquitto_message *message)
{
    auto *client = static_cast<MqttClient *>(self);
    if (client->m_handlers.message)
        client->m_handlers.message(QString::fromUtf8(message->topic),
                                   QByteArray(static_cast<const char *>(message->payload), message->payloadlen),
                                   message->retain);
}
