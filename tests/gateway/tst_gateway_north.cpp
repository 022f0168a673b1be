// The gateway's MQTT side against a real mosquitto broker: data, status and
// write commands through Northbound, the offline queue through outages,
// restarts, a full disk and unusable files, the last will, and the broker's
// authentication: passwords, its authority and client certificates.
#include "BrokerFixture.h"
#include "TestSubscriber.h"
#include "TestSupport.h"

#include "gateway/GatewayMetrics.h"
#include "gateway/Northbound.h"
#include "gateway/Topics.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QtTest>

#include <atomic>
#include <thread>

namespace {
const QString kGateway = QStringLiteral("gw");
const QString kAll = QStringLiteral("sorvik/gw/#");

GatewayConfig configFor(const BrokerFixture &broker, const QString &bufferPath, qint64 maxBytes = 64 << 20)
{
    GatewayConfig config;
    config.name = kGateway;
    config.broker.host = broker.host();
    config.broker.port = broker.port();
    config.buffer.path = bufferPath;
    config.buffer.maxBytes = maxBytes;
    return config;
}

QByteArray dataMessage(int seq, int size = 0)
{
    QByteArray payload = QByteArrayLiteral("{\"seq\":") + QByteArray::number(seq) + QByteArrayLiteral(",\"pad\":\"");
    payload += QByteArray(std::max(0, size - payload.size() - 2), 'x') + QByteArrayLiteral("\"}");
    return payload;
}

// The sequence numbers on a topic in their first arrival: a message sent
// again after a broken connection is allowed, one out of order or missing is not.
QList<int> seqsOn(const TestSubscriber &subscriber, const QString &topic)
{
    QList<int> seqs;
    for (const TestSubscriber::Message &message : subscriber.messages(topic)) {
        const int seq = QJsonDocument::fromJson(message.payload).object().value(QLatin1String("seq")).toInt();
        if (!seqs.contains(seq))
            seqs << seq;
    }
    return seqs;
}

QList<int> range(int from, int to)
{
    QList<int> out;
    for (int i = from; i <= to; ++i)
        out << i;
    return out;
}

qint64 counter(const GatewayMetrics &metrics, const char *name)
{
    return metrics.snapshot().value(QLatin1String(name)).toVariant().toLongLong();
}

// Whether a warning holding this text was logged.
bool warned(const TestSupport::LogCapture &log, const char *text)
{
    for (const TestSupport::LogLine &line : log.all())
        if (line.type == QtWarningMsg && line.text.contains(QLatin1String(text)))
            return true;
    return false;
}
} // namespace

class TstGatewayNorth : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void dataStatesAndLastWillReachTheBroker();
    void writeCommandsPassOnToTheirController();
    void outageLosesNothingAndKeepsEachStreamInOrder();
    void fullQueueDropsTheOldestAndCountsThem_data();
    void fullQueueDropsTheOldestAndCountsThem();
    void unusableQueueFileIsRefusedOrMovedAside_data();
    void unusableQueueFileIsRefusedOrMovedAside();
    void brokerLetsInOnlyWhomItShould_data();
    void brokerLetsInOnlyWhomItShould();
    void metricsAreServedForPrometheus();

private:
    QTemporaryDir m_dir;
    BrokerFixture::Options m_tls;      // a broker's and a client's certificates of one authority
    BrokerFixture::Options m_stranger; // the same of another authority
};

void TstGatewayNorth::initTestCase()
{
    QString error;
    QVERIFY2(BrokerFixture::writeTestCertificates(m_dir.filePath(QStringLiteral("tls")), &m_tls, &error) &&
                 BrokerFixture::writeTestCertificates(m_dir.filePath(QStringLiteral("stranger")), &m_stranger, &error),
             qPrintable(error));
}

