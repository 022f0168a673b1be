#pragma once

// A real mosquitto broker for the gateway's tests: started on a free loopback
// port with a configuration written into a temporary folder, stopped and
// started again on the same port for outage tests, killed at destruction.
#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QHostAddress>
#include <QProcess>
#include <QStringList>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QThread>

#include <pwd.h>
#include <unistd.h>

class BrokerFixture
{
public:
    struct Options {
        // user -> password; when not empty, anonymous clients are refused.
        QList<QPair<QString, QString>> users;
        // PEM files of a TLS listener; all three or none.
        QString caFile;
        QString certFile;
        QString keyFile;
        // A client certificate signed by the same authority, for the clients.
        QString clientCertFile;
        QString clientKeyFile;
        // The TLS listener refuses clients without a certificate of its authority.
        bool requireCertificate = false;
        // A mosquitto acl_file's text: who may publish and read what.
        QByteArray acl;
        // Keeps sessions and retained messages across stop() and start(), so
        // that a persistent subscriber misses nothing of an outage.
        bool persistence = false;
    };

    BrokerFixture() = default;
    explicit BrokerFixture(const Options &options) : m_options(options) {}
    ~BrokerFixture() { stop(); }
    BrokerFixture(const BrokerFixture &) = delete;
    BrokerFixture &operator=(const BrokerFixture &) = delete;

    static QString program() { return QStringLiteral("/usr/sbin/mosquitto"); }

    // Writes a fresh certificate authority, a server certificate for
    // 127.0.0.1 and a client certificate signed by it into the folder, and
    // names them in options.
    static bool writeTestCertificates(const QString &folder, Options *options, QString *error)
    {
        const QDir dir(folder);
        dir.mkpath(QStringLiteral("."));
        QFile extensions(dir.filePath(QStringLiteral("server.ext")));
        if (!extensions.open(QIODevice::WriteOnly) || extensions.write("subjectAltName=IP:127.0.0.1\n") < 0)
            return failWith(error, QStringLiteral("cannot write the certificate extensions"));
        extensions.close();
        const QString key = QStringLiteral("-newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes ");
        const QString sign = QStringLiteral("x509 -req -CA ca.crt -CAkey ca.key -CAcreateserial -days 2 -in ");
        const QList<QStringList> steps{
            (QStringLiteral("req -x509 ") + key + QStringLiteral("-keyout ca.key -out ca.crt -days 2 -subj")).split(' ')
                << QStringLiteral("/CN=gateway test authority"),
            (QStringLiteral("req ") + key + QStringLiteral("-keyout server.key -out server.csr -subj /CN=127.0.0.1"))
                .split(' '),
            (sign + QStringLiteral("server.csr -out server.crt -extfile server.ext")).split(' '),
            (QStringLiteral("req ") + key + QStringLiteral("-keyout client.key -out client.csr -subj /CN=gateway"))
                .split(' '),
            (sign + QStringLiteral("client.csr -out client.crt")).split(' ')};
        for (const QStringList &arguments : steps) {
            QProcess openssl;
            openssl.setWorkingDirectory(folder);
            openssl.start(QStringLiteral("openssl"), arguments);
            if (!openssl.waitForFinished(30000) || openssl.exitCode() != 0)
                return failWith(error,
                                QStringLiteral("openssl %1 failed: %2")
                                    .arg(arguments.join(' '), QString::fromLocal8Bit(openssl.readAllStandardError())));
        }
        options->caFile = dir.filePath(QStringLiteral("ca.crt"));
        options->certFile = dir.filePath(QStringLiteral("server.crt"));
        options->keyFile = dir.filePath(QStringLiteral("server.key"));
        options->clientCertFile = dir.filePath(QStringLiteral("client.crt"));
        options->clientKeyFile = dir.filePath(QStringLiteral("client.key"));
        return true;
    }
    QString host() const { return QStringLiteral("127.0.0.1"); }
    quint16 port() const { return m_port; }
    QString error() const { return m_error; }
    bool isRunning() const { return m_process.state() == QProcess::Running; }

