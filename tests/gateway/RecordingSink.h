#pragma once

// A GatewaySink that keeps what the pollers hand it, for the south side's
// own tests (the MQTT side has tests of its own against a real broker), and
// the loopback addresses of the simulated controllers of one test program.
#include "TestSupport.h"
#include "gateway/GatewaySink.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QList>
#include <QMutex>
#include <QMutexLocker>

class RecordingSink : public GatewaySink
{
public:
    struct Message {
        QString topic;
        QJsonObject json;
    };

    void publishData(const QString &topic, const QByteArray &payload) override { add(&m_data, topic, payload); }
    void publishStatus(const QString &topic, const QByteArray &payload) override { add(&m_status, topic, payload); }
    void publishEvent(const QString &topic, const QByteArray &payload) override { add(&m_events, topic, payload); }

    QList<Message> data() const { return copy(m_data); }
    QList<Message> status() const { return copy(m_status); }
    QList<Message> events() const { return copy(m_events); }
    QStringList states() const
    {
        QStringList out;
        for (const Message &m : status())
            out << m.json.value(QLatin1String("state")).toString();
        return out;
    }

private:
    void add(QList<Message> *list, const QString &topic, const QByteArray &payload)
    {
        QMutexLocker lock(&m_mutex);
        list->append({topic, QJsonDocument::fromJson(payload).object()});
    }
    // A copy of its own: a shared one would be freed or grown by the other
    // thread after the lock, through Qt's reference count alone.
    QList<Message> copy(const QList<Message> &list) const
    {
        QMutexLocker lock(&m_mutex);
        QList<Message> own = list;
        own.detach();
        return own;
    }

    mutable QMutex m_mutex;
    QList<Message> m_data;
    QList<Message> m_status;
    QList<Message> m_events;
};

// Controller k of this program: 127.<N+100>.0.k, N the last byte of the
// program's own test address, so that programs side by side never meet.
inline QString controllerAddress(int k)
{
    const quint32 own = TestSupport::testHost().toIPv4Address();
    return QStringLiteral("127.%1.0.%2").arg((own & 0xff) + 100).arg(k);
}