void TstGatewayNorth::dataStatesAndLastWillReachTheBroker()
{
    BrokerFixture broker;
    QVERIFY2(broker.start(), qPrintable(broker.error()));
    TestSubscriber live;
    QVERIFY(live.connectAndSubscribe(broker.host(), broker.port(), {kAll}));
    GatewayMetrics metrics;
    Northbound north(configFor(broker, m_dir.filePath(QStringLiteral("live.db"))), &metrics);
    QString error;
    QVERIFY2(north.open(&error), qPrintable(error));
    QVERIFY(TestSubscriber::waitFor([&] { return north.isConnected(); }, 5000));

    const QString topic = Topics::data(kGateway, QStringLiteral("c1"), QStringLiteral("fast"));
    const QString status = Topics::gatewayStatus(kGateway);
    for (int seq = 1; seq <= 3; ++seq)
        north.publishData(topic, dataMessage(seq));
    north.publishStatus(Topics::controllerStatus(kGateway, QStringLiteral("c1")), "{\"state\":\"online\"}");
    north.publishEvent(Topics::heartbeat(kGateway), "{}");
    QVERIFY(
        TestSubscriber::waitFor([&] { return live.count(topic) == 3 && counter(metrics, "published") == 3; }, 5000));
    QCOMPARE(seqsOn(live, topic), range(1, 3));
    QCOMPARE(live.messages(topic).first().qos, 1);
    QVERIFY(TestSubscriber::waitFor([&] { return live.count(Topics::heartbeat(kGateway)) == 1; }, 5000));
    QCOMPARE(counter(metrics, "buffered"), 0);

    // Someone who comes later finds the gateway and controller states kept.
    TestSubscriber later;
    QVERIFY(later.connectAndSubscribe(broker.host(), broker.port(), {kAll}));
    QVERIFY(TestSubscriber::waitFor(
        [&] {
            return later.count(status) == 1 &&
                   later.count(Topics::controllerStatus(kGateway, QStringLiteral("c1"))) == 1;
        },
        5000));
    QCOMPARE(later.messages(status).first().payload, QByteArray("online"));
    QVERIFY(later.messages(status).first().retained);
    QVERIFY(later.messages(Topics::controllerStatus(kGateway, QStringLiteral("c1"))).first().retained);
    QCOMPARE(later.count(topic), 0);

    // Gone without a goodbye: the broker sends the will, then the gateway is
    // back; a stop leaves offline retained.
    north.dropConnection();
    QVERIFY(TestSubscriber::waitFor([&] { return live.count(status) == 3; }, 15000));
    north.close(2000);
    QVERIFY(TestSubscriber::waitFor([&] { return live.count(status) == 4; }, 5000));
    QList<QByteArray> said;
    for (const TestSubscriber::Message &message : live.messages(status))
        said << message.payload;
    QCOMPARE(said, (QList<QByteArray>{"online", "offline", "online", "offline"}));
    TestSubscriber last;
    QVERIFY(last.connectAndSubscribe(broker.host(), broker.port(), {status}));
    QVERIFY(TestSubscriber::waitFor([&] { return last.count(status) == 1; }, 5000));
    QCOMPARE(last.messages(status).first().payload, QByteArray("offline"));
    QVERIFY(last.messages(status).first().retained);
}

void TstGatewayNorth::writeCommandsPassOnToTheirController()
{
    BrokerFixture broker;
    QVERIFY2(broker.start(), qPrintable(broker.error()));
    TestSubscriber operatorClient;
    const QString retainedTopic = Topics::write(kGateway, QStringLiteral("c1"));
    QVERIFY(operatorClient.connectAndSubscribe(broker.host(), broker.port(),
                                               {Topics::gatewayStatus(kGateway), retainedTopic}));
    // A retained command, left on the broker before the gateway comes, would
    // run again at every connection: it must be ignored.
    operatorClient.publish(retainedTopic, "{\"id\":0}", 1, true);
    QVERIFY(TestSubscriber::waitFor([&] { return operatorClient.count(retainedTopic) == 1; }, 5000));

    Northbound north(configFor(broker, m_dir.filePath(QStringLiteral("writes.db"))), nullptr);
    QSignalSpy commands(&north, &Northbound::writeCommand);
    QString error;
    QVERIFY2(north.open(&error), qPrintable(error));
    // The gateway listens before it says online.
    QVERIFY(TestSubscriber::waitFor([&] { return operatorClient.count(Topics::gatewayStatus(kGateway)) > 0; }, 5000));
    operatorClient.publish(Topics::write(QStringLiteral("other"), QStringLiteral("c1")), "{\"id\":9}");
    const QByteArray command = R"({"id":7,"tag":"setpoint","value":12.5})";
    operatorClient.publish(Topics::write(kGateway, QStringLiteral("c2")), command);
    QVERIFY(TestSubscriber::waitFor([&] { return commands.size() == 1; }, 5000));
    QCOMPARE(commands.at(0).at(0).toString(), QStringLiteral("c2"));
    QCOMPARE(commands.at(0).at(1).toByteArray(), command);
    north.close(2000);
    QCOMPARE(commands.size(), 1);
}

