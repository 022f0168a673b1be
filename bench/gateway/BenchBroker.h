#pragma once

// A mosquitto of the benchmark's own on a free loopback port, with no limit on
// the messages it queues for a subscriber, so that the broker itself never
// drops what the gateway sent.
#include <QProcess>
#include <QTemporaryDir>

class BenchBroker
{
public:
    ~BenchBroker();
    bool start(QString *why);
    quint16 port() const { return m_port; }
    qint64 pid() const { return m_process.processId(); }

private:
    QTemporaryDir m_dir;
    QProcess m_process;
    quint16 m_port = 0;
};