    // Starts the broker, on a fresh free port the first time and on the same
    // port afterwards, and waits until it accepts connections.
    bool start(int timeoutMs = 10000)
    {
        if (isRunning())
            return true;
        if (!m_dir.isValid())
            return fail(QStringLiteral("no temporary folder"));
        for (int attempt = 0; attempt < 5; ++attempt) {
            const bool freshPort = m_port == 0;
            if (freshPort)
                m_port = freePort();
            if (m_port == 0)
                return fail(QStringLiteral("no free port"));
            if (!writeConfiguration())
                return false;
            m_process.setProcessChannelMode(QProcess::MergedChannels);
            m_process.start(program(), {QStringLiteral("-c"), m_dir.filePath(QStringLiteral("mosquitto.conf"))});
            if (!m_process.waitForStarted(timeoutMs))
                return fail(QStringLiteral("mosquitto did not start: ") + m_process.errorString());
            if (waitUntilAccepting(timeoutMs))
                return true;
            const QByteArray output = m_process.readAll();
            stop();
            // Another program took the port between our look and the broker's bind.
            if (!freshPort)
                return fail(QStringLiteral("mosquitto does not accept on port %1: %2")
                                .arg(m_port)
                                .arg(QString::fromLocal8Bit(output)));
            m_port = 0;
        }
        return fail(QStringLiteral("mosquitto did not come up on any port"));
    }

    // Ends the broker; clients see their connection drop.
    void stop()
    {
        if (m_process.state() == QProcess::NotRunning)
            return;
        m_process.terminate();
        if (!m_process.waitForFinished(5000)) {
            m_process.kill();
            m_process.waitForFinished(5000);
        }
    }

private:
    static bool failWith(QString *error, const QString &message)
    {
        if (error)
            *error = message;
        return false;
    }

    bool fail(const QString &message)
    {
        m_error = message;
        return false;
    }

    static quint16 freePort()
    {
        QTcpServer probe;
        if (!probe.listen(QHostAddress::LocalHost, 0))
            return 0;
        return probe.serverPort();
    }

    bool writeConfiguration()
    {
        QStringList lines{QStringLiteral("listener %1 127.0.0.1").arg(m_port), QStringLiteral("log_dest stdout"),
                          QStringLiteral("log_type error"), QStringLiteral("log_type warning"),
                          QStringLiteral("max_queued_messages 0")};
        // Started by root, mosquitto would become user "mosquitto", who cannot
        // read our private folder: it stays who we are.
        if (const passwd *self = getpwuid(getuid()))
            lines << QStringLiteral("user ") + QString::fromLocal8Bit(self->pw_name);
        if (m_options.persistence)
            lines << QStringLiteral("persistence true") << QStringLiteral("persistence_location ") + m_dir.path() + '/';
        else
            lines << QStringLiteral("persistence false");
        if (!m_options.caFile.isEmpty())
            lines << QStringLiteral("cafile ") + m_options.caFile << QStringLiteral("certfile ") + m_options.certFile
                  << QStringLiteral("keyfile ") + m_options.keyFile
                  << QStringLiteral("require_certificate %1").arg(m_options.requireCertificate ? "true" : "false");
        if (!m_options.acl.isEmpty()) {
            QFile acl(m_dir.filePath(QStringLiteral("acl")));
            if (!acl.open(QIODevice::WriteOnly | QIODevice::Truncate) || acl.write(m_options.acl) < 0)
                return fail(QStringLiteral("cannot write the broker's acl_file"));
            lines << QStringLiteral("acl_file ") + acl.fileName();
        }
        if (m_options.users.isEmpty()) {
            lines << QStringLiteral("allow_anonymous true");
        } else {
            const QString passwords = m_dir.filePath(QStringLiteral("passwords"));
            QFile::remove(passwords);
            for (const auto &user : m_options.users) {
                QStringList arguments{QStringLiteral("-b")};
                if (!QFile::exists(passwords))
                    arguments << QStringLiteral("-c");
                arguments << passwords << user.first << user.second;
                if (QProcess::execute(QStringLiteral("/usr/bin/mosquitto_passwd"), arguments) != 0)
                    return fail(QStringLiteral("mosquitto_passwd failed for ") + user.first);
            }
            lines << QStringLiteral("allow_anonymous false") << QStringLiteral("password_file ") + passwords;
        }
        QFile file(m_dir.filePath(QStringLiteral("mosquitto.conf")));
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
            return fail(QStringLiteral("cannot write the broker's configuration"));
        file.write(lines.join('\n').toUtf8() + '\n');
        return true;
    }

    bool waitUntilAccepting(int timeoutMs)
    {
        const QDeadlineTimer deadline(timeoutMs);
        while (!deadline.hasExpired() && isRunning()) {
            QTcpSocket socket;
            socket.connectToHost(QHostAddress::LocalHost, m_port);
            if (socket.waitForConnected(500))
                return true;
            QCoreApplication::processEvents();
            QThread::msleep(20);
        }
        return false;
    }

    Options m_options;
    QTemporaryDir m_dir;
    QProcess m_process;
    quint16 m_port = 0;
    QString m_error;
};
