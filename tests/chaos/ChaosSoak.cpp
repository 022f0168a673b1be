#include "ChaosSoak.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QEventLoop>
#include <QFile>
#include <QHostAddress>
#include <QLoggingCategory>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>
#include <QTimer>
#include <QUdpSocket>

#include <pwd.h>
#include <signal.h>
#include <unistd.h>

Q_LOGGING_CATEGORY(lcSoak, "sorvik.chaos")

namespace {

qint64 now()
{
    return QDateTime::currentMSecsSinceEpoch();
}

quint16 freePort()
{
    QTcpServer probe;
    return probe.listen(QHostAddress::LocalHost, 0) ? probe.serverPort() : 0;
}

constexpr int kSimulatorPort = 6000;
// From a restart of the broker until the gateway is back: its client tries
// again after at most 5 s.
constexpr qint64 kBrokerFoundMs = 5000;

} // namespace

ChaosSoak::ChaosSoak(const ChaosPlan &plan, const Programs &programs)
    : m_plan(plan), m_programs(programs), m_checker(m_plan)
{
    m_broker.name = QStringLiteral("the broker");
    m_gateway.name = QStringLiteral("the gateway");
    m_simulators.resize(plan.controllers.size());
    for (size_t k = 0; k < m_simulators.size(); ++k)
        m_simulators[k].name = QStringLiteral("simulator %1").arg(plan.controllers.at(int(k)).name);
}

ChaosSoak::~ChaosSoak()
{
    // Ours only, each by its own process: nothing else on the machine is touched.
    m_subscriber.reset();
    for (Process *p : {&m_gateway, &m_broker})
        kill(*p);
    for (Process &p : m_simulators)
        kill(p);
    if (m_checker.failures() > 0) {
        m_dir.setAutoRemove(false);
        qCWarning(lcSoak, "logs, configuration and queue kept in %s", qUtf8Printable(m_dir.path()));
    }
}

void ChaosSoak::log(const QString &text)
{
    qCInfo(lcSoak, "%6.1f s: %s", m_clock.elapsed() / 1000.0, qUtf8Printable(text));
}

void ChaosSoak::launch(Process &p, const QString &program, const QStringList &arguments, const QString &logName)
{
    p.process = std::make_unique<QProcess>();
    p.process->setStandardErrorFile(m_dir.filePath(logName), QIODevice::Append);
    p.expectedDown = false;
    p.upSinceMs = now();
    QObject::connect(p.process.get(), qOverload<int, QProcess::ExitStatus>(&QProcess::finished),
                     [this, &p](int code, QProcess::ExitStatus status) {
                         if (p.expectedDown)
                             return;
                         p.expectedDown = true;
                         m_checker.fail(
                             status == QProcess::CrashExit
                                 ? QStringLiteral("%1 crashed").arg(p.name)
                                 : QStringLiteral("%1 ended by itself with exit status %2").arg(p.name).arg(code));
                     });
    p.process->start(program, arguments);
}

void ChaosSoak::kill(Process &p)
{
    if (!p.process || p.process->state() == QProcess::NotRunning)
        return;
    p.expectedDown = true;
    p.process->kill(); // SIGKILL
    p.process->waitForFinished(5000);
}

bool ChaosSoak::startBroker()
{
    QFile conf(m_dir.filePath(QStringLiteral("mosquitto.conf")));
    QStringList lines{QStringLiteral("listener %1 127.0.0.1").arg(m_brokerPort), QStringLiteral("allow_anonymous true"),
                      // The store is written once, with the subscriber's
                      // session, so that every restart brings the session back.
                      QStringLiteral("persistence true"), QStringLiteral("persistence_location ") + m_dir.path() + '/',
                      QStringLiteral("autosave_interval 0"), QStringLiteral("max_queued_messages 0"),
                      QStringLiteral("log_dest stderr"), QStringLiteral("log_type error"),
                      QStringLiteral("log_type warning")};
    // As root mosquitto would become a user that cannot read this folder.
    if (const passwd *self = getpwuid(getuid()))
        lines << QStringLiteral("user ") + QString::fromLocal8Bit(self->pw_name);
    if (!conf.open(QIODevice::WriteOnly | QIODevice::Truncate) || conf.write(lines.join('\n').toUtf8() + '\n') < 0)
        return false;
    conf.close();
    launch(m_broker, m_programs.mosquitto, {QStringLiteral("-c"), conf.fileName()}, QStringLiteral("broker.log"));
    for (int i = 0; i < 100 && m_broker.process->state() != QProcess::NotRunning; ++i) {
        QTcpSocket socket;
        socket.connectToHost(QHostAddress::LocalHost, quint16(m_brokerPort));
        if (socket.waitForConnected(200)) {
            m_broker.upSinceMs = now();
            if (m_brokerKilledMs)
                m_checker.postpone(m_broker.upSinceMs - m_brokerKilledMs + kBrokerFoundMs);
            m_brokerKilledMs = 0;
            return true;
        }
        QThread::msleep(50);
    }
    return false;
}

