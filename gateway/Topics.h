#pragma once

// The gateway's MQTT topic tree, in one place:
//   sorvik/<gateway>/status                       retained: online or offline (last will)
//   sorvik/<gateway>/heartbeat                    counters, periodically
//   sorvik/<gateway>/<controller>/status          retained: online, lost with the reason, reconnecting
//   sorvik/<gateway>/<controller>/<group>         one data message per group and cycle
//   sorvik/<gateway>/<controller>/write           write commands in
//   sorvik/<gateway>/<controller>/write/reply     their outcomes
#include <QString>

namespace Topics {

QString gatewayStatus(const QString &gateway);
QString heartbeat(const QString &gateway);
QString controllerStatus(const QString &gateway, const QString &controller);
QString data(const QString &gateway, const QString &controller, const QString &group);
QString write(const QString &gateway, const QString &controller);
QString writeReply(const QString &gateway, const QString &controller);
// The filter that takes the write commands of every controller of a gateway.
QString writeFilter(const QString &gateway);

// A name that may stand as one topic level: not empty, none of + # / and no
// control characters, and not one of the names the tree uses itself.
bool isTopicLevel(const QString &name);

} // namespace Topics
