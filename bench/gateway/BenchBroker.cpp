#include "BenchBroker.h"

#include "FreePort.h"

#include <QFile>
#include <QTcpSocket>
#include <QThread>

#include <pwd.h>
#include <unistd.h>

BenchBroker::~BenchBroker()
{
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_process.terminate();
    if (!m_process.waitForFinished(5000))
        m_process.kill();
    m_process.waitForFinished(5000);
}

bool BenchBroker::start(QString *why)
{
    m_port = freePort();
    QStringList lines{QStringLiteral("listener %1 127.0.0.1").arg(m_port),
                      QStringLiteral("allow_anonymous true"),
                      QStringLiteral("persistence false"),
                      QStringLiteral("max_queued_messages 0"),
                      QStringLiteral("max_inflight_messages 0"),
                      QStringLiteral("log_dest none")};
    // Started by root it would become user "mosquitto": it stays who we are.
    if (const passwd *self = getpwuid(getuid()))
        lines << QStringLiteral("user ") + QString::fromLocal8Bit(self->pw_name);
    QFile conf(m_dir.filePath(QStringLiteral("mosquitto.conf")));
    if (!m_dir.isValid() || !conf.open(QIODevice::WriteOnly) || conf.write(lines.join('\n').toUtf8() + '\n') < 0) {
        *why = QStringLiteral("cannot write the broker's configuration");
        return false;
    }
    conf.close();
    // Its one line at start (a warning when run as root) says nothing of the run.
    m_process.setStandardErrorFile(QProcess::nullDevice());
    m_process.setStandardOutputFile(QProcess::nullDevice());
    m_process.start(QStringLiteral("/usr/sbin/mosquitto"), {QStringLiteral("-c"), conf.fileName()});
    if (!m_process.waitForStarted(5000)) {
        *why = QStringLiteral("mosquitto did not start: ") + m_process.errorString();
        return false;
    }
    for (int attempt = 0; attempt < 100; ++attempt) {
        QTcpSocket socket;
        socket.connectToHost(QStringLiteral("127.0.0.1"), m_port);
        if (socket.waitForConnected(200))
            return true;
        QThread::msleep(50);
    }
    *why = QStringLiteral("mosquitto does not accept on port %1").arg(m_port);
    return false;
}