// Two streams published from two threads while the broker is stopped and
// started again: the queue takes over and replays, and the persistent
// subscriber sees every sequence number of each stream, in order.
void TstGatewayNorth::outageLosesNothingAndKeepsEachStreamInOrder()
{
    BrokerFixture::Options options;
    options.persistence = true;
    BrokerFixture broker(options);
    QVERIFY2(broker.start(), qPrintable(broker.error()));
    TestSubscriber subscriber(false);
    QVERIFY(subscriber.connectAndSubscribe(broker.host(), broker.port(), {kAll}));
    GatewayMetrics metrics;
    Northbound north(configFor(broker, m_dir.filePath(QStringLiteral("outage.db"))), &metrics);
    QString error;
    QVERIFY2(north.open(&error), qPrintable(error));
    QVERIFY(TestSubscriber::waitFor([&] { return north.isConnected(); }, 5000));

    const QStringList topics{Topics::data(kGateway, QStringLiteral("c1"), QStringLiteral("g")),
                             Topics::data(kGateway, QStringLiteral("c2"), QStringLiteral("g"))};
    std::atomic<bool> stop{false};
    std::atomic<int> sent[2] = {{0}, {0}};
    std::vector<std::thread> pollers;
    // Joins the pollers however the test ends.
    const auto joinPollers = [&] {
        stop = true;
        for (std::thread &poller : pollers)
            if (poller.joinable())
                poller.join();
    };
    const QScopeGuard guard(joinPollers);
    for (int stream = 0; stream < 2; ++stream)
        pollers.emplace_back([&, stream] {
            while (!stop) {
                north.publishData(topics.at(stream), dataMessage(sent[stream] + 1));
                ++sent[stream];
                QThread::msleep(5);
            }
        });

    const auto received = [&] { return subscriber.count(topics.at(0)) + subscriber.count(topics.at(1)); };
    QVERIFY(TestSubscriber::waitFor([&] { return received() >= 40; }, 10000));
    broker.stop();
    QVERIFY(TestSubscriber::waitFor([&] { return !north.isConnected(); }, 10000));
    QVERIFY(TestSubscriber::waitFor([&] { return counter(metrics, "buffered") >= 200; }, 20000));
    const qint64 bufferedInOutage = counter(metrics, "buffered");
    QVERIFY2(broker.start(), qPrintable(broker.error()));
    QVERIFY(TestSubscriber::waitFor(
        [&] { return north.isConnected() && counter(metrics, "replayed") >= bufferedInOutage; }, 30000));
    const int afterReplay = received();
    QVERIFY(TestSubscriber::waitFor([&] { return received() >= afterReplay + 40; }, 10000));
    joinPollers();

    for (int stream = 0; stream < 2; ++stream) {
        const QString &topic = topics.at(stream);
        QVERIFY(TestSubscriber::waitFor([&] { return seqsOn(subscriber, topic).size() >= sent[stream]; }, 20000));
        QCOMPARE(seqsOn(subscriber, topic), range(1, sent[stream]));
    }
    QVERIFY(TestSubscriber::waitFor([&] { return north.backlog() == 0; }, 10000));
    QCOMPARE(counter(metrics, "replayed"), counter(metrics, "buffered"));
    QCOMPARE(counter(metrics, "dropped"), 0);
    QCOMPARE(counter(metrics, "published"), qint64(sent[0] + sent[1]));
    north.close(2000);
}