bool ChaosSoak::restartBroker(qint64 downMs)
{
    // Statuses count from the launch: the gateway may connect before this
    // side has seen the port open.
    const qint64 started = now();
    if (!startBroker())
        return false;
    log(QStringLiteral("broker started again after %1 ms").arg(downMs));
    expectAllOnline(started, m_plan.onlineBoundMs() + kBrokerFoundMs, QStringLiteral("the broker's restart"));
    return true;
}

void ChaosSoak::killBroker()
{
    ++m_kills[1];
    log(QStringLiteral("SIGKILL to the broker"));
    kill(m_broker);
    m_brokerKilledMs = now();
}

bool ChaosSoak::startSimulator(int k, bool counted)
{
    const ChaosController &c = m_plan.controllers.at(k);
    QStringList arguments{QStringLiteral("--address"),
                          c.address,
                          QStringLiteral("--port"),
                          QString::number(kSimulatorPort),
                          QStringLiteral("--self-describing"),
                          QString::number(c.id)};
    arguments += counted && !c.counted.isEmpty() ? c.counted : c.faults;
    Process &p = m_simulators[size_t(k)];
    launch(p, m_programs.simulator, arguments, QStringLiteral("sim-%1.log").arg(c.name));
    // It says where it serves once it does.
    for (int i = 0; i < 50 && !p.process->canReadLine(); ++i)
        p.process->waitForReadyRead(100);
    if (!p.process->canReadLine()) {
        m_checker.fail(QStringLiteral("%1 did not start").arg(p.name));
        return false;
    }
    p.process->readAll();
    return true;
}

void ChaosSoak::killSimulator(int k)
{
    ++m_kills[0];
    log(QStringLiteral("SIGKILL to %1").arg(m_simulators[size_t(k)].name));
    kill(m_simulators[size_t(k)]);
}

bool ChaosSoak::startGateway(bool counted)
{
    m_checker.gatewayStarted(now(), counted);
    launch(m_gateway, m_programs.gateway, {m_dir.filePath(QStringLiteral("chaos.toml"))},
           QStringLiteral("gateway.log"));
    m_gateway.process->setStandardOutputFile(QProcess::nullDevice());
    m_hangSaid = false;
    m_stallSaid.clear();
    log(QStringLiteral("gateway started"));
    return m_gateway.process->waitForStarted(5000);
}

void ChaosSoak::killGateway()
{
    ++m_kills[2];
    kill(m_gateway);
    const QList<InvariantChecker::QueuedRow> rows = readQueue(QStringLiteral("held-%1").arg(m_kills[2]));
    log(QStringLiteral("SIGKILL to the gateway; its queue holds %1 rows").arg(rows.size()));
    m_checker.gatewayKilled(now(), rows);
}

void ChaosSoak::stopGateway()
{
    log(QStringLiteral("SIGTERM to the gateway"));
    m_gateway.expectedDown = true;
    m_checker.gatewayStopping(now());
    m_gateway.process->terminate();
    // A stop flushes for up to 5 s.
    if (!m_gateway.process->waitForFinished(20000)) {
        m_checker.fail(QStringLiteral("the gateway did not stop within 20 s of SIGTERM"));
        m_gateway.process->kill();
        m_gateway.process->waitForFinished(5000);
    } else if (m_gateway.process->exitStatus() != QProcess::NormalExit || m_gateway.process->exitCode() != 0) {
        m_checker.fail(
            QStringLiteral("the gateway stopped by SIGTERM exited with %1").arg(m_gateway.process->exitCode()));
    }
    m_checker.gatewayStopped(readQueue(QStringLiteral("left")));
}

// The queue as the gateway left it, read from a copy: the file itself is
// never opened by anyone else.
QList<InvariantChecker::QueuedRow> ChaosSoak::readQueue(const QString &copyName)
{
    QList<InvariantChecker::QueuedRow> rows;
    const QString file = m_dir.filePath(QStringLiteral("queue.sqlite"));
    const QString copy = m_dir.filePath(copyName + QStringLiteral(".sqlite"));
    for (const QString &suffix : {QString(), QStringLiteral("-wal")}) {
        QFile::remove(copy + suffix);
        if (QFile::exists(file + suffix))
            QFile::copy(file + suffix, copy + suffix);
    }
    if (!QFile::exists(copy))
        return rows;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), copyName);
        db.setDatabaseName(copy);
        QSqlQuery query(db);
        if (!db.open() || !query.exec(QStringLiteral("SELECT topic, payload FROM queue ORDER BY id")))
            m_checker.fail(QStringLiteral("the queue file could not be read after the gateway ended"));
        while (query.next())
            rows << InvariantChecker::QueuedRow{query.value(0).toString(), query.value(1).toByteArray()};
    }
    QSqlDatabase::removeDatabase(copyName);
    return rows;
}

