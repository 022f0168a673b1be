#include "CheckReport.h"

namespace {

QString count(int n, const char *one, const char *many)
{
    return QStringLiteral("%1 %2").arg(n).arg(QLatin1String(n == 1 ? one : many));
}

QString brokerLine(const BrokerConfig &broker)
{
    QString line = QStringLiteral("broker %1:%2, client id %3, QoS %4, keepalive %5 s")
                       .arg(broker.host)
                       .arg(broker.port)
                       .arg(broker.clientId)
                       .arg(broker.qos)
                       .arg(broker.keepaliveSeconds);
    if (!broker.user.isEmpty())
        line += QStringLiteral(", user %1 with a password").arg(broker.user);
    if (!broker.caFile.isEmpty())
        line += broker.certFile.isEmpty() ? QStringLiteral(", TLS") : QStringLiteral(", TLS with a client certificate");
    return line;
}

} // namespace

QStringList CheckReport::lines(const GatewayConfig &config, const QList<ControllerPlan> &plans)
{
    QStringList out;
    int groups = 0;
    for (const ControllerConfig &controller : config.controllers)
        groups += controller.groups.size();
    out << QStringLiteral("gateway %1: %2, %3%4")
               .arg(config.name, count(config.controllers.size(), "controller", "controllers"),
                    count(groups, "scan group", "scan groups"),
                    config.readOnly ? QStringLiteral(", read only") : QString());
    out << brokerLine(config.broker);
    out << QStringLiteral("offline buffer %1, at most %2 bytes%3")
               .arg(config.buffer.path)
               .arg(config.buffer.maxBytes)
               .arg(config.buffer.maxFileBytes > 0
                        ? QStringLiteral(" in a file of at most %1 bytes").arg(config.buffer.maxFileBytes)
                        : QString());
    if (!config.metricsAddress.isEmpty())
        out << QStringLiteral("metrics on http://%1/metrics").arg(config.metricsAddress);

    int tags = 0;
    int blocks = 0;
    int requests = 0;
    for (int c = 0; c < config.controllers.size() && c < plans.size(); ++c) {
        const ControllerConfig &controller = config.controllers.at(c);
        out << QString();
        out << QStringLiteral("controller %1 at %2, lost after %3 without a good reply")
                   .arg(controller.name, controller.connection,
                        count(controller.reconnect.lostAfterCycles, "cycle", "cycles"));
        for (int g = 0; g < controller.groups.size() && g < plans.at(c).plans.size(); ++g) {
            const ScanGroupConfig &group = controller.groups.at(g);
            const GroupPlan &plan = plans.at(c).plans.at(g);
            out << QStringLiteral("  group %1, every %2 ms").arg(group.name).arg(group.intervalMs);
            const QStringList described = plan.describe(group);
            for (const QString &line : described)
                out << QStringLiteral("    ") + line;
            tags += plan.tagCount;
            blocks += plan.blocks.size();
            requests += plan.requestsPerCycle();
        }
    }
    out << QString();
    out << QStringLiteral("configuration good: %1 in %2, %3 per round of all groups instead of %4")
               .arg(count(tags, "tag", "tags"), count(blocks, "block", "blocks"),
                    count(requests, "request", "requests"))
               .arg(tags);
    return out;
}