void TstGatewayNorth::fullQueueDropsTheOldestAndCountsThem_data()
{
    QTest::addColumn<qint64>("maxBytes");
    QTest::addColumn<qint64>("maxFileBytes");
    QTest::addColumn<int>("messages");
    QTest::addColumn<int>("dropped"); // -1: some
    QTest::addColumn<QString>("warning");
    // Every message counts 100 bytes (topic and payload): room for ten.
    QTest::newRow("size limit") << qint64(1000) << qint64(0) << 30 << 20 << "offline queue full (1000 bytes)";
    // SQLite meets the file's cap exactly as it meets a full disk.
    QTest::newRow("file cap, as a full disk")
        << qint64(64 << 20) << qint64(64 << 10) << 1500 << -1 << "cannot grow (disk full or max_file_bytes reached)";
}

void TstGatewayNorth::fullQueueDropsTheOldestAndCountsThem()
{
    QFETCH(qint64, maxBytes);
    QFETCH(qint64, maxFileBytes);
    QFETCH(int, messages);
    QFETCH(int, dropped);
    QFETCH(QString, warning);
    BrokerFixture broker;
    QVERIFY2(broker.start(), qPrintable(broker.error()));
    broker.stop(); // its port stays ours, with nobody listening
    const QString topic = Topics::data(kGateway, QStringLiteral("c1"), QStringLiteral("g"));
    const QString path = m_dir.filePath(QStringLiteral("full-%1.db").arg(QTest::currentDataTag()));
    GatewayConfig config = configFor(broker, path, maxBytes);
    config.buffer.maxFileBytes = maxFileBytes;
    TestSupport::LogCapture log;
    QString error;
    int gone = 0;
    {
        GatewayMetrics metrics;
        Northbound first(config, &metrics);
        QVERIFY2(first.open(&error), qPrintable(error));
        for (int seq = 1; seq <= messages; ++seq)
            first.publishData(topic, dataMessage(seq, 100 - topic.toUtf8().size()));
        QVERIFY(TestSubscriber::waitFor([&] { return counter(metrics, "buffered") == messages; }, 10000));
        gone = int(counter(metrics, "dropped"));
        QVERIFY2(dropped < 0 ? gone > 0 : gone == dropped, qPrintable(QString::number(gone)));
        QCOMPARE(first.backlog(), messages - gone);
        first.close(0);
    }
    if (maxFileBytes > 0)
        QVERIFY(QFileInfo(path).size() <= maxFileBytes);
    int warnings = 0;
    for (const TestSupport::LogLine &line : log.all())
        warnings += line.type == QtWarningMsg && line.text.contains(QLatin1String("dropping"));
    QCOMPARE(warnings, 1);
    QVERIFY(warned(log, qPrintable(warning)));

    // The next start resumes the queue: the newest wait in order, before
    // what comes after them, and the broker gets them when it is back.
    QVERIFY(broker.start());
    TestSubscriber subscriber;
    QVERIFY(subscriber.connectAndSubscribe(broker.host(), broker.port(), {kAll}));
    GatewayMetrics metrics;
    config.buffer.maxBytes = 64 << 20; // room for the one more
    Northbound second(config, &metrics);
    QVERIFY2(second.open(&error), qPrintable(error));
    second.publishData(topic, dataMessage(messages + 1));
    QVERIFY(TestSubscriber::waitFor([&] { return second.backlog() == 0 && subscriber.count(topic) > messages - gone; },
                                    30000));
    QCOMPARE(counter(metrics, "replayed"), messages - gone + 1);
    QCOMPARE(seqsOn(subscriber, topic), range(gone + 1, messages + 1));
    second.close(2000);
}