void ChaosSoak::expectAllOnline(qint64 afterMs, qint64 boundMs, const QString &because)
{
    for (int k = 0; k < m_plan.controllers.size(); ++k)
        if (!(m_countedPhase && !m_plan.controllers.at(k).counted.isEmpty()))
            m_checker.expectOnline(k, afterMs, afterMs + boundMs, because);
}

void ChaosSoak::waitMs(qint64 ms)
{
    QElapsedTimer waited;
    waited.start();
    while (waited.elapsed() < ms) {
        QEventLoop loop;
        QTimer::singleShot(int(qBound<qint64>(1, ms - waited.elapsed(), 100)), &loop, &QEventLoop::quit);
        loop.exec();
        for (const ChaosSubscriber::Message &message : m_subscriber->take())
            m_checker.take(message);
        watch();
    }
}

void ChaosSoak::watch()
{
    const qint64 t = now();
    m_checker.tick(t);
    if (m_broker.expectedDown || m_gateway.expectedDown)
        return;
    const qint64 bothUp = t - qMax(m_broker.upSinceMs, m_gateway.upSinceMs);
    const qint64 silent = t - qMax(m_checker.lastGatewayMessageMs(), m_gateway.upSinceMs);
    if (bothUp > 10000 && silent > 8000 && !m_hangSaid) {
        m_hangSaid = true;
        m_checker.fail(QStringLiteral("the gateway sent nothing for %1 ms while the broker was up").arg(silent));
    }
    if (bothUp < 15000)
        return;
    const QHash<QString, qint64> last = m_checker.lastDataMs();
    for (const ChaosController &c : qAsConst(m_plan.controllers))
        for (const ChaosGroup &g : c.groups) {
            const QString topic = QStringLiteral("sorvik/chaos/%1/%2").arg(c.name, g.name);
            const qint64 quiet = t - qMax(last.value(topic), qMax(m_broker.upSinceMs, m_gateway.upSinceMs));
            if (quiet > 15000 && !m_stallSaid.contains(topic)) {
                m_stallSaid.insert(topic);
                m_checker.fail(QStringLiteral("%1 had no message for %2 ms").arg(topic).arg(quiet));
            }
        }
}

// Another soak may run on this machine (the test suite's beside a long
// form): each takes a block 127.77.N.x in which neither a simulator's port
// nor the drive's port 500 is bound.
int ChaosSoak::freeBlock() const
{
    const int first = int(getpid() % 250);
    for (int i = 0; i < 250; ++i) {
        const int n = (first + i) % 250;
        bool free = true;
        for (int k = 1; free && k <= m_plan.controllers.size(); ++k)
            for (quint16 port : {quint16(kSimulatorPort), quint16(500)}) {
                QUdpSocket probe;
                free = free && probe.bind(QHostAddress(QStringLiteral("127.77.%1.%2").arg(n).arg(k)), port,
                                          QAbstractSocket::DontShareAddress);
            }
        if (free)
            return n;
    }
    return -1;
}

