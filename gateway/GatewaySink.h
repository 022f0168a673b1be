#pragma once

// Where a controller's poller hands what it has to say. The north side
// (Northbound) implements it over MQTT with its offline queue; every member
// may be called from any controller's thread.
#include <QByteArray>
#include <QString>

class GatewaySink
{
public:
    virtual ~GatewaySink() = default;

    // A data message of one stream (topic). Messages of a stream arrive in the
    // order given, through outages of the broker, or are counted as dropped.
    virtual void publishData(const QString &topic, const QByteArray &payload) = 0;
    // A retained state (online, lost, ...): the latest one wins, not queued.
    virtual void publishStatus(const QString &topic, const QByteArray &payload) = 0;
    // A passing message (heartbeat, write reply): sent if the broker is there.
    virtual void publishEvent(const QString &topic, const QByteArray &payload) = 0;
};