void TstGatewayNorth::unusableQueueFileIsRefusedOrMovedAside_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QStringList>("sql"); // makes the file an SQLite database
    QTest::addColumn<QString>("reason");
    QTest::newRow("not SQLite") << "text" << QStringList() << "is not a readable SQLite database";
    QTest::newRow("another program's database")
        << "foreign" << QStringList{"CREATE TABLE recipes (name TEXT)"} << "database of something else";
    QTest::newRow("a folder in its place") << "folder" << QStringList() << "is a folder or a device, not a file";
    // A queue of ours with pages overwritten: SQLite says either that the
    // image is malformed or what its check found.
    QTest::newRow("damaged queue") << "damaged"
                                   << QStringList{"PRAGMA application_id = 1397904977",
                                                  "CREATE TABLE queue (id INTEGER PRIMARY KEY AUTOINCREMENT, "
                                                  "topic TEXT NOT NULL, payload BLOB NOT NULL)",
                                                  "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n "
                                                  "WHERE i < 300) INSERT INTO queue (topic, payload) "
                                                  "SELECT 'sorvik/gw/c1/g', randomblob(1000) FROM n"}
                                   << "offline queue";
}

void TstGatewayNorth::unusableQueueFileIsRefusedOrMovedAside()
{
    QFETCH(QString, kind);
    QFETCH(QStringList, sql);
    QFETCH(QString, reason);
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("queue.db"));
    if (kind == QLatin1String("folder")) {
        QVERIFY(QDir(dir.path()).mkpath(QStringLiteral("queue.db/inside")));
    } else if (kind == QLatin1String("text")) {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(QByteArray(4096, 'z'));
    } else {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("maker"));
        db.setDatabaseName(path);
        QVERIFY(db.open());
        for (const QString &statement : sql)
            QVERIFY2(QSqlQuery(db).exec(statement), qPrintable(statement));
        db.close();
    }
    QSqlDatabase::removeDatabase(QStringLiteral("maker"));
    if (kind == QLatin1String("damaged")) {
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadWrite) && file.size() > 65536);
        file.seek(16384);
        file.write(QByteArray(16384, '\xa5'));
    }
    // What the file holds, or what the folder does.
    const auto contents = [](const QString &file) {
        QFile original(file);
        return original.open(QIODevice::ReadOnly) ? original.readAll() : QDir(file).entryList().join(' ').toUtf8();
    };
    const QByteArray before = contents(path);

    GatewayConfig config;
    config.name = kGateway;
    config.broker.port = 1; // never reached: the queue is refused first, or no broker is needed
    config.buffer.path = path;
    Northbound refusing(config, nullptr);
    QString error;
    QVERIFY(!refusing.open(&error));
    QVERIFY2(error.contains(path) && error.contains(reason), qPrintable(error));
    const QDir::Filters entries = QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot;
    QCOMPARE(QDir(dir.path()).entryList(entries), QStringList{QStringLiteral("queue.db")});

    Northbound afresh(config, nullptr);
    QVERIFY2(afresh.open(&error, true), qPrintable(error));
    afresh.close(0);
    // Moved aside, never deleted.
    const QStringList aside = QDir(dir.path()).entryList({QStringLiteral("queue.db.corrupt-*")}, entries);
    QCOMPARE(aside.size(), 1);
    QCOMPARE(contents(dir.filePath(aside.first())), before);
    // The new queue is ours from now on.
    Northbound again(config, nullptr);
    QVERIFY2(again.open(&error), qPrintable(error));
    again.close(0);
}

void TstGatewayNorth::brokerLetsInOnlyWhomItShould_data()
{
    QTest::addColumn<bool>("tls");         // else the broker wants a password
    QTest::addColumn<QString>("password"); // the gateway's; empty: none
    QTest::addColumn<bool>("ownAuthority");
    QTest::addColumn<bool>("certificate");
    QTest::addColumn<QString>("refusal"); // what the warning says; empty: let in
    QTest::newRow("right password") << false << "s3cret-right" << true << false << "";
    QTest::newRow("wrong password") << false << "s3cret-wrong" << true << false << "refused the connection: ";
    QTest::newRow("no password") << false << "" << true << false << "refused the connection: ";
    QTest::newRow("client certificate") << true << "" << true << true << "";
    QTest::newRow("no client certificate") << true << "" << true << false << "not reachable";
    // A broker whose certificate our authority did not sign is not spoken to.
    QTest::newRow("broker of another authority") << true << "" << false << true << "TLS";
}