int ChaosSoak::run()
{
    m_clock.start();
    const int block = freeBlock();
    if (block < 0) {
        qCCritical(lcSoak, "no block of loopback addresses 127.77.N.x is free");
        return 2;
    }
    for (int k = 0; k < m_plan.controllers.size(); ++k)
        m_plan.controllers[k].address = QStringLiteral("127.77.%1.%2").arg(block).arg(k + 1);
    m_brokerPort = freePort();
    {
        QFile toml(m_dir.filePath(QStringLiteral("chaos.toml")));
        if (!m_dir.isValid() || m_brokerPort == 0 || !toml.open(QIODevice::WriteOnly) ||
            toml.write(m_plan.gatewayConfig(m_brokerPort, m_dir.filePath(QStringLiteral("queue.sqlite"))).toUtf8()) < 0)
            return 2;
    }
    QProcess check;
    check.setProcessChannelMode(QProcess::MergedChannels);
    check.start(m_programs.gateway, {QStringLiteral("--check"), m_dir.filePath(QStringLiteral("chaos.toml"))});
    if (!check.waitForFinished(60000) || check.exitCode() != 0) {
        qCCritical(lcSoak, "the gateway refused the generated configuration:\n%s",
                   check.readAll().right(3000).constData());
        return 2;
    }
    if (!startBroker()) {
        qCCritical(lcSoak, "the broker did not start on port %d", m_brokerPort);
        return 2;
    }
    m_subscriber = std::make_unique<ChaosSubscriber>(QStringLiteral("sorvik-chaos-%1").arg(getpid()),
                                                     QStringLiteral("sorvik/chaos/#"));
    if (!m_subscriber->start(m_brokerPort))
        return 2;
    for (int i = 0; i < 100 && !m_subscriber->isSubscribed(); ++i)
        QThread::msleep(50);
    if (!m_subscriber->isSubscribed()) {
        qCCritical(lcSoak, "the subscriber did not subscribe at the broker");
        return 2;
    }
    // The store now holds the subscriber's session: every restart brings it
    // back, so nothing published before the subscriber returns is lost.
    ::kill(pid_t(m_broker.process->processId()), SIGUSR1);
    QThread::msleep(300);
    for (int k = 0; k < m_plan.controllers.size(); ++k)
        if (!startSimulator(k, false))
            return 2;
    if (!startGateway(false))
        return 2;
    expectAllOnline(now(), m_plan.onlineBoundMs() + 2000, QStringLiteral("the gateway's start"));
    log(QStringLiteral("%1 controllers, %2 events planned in the checked phase of %3 s")
            .arg(m_plan.controllers.size())
            .arg(m_plan.events.size())
            .arg(m_plan.checkedMs / 1000));

    const qint64 start = m_clock.elapsed();
    for (const ChaosEvent &event : qAsConst(m_plan.events)) {
        waitMs(start + event.atMs - m_clock.elapsed());
        switch (event.kind) {
        case ChaosEvent::KillSimulators: {
            const qint64 killed = now();
            for (int k : event.controllers)
                killSimulator(k);
            waitMs(event.downMs);
            for (int k : event.controllers) {
                // Statuses count from the launch: the gateway may find it
                // before it has said where it serves.
                const qint64 restarted = now();
                if (!startSimulator(k, false))
                    return 2;
                log(QStringLiteral("%1 started again after %2 ms").arg(m_simulators[size_t(k)].name).arg(event.downMs));
                if (event.downMs >= m_plan.lostBoundMs())
                    m_checker.expectLost(k, killed, killed + m_plan.lostBoundMs());
                m_checker.expectOnline(k, restarted, restarted + m_plan.onlineBoundMs(),
                                       QStringLiteral("its simulator's restart"), killed);
            }
            break;
        }
        case ChaosEvent::KillBroker:
            killBroker();
            waitMs(event.downMs);
            if (!restartBroker(event.downMs))
                return 2;
            break;
        case ChaosEvent::KillGateway:
            killGateway();
            waitMs(event.downMs);
            {
                const qint64 started = now();
                if (!startGateway(false))
                    return 2;
                expectAllOnline(started, m_plan.onlineBoundMs(), QStringLiteral("the gateway's restart"));
            }
            break;
        case ChaosEvent::KillGatewayWithoutBroker:
            // The data of the outage waits on disk; the gateway dies with it
            // there and must resume it.
            killBroker();
            waitMs(event.downMs / 2);
            killGateway();
            waitMs(300);
            if (!startGateway(false))
                return 2;
            waitMs(event.downMs - event.downMs / 2);
            if (!restartBroker(event.downMs))
                return 2;
            break;
        }
    }
    waitMs(start + m_plan.checkedMs - m_clock.elapsed());
    stopGateway();

    // The counted phase: some simulators now cut replies short or send them
    // twice, faults the drive passes on as good by its contract.
    m_countedPhase = true;
    log(QStringLiteral("counted phase"));
    for (int k = 0; k < m_plan.controllers.size(); ++k) {
        if (m_plan.controllers.at(k).counted.isEmpty())
            continue;
        kill(m_simulators[size_t(k)]);
        if (!startSimulator(k, true))
            return 2;
    }
    if (!startGateway(true))
        return 2;
    expectAllOnline(now(), m_plan.onlineBoundMs() + 2000, QStringLiteral("the gateway's start"));
    waitMs(start + qint64(m_plan.seconds) * 1000 - m_clock.elapsed());
    stopGateway();
    waitMs(1500); // the last messages on their way
    m_checker.finish();

    const InvariantChecker &c = m_checker;
    printf("chaos: seconds %d seed %u controllers %d messages %lld values %lld kills sim %d broker %d gateway %d "
           "dropped %lld duplicates %lld uncommitted %lld invariant-failures %d | counted phase: truncated %lld "
           "duplicated %lld mismatches %lld\n",
           m_plan.seconds, m_plan.seed, int(m_plan.controllers.size()), c.messages, c.values, m_kills[0], m_kills[1],
           m_kills[2], c.dropped, c.duplicates, c.uncommitted, c.failures(), c.cutValues, c.doubledValues,
           c.mismatches);
    fflush(stdout);
    return c.failures() == 0 ? 0 : 4;
}
