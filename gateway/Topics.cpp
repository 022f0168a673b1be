#include "Topics.h"

namespace {
const QString kRoot = QStringLiteral("sorvik/");
}

QString Topics::gatewayStatus(const QString &gateway)
{
    return kRoot + gateway + QStringLiteral("/status");
}

QString Topics::heartbeat(const QString &gateway)
{
    return kRoot + gateway + QStringLiteral("/heartbeat");
}

QString Topics::controllerStatus(const QString &gateway, const QString &controller)
{
    return kRoot + gateway + '/' + controller + QStringLiteral("/status");
}

QString Topics::data(const QString &gateway, const QString &controller, const QString &group)
{
    return kRoot + gateway + '/' + controller + '/' + group;
}

QString Topics::write(const QString &gateway, const QString &controller)
{
    return kRoot + gateway + '/' + controller + QStringLiteral("/write");
}

QString Topics::writeReply(const QString &gateway, const QString &controller)
{
    return write(gateway, controller) + QStringLiteral("/reply");
}

QString Topics::writeFilter(const QString &gateway)
{
    return kRoot + gateway + QStringLiteral("/+/write");
}

bool Topics::isTopicLevel(const QString &name)
{
    if (name.isEmpty() || name == QLatin1String("status") || name == QLatin1String("heartbeat") ||
        name == QLatin1String("write"))
        return false;
    for (const QChar c : name)
        if (c == '+' || c == '#' || c == '/' || c.category() == QChar::Other_Control)
            return false;
    return true;
}
