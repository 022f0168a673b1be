#include "GatewayRunner.h"

#include "ControllerPoller.h"
#include "Northbound.h"
#include "Topics.h"
#include "WriteCommand.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>

Q_LOGGING_CATEGORY(lcGateway, "sorvik.gateway", QtInfoMsg)

GatewayRunner::GatewayRunner(const GatewayConfig &config, const QString &libraryFile, QObject *parent)
    : QObject(parent), m_config(config), m_libraryFile(libraryFile)
{
    m_heartbeat.setInterval(m_config.heartbeatMs);
    connect(&m_heartbeat, &QTimer::timeout, this, &GatewayRunner::publishHeartbeat);
}

GatewayRunner::~GatewayRunner()
{
    if (m_running)
        stop(0);
}

bool GatewayRunner::start(bool startAfresh, QString *error)
{
    m_started = QDateTime::currentDateTimeUtc();
    // An endpoint that cannot be served stops the start: operators would look
    // there and find nothing, with no other sign of why.
    if (!m_config.metricsAddress.isEmpty() && !m_metrics.serve(m_config.metricsAddress, error)) {
        *error = QStringLiteral("cannot serve metrics on %1: %2").arg(m_config.metricsAddress, *error);
        return false;
    }
    m_north = std::make_unique<Northbound>(m_config, &m_metrics);
    if (!m_north->open(error, startAfresh)) {
        if (!startAfresh)
            *error += QStringLiteral("; if the queue file is damaged, --start-afresh moves it aside and begins anew");
        m_north.reset();
        return false;
    }
    connect(m_north.get(), &Northbound::writeCommand, this, &GatewayRunner::routeWrite);
    connect(m_north.get(), &Northbound::connectionChanged, this, [this](bool connected) {
        if (connected)
            qCInfo(lcGateway, "broker %s:%d reached", qUtf8Printable(m_config.broker.host), m_config.broker.port);
        else
            qCWarning(lcGateway, "broker %s:%d lost; data messages wait in the offline queue",
                      qUtf8Printable(m_config.broker.host), m_config.broker.port);
    });

    for (const ControllerConfig &controller : qAsConst(m_config.controllers)) {
        PollerOptions options;
        options.readOnly = m_config.readOnly;
        options.bootMs = m_started.toMSecsSinceEpoch();
        auto poller = std::make_unique<ControllerPoller>(controller, m_config.name, m_libraryFile, m_north.get(),
                                                         &m_metrics, options);
        m_pollerByName.insert(controller.name, poller.get());
        m_pollers.push_back(std::move(poller));
    }
    for (const auto &poller : m_pollers)
        poller->start();
    m_running = true;
    m_heartbeat.start();
    qCInfo(lcGateway, "gateway %s polls %d controllers", qUtf8Printable(m_config.name),
           int(m_config.controllers.size()));
    return true;
}

void GatewayRunner::stop(int flushTimeoutMs)
{
    if (!m_running)
        return;
    m_running = false;
    m_heartbeat.stop();
    for (const auto &poller : m_pollers)
        poller->stop();
    publishHeartbeat();
    m_north->close(flushTimeoutMs);
    qCInfo(lcGateway, "gateway %s stopped", qUtf8Printable(m_config.name));
}

void GatewayRunner::publishHeartbeat()
{
    QJsonObject beat = m_metrics.snapshot();
    beat.insert(QStringLiteral("gateway"), m_config.name);
    beat.insert(QStringLiteral("time"), QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs));
    beat.insert(QStringLiteral("up_s"), m_started.secsTo(QDateTime::currentDateTimeUtc()));
    m_north->publishEvent(Topics::heartbeat(m_config.name), QJsonDocument(beat).toJson(QJsonDocument::Compact));
}

void GatewayRunner::routeWrite(const QString &controller, const QByteArray &payload)
{
    ControllerPoller *poller = m_pollerByName.value(controller);
    if (poller) {
        poller->submitWrite(payload);
        return;
    }
    // Only the topic filter brought it here; no poller would ever answer.
    // Answered as a poller refuses a command, so the sender is not left waiting.
    const QJsonObject command = QJsonDocument::fromJson(payload.left(WriteCommand::kMostBytes)).object();
    WriteCommand refused;
    refused.id = command.value(QStringLiteral("id")).isUndefined() ? QJsonValue() : command.value(QStringLiteral("id"));
    refused.name = command.value(QStringLiteral("tag")).toString();
    refused.refuse(WriteCommand::Kind::UnknownController,
                   QStringLiteral("no controller \"%1\" in this gateway").arg(controller));
    refused.logRefusal(controller, m_metrics.addWriteRefused(WriteCommand::kindName(refused.kind)));
    m_north->publishEvent(Topics::writeReply(m_config.name, controller), refused.refusedReply());
}