// Let in, or refused and said once while data waits in the queue; no log
// line holds a password.
void TstGatewayNorth::brokerLetsInOnlyWhomItShould()
{
    QFETCH(bool, tls);
    QFETCH(QString, password);
    QFETCH(bool, ownAuthority);
    QFETCH(bool, certificate);
    QFETCH(QString, refusal);
    BrokerFixture::Options options;
    if (tls) {
        options = m_tls;
        options.requireCertificate = true;
    } else {
        options.users = {{QStringLiteral("gateway"), QStringLiteral("s3cret-right")}};
    }
    BrokerFixture broker(options);
    QVERIFY2(broker.start(), qPrintable(broker.error()));
    TestSubscriber subscriber;
    if (tls)
        subscriber.setTls(m_tls.caFile, m_tls.clientCertFile, m_tls.clientKeyFile);
    else
        subscriber.setCredentials(QStringLiteral("gateway"), QStringLiteral("s3cret-right"));
    QVERIFY(subscriber.connectAndSubscribe(broker.host(), broker.port(), {kAll}));
    GatewayConfig config =
        configFor(broker, m_dir.filePath(QStringLiteral("login-%1.db").arg(QTest::currentDataTag())));
    if (!password.isEmpty()) {
        config.broker.user = QStringLiteral("gateway");
        config.broker.password = password;
    }
    if (tls)
        config.broker.caFile = ownAuthority ? m_tls.caFile : m_stranger.caFile;
    if (certificate) {
        config.broker.certFile = m_tls.clientCertFile;
        config.broker.keyFile = m_tls.clientKeyFile;
    }
    const QString topic = Topics::data(kGateway, QStringLiteral("c1"), QStringLiteral("g"));
    TestSupport::LogCapture log;
    Northbound north(config, nullptr);
    QString error;
    QVERIFY2(north.open(&error), qPrintable(error));
    north.publishData(topic, dataMessage(1));
    if (refusal.isEmpty()) {
        QVERIFY(TestSubscriber::waitFor([&] { return subscriber.count(topic) == 1; }, 10000));
        QCOMPARE(subscriber.count(Topics::gatewayStatus(kGateway)), 1);
    } else {
        QVERIFY(
            TestSubscriber::waitFor([&] { return warned(log, qPrintable(refusal)) && north.backlog() == 1; }, 10000));
        QVERIFY(!north.isConnected());
    }
    north.close(refusal.isEmpty() ? 2000 : 0);
    for (const TestSupport::LogLine &line : log.all())
        QVERIFY2(!line.text.contains(QLatin1String("s3cret")), qPrintable(line.text));
}

void TstGatewayNorth::metricsAreServedForPrometheus()
{
    QTcpServer probe;
    QVERIFY(probe.listen(QHostAddress::LocalHost, 0));
    const quint16 port = probe.serverPort();
    probe.close();
    GatewayMetrics metrics;
    QString error;
    QVERIFY2(metrics.serve(QStringLiteral("127.0.0.1:%1").arg(port), &error), qPrintable(error));
    metrics.addFailure(QStringLiteral("c1"), 3);
    metrics.addFailure(QStringLiteral("c2"), 3);
    metrics.addDropped(4);
    QCOMPARE(metrics.snapshot().value(QLatin1String("failures")).toObject(), QJsonObject({{"3", 2}}));
    QCOMPARE(metrics.snapshot().value(QLatin1String("dropped")).toInt(), 4);

    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, port);
    QVERIFY(socket.waitForConnected(5000));
    socket.write("GET /metrics HTTP/1.0\r\nHost: localhost\r\n\r\n");
    QByteArray response;
    while (socket.waitForReadyRead(5000))
        response += socket.readAll();
    QVERIFY2(response.startsWith("HTTP/1.1 200"), response.left(200).constData());
    for (const char *line : {"sorvik_gateway_failures_total{controller=\"c2\",status=\"3\"} 1",
                             "sorvik_gateway_messages_total{outcome=\"dropped\"} 4"})
        QVERIFY2(response.contains(line), line);
}

QTEST_GUILESS_MAIN(TstGatewayNorth)
#include "tst_gateway_north.moc"
