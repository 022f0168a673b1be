// The gateway's MQTT side against a real mosquitto broker: data, status and
// write commands through Northbound, the offline queue through outages and
// restarts, the last will, and the Prometheus endpoint.
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

int seqOf(const TestSubscriber::Message &message)
{
    return QJsonDocument::fromJson(message.payload).object().value(QLatin1String("seq")).toInt();
}

QList<int> seqsOn(const TestSubscriber &subscriber, const QString &topic)
{
    QList<int> seqs;
    for (const TestSubscriber::Message &message : subscriber.messages(topic))
        seqs << seqOf(message);
    return seqs;
}

// The sequence numbers in their first arrival: a message sent again after a
// broken connection is allowed, one out of order or missing is not.
QList<int> firstArrivals(const QList<int> &seqs)
{
    QList<int> out;
    for (int seq : seqs)
        if (!out.contains(seq))
            out << seq;
    return out;
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
    void dataAndRetainedStatesReachTheBroker();
    void writeCommandsPassOnToTheirController();
    void outageLosesNothingAndKeepsEachStreamInOrder();
    void fullQueueDropsTheOldestAndCountsThem();
    void restartReplaysTheQueueItLeft();
    void unusableQueueFileIsRefusedOrMovedAside_data();
    void unusableQueueFileIsRefusedOrMovedAside();
    void lastWillAndGoodbyeSayOffline();
    void refusedCredentialsAreSaidAndDataWaits();
    void tlsBrokerIsTrustedThroughItsAuthorityOnly();
    void metricsAreServedForPrometheus();

private:
    QTemporaryDir m_dir;
};

void TstGatewayNorth::dataAndRetainedStatesReachTheBroker()
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
            return later.count(Topics::gatewayStatus(kGateway)) == 1 &&
                   later.count(Topics::controllerStatus(kGateway, QStringLiteral("c1"))) == 1;
        },
        5000));
    const TestSubscriber::Message online = later.messages(Topics::gatewayStatus(kGateway)).first();
    QCOMPARE(online.payload, QByteArray("online"));
    QVERIFY(online.retained);
    QVERIFY(later.messages(Topics::controllerStatus(kGateway, QStringLiteral("c1"))).first().retained);
    QCOMPARE(later.count(topic), 0);
    north.close(2000);
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
        QVERIFY(TestSubscriber::waitFor([&] { return firstArrivals(seqsOn(subscriber, topic)).size() >= sent[stream]; },
                                        20000));
        QCOMPARE(firstArrivals(seqsOn(subscriber, topic)), range(1, sent[stream]));
    }
    QVERIFY(TestSubscriber::waitFor([&] { return north.backlog() == 0; }, 10000));
    QCOMPARE(counter(metrics, "replayed"), counter(metrics, "buffered"));
    QCOMPARE(counter(metrics, "dropped"), 0);
    QCOMPARE(counter(metrics, "published"), qint64(sent[0] + sent[1]));
    north.close(2000);
}

void TstGatewayNorth::fullQueueDropsTheOldestAndCountsThem()
{
    BrokerFixture broker;
    QVERIFY2(broker.start(), qPrintable(broker.error()));
    broker.stop(); // its port stays ours, with nobody listening
    // Every message counts 100 bytes (topic and payload): room for ten.
    const QString topic = Topics::data(kGateway, QStringLiteral("c1"), QStringLiteral("g"));
    const int payloadSize = 100 - topic.toUtf8().size();
    GatewayMetrics metrics;
    Northbound north(configFor(broker, m_dir.filePath(QStringLiteral("full.db")), 1000), &metrics);
    QString error;
    QVERIFY2(north.open(&error), qPrintable(error));
    for (int seq = 1; seq <= 30; ++seq)
        north.publishData(topic, dataMessage(seq, payloadSize));
    QVERIFY(TestSubscriber::waitFor([&] { return counter(metrics, "buffered") == 30; }, 5000));
    QCOMPARE(counter(metrics, "dropped"), 20);
    QCOMPARE(north.backlog(), 10);

    TestSubscriber subscriber;
    QVERIFY(broker.start());
    QVERIFY(subscriber.connectAndSubscribe(broker.host(), broker.port(), {kAll}));
    // The subscriber may come after the first replays: wait for the queue to
    // drain, then check that the newest ten went out in order.
    QVERIFY(TestSubscriber::waitFor([&] { return north.backlog() == 0; }, 30000));
    QVERIFY(!seqsOn(subscriber, topic).contains(20));
    QCOMPARE(counter(metrics, "replayed"), 10);
    north.close(2000);
}

void TstGatewayNorth::restartReplaysTheQueueItLeft()
{
    BrokerFixture broker;
    QVERIFY2(broker.start(), qPrintable(broker.error()));
    broker.stop();
    const QString path = m_dir.filePath(QStringLiteral("restart.db"));
    const QString topic = Topics::data(kGateway, QStringLiteral("c1"), QStringLiteral("g"));
    {
        GatewayMetrics metrics;
        Northbound first(configFor(broker, path), &metrics);
        QString error;
        QVERIFY2(first.open(&error), qPrintable(error));
        for (int seq = 1; seq <= 5; ++seq)
            first.publishData(topic, dataMessage(seq));
        QVERIFY(TestSubscriber::waitFor([&] { return first.backlog() == 5; }, 5000));
        first.close(0);
    }
    QVERIFY(broker.start());
    TestSubscriber subscriber;
    QVERIFY(subscriber.connectAndSubscribe(broker.host(), broker.port(), {kAll}));
    GatewayMetrics metrics;
    Northbound second(configFor(broker, path), &metrics);
    QCOMPARE(second.backlog(), 0);
    QString error;
    QVERIFY2(second.open(&error), qPrintable(error));
    second.publishData(topic, dataMessage(6));
    QVERIFY(TestSubscriber::waitFor([&] { return subscriber.count(topic) == 6 && second.backlog() == 0; }, 30000));
    QCOMPARE(seqsOn(subscriber, topic), range(1, 6));
    QCOMPARE(counter(metrics, "replayed"), 6);
    second.close(2000);
}

void TstGatewayNorth::unusableQueueFileIsRefusedOrMovedAside_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("reason");
    QTest::newRow("not SQLite") << "text"
                                << "is not a readable SQLite database";
    QTest::newRow("another program's database") << "foreign"
                                                << "database of something else";
    // SQLite says either that the image is malformed or what its check found.
    QTest::newRow("damaged queue") << "damaged"
                                   << "offline queue";
}

void TstGatewayNorth::unusableQueueFileIsRefusedOrMovedAside()
{
    QFETCH(QString, kind);
    QFETCH(QString, reason);
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("queue.db"));
    if (kind == QLatin1String("text")) {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(QByteArray(4096, 'z'));
    } else if (kind == QLatin1String("damaged")) {
        GatewayConfig config;
        config.name = kGateway;
        config.broker.port = 1;
        config.buffer.path = path;
        Northbound filling(config, nullptr);
        QString error;
        QVERIFY2(filling.open(&error), qPrintable(error));
        for (int seq = 1; seq <= 300; ++seq)
            filling.publishData(QStringLiteral("sorvik/gw/c1/g"), dataMessage(seq, 1000));
        QVERIFY(TestSubscriber::waitFor([&] { return filling.backlog() == 300; }, 10000));
        filling.close(0);
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadWrite));
        QVERIFY(file.size() > 65536);
        file.seek(16384);
        file.write(QByteArray(16384, '\xa5'));
    } else {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("foreign"));
        db.setDatabaseName(path);
        QVERIFY(db.open());
        QVERIFY(QSqlQuery(db).exec(QStringLiteral("CREATE TABLE recipes (name TEXT)")));
        db.close();
    }
    QFile original(path);
    QVERIFY(original.open(QIODevice::ReadOnly));
    const QByteArray before = original.readAll();
    original.close();
    QSqlDatabase::removeDatabase(QStringLiteral("foreign"));

    GatewayConfig config;
    config.name = kGateway;
    config.broker.port = 1; // never reached: the queue is refused first, or no broker is needed
    config.buffer.path = path;
    Northbound refusing(config, nullptr);
    QString error;
    QVERIFY(!refusing.open(&error));
    QVERIFY2(error.contains(path) && error.contains(reason), qPrintable(error));
    QCOMPARE(QDir(dir.path()).entryList(QDir::Files), QStringList{QStringLiteral("queue.db")});

    Northbound afresh(config, nullptr);
    QVERIFY2(afresh.open(&error, true), qPrintable(error));
    afresh.close(0);
    const QStringList aside = QDir(dir.path()).entryList({QStringLiteral("queue.db.corrupt-*")}, QDir::Files);
    QCOMPARE(aside.size(), 1);
    QFile kept(dir.filePath(aside.first()));
    QVERIFY(kept.open(QIODevice::ReadOnly));
    QCOMPARE(kept.readAll(), before);
    // The new queue is ours from now on.
    Northbound again(config, nullptr);
    QVERIFY2(again.open(&error), qPrintable(error));
    again.close(0);
}

void TstGatewayNorth::lastWillAndGoodbyeSayOffline()
{
    BrokerFixture broker;
    QVERIFY2(broker.start(), qPrintable(broker.error()));
    const QString status = Topics::gatewayStatus(kGateway);
    TestSubscriber watcher;
    QVERIFY(watcher.connectAndSubscribe(broker.host(), broker.port(), {status}));
    Northbound north(configFor(broker, m_dir.filePath(QStringLiteral("will.db"))), nullptr);
    QString error;
    QVERIFY2(north.open(&error), qPrintable(error));
    QVERIFY(TestSubscriber::waitFor([&] { return watcher.count(status) == 1; }, 5000));

    // Gone without a goodbye: the broker sends the will, then the gateway is back.
    north.dropConnection();
    QVERIFY(TestSubscriber::waitFor([&] { return watcher.count(status) == 3; }, 15000));
    QList<QByteArray> said;
    for (const TestSubscriber::Message &message : watcher.messages(status))
        said << message.payload;
    QCOMPARE(said, (QList<QByteArray>{"online", "offline", "online"}));

    north.close(2000);
    TestSubscriber later;
    QVERIFY(later.connectAndSubscribe(broker.host(), broker.port(), {status}));
    QVERIFY(TestSubscriber::waitFor([&] { return later.count(status) == 1; }, 5000));
    QCOMPARE(later.messages(status).first().payload, QByteArray("offline"));
    QVERIFY(later.messages(status).first().retained);
}

void TstGatewayNorth::refusedCredentialsAreSaidAndDataWaits()
{
    BrokerFixture::Options options;
    options.users = {{QStringLiteral("gateway"), QStringLiteral("s3cret")}};
    BrokerFixture broker(options);
    QVERIFY2(broker.start(), qPrintable(broker.error()));
    TestSubscriber subscriber;
    subscriber.setCredentials(QStringLiteral("gateway"), QStringLiteral("s3cret"));
    QVERIFY(subscriber.connectAndSubscribe(broker.host(), broker.port(), {kAll}));
    const QString path = m_dir.filePath(QStringLiteral("credentials.db"));
    const QString topic = Topics::data(kGateway, QStringLiteral("c1"), QStringLiteral("g"));
    {
        TestSupport::LogCapture log;
        GatewayConfig config = configFor(broker, path);
        config.broker.user = QStringLiteral("gateway");
        config.broker.password = QStringLiteral("wrong");
        Northbound refused(config, nullptr);
        QString error;
        QVERIFY2(refused.open(&error), qPrintable(error));
        refused.publishData(topic, dataMessage(1));
        QVERIFY(TestSubscriber::waitFor([&] { return warned(log, "refused the connection") && refused.backlog() == 1; },
                                        10000));
        QVERIFY(!refused.isConnected());
        refused.close(0);
        for (const TestSupport::LogLine &line : log.all())
            QVERIFY2(!line.text.contains(QLatin1String("wrong")), qPrintable(line.text));
    }
    GatewayConfig config = configFor(broker, path);
    config.broker.user = QStringLiteral("gateway");
    config.broker.password = QStringLiteral("s3cret");
    Northbound accepted(config, nullptr);
    QString error;
    QVERIFY2(accepted.open(&error), qPrintable(error));
    QVERIFY(TestSubscriber::waitFor([&] { return subscriber.count(topic) == 1; }, 10000));
    accepted.close(2000);
}

void TstGatewayNorth::tlsBrokerIsTrustedThroughItsAuthorityOnly()
{
    QTemporaryDir certificates;
    QTemporaryDir strangers;
    BrokerFixture::Options options;
    BrokerFixture::Options strangerOptions;
    QString error;
    QVERIFY2(BrokerFixture::writeTestCertificates(certificates.path(), &options, &error), qPrintable(error));
    QVERIFY2(BrokerFixture::writeTestCertificates(strangers.path(), &strangerOptions, &error), qPrintable(error));
    BrokerFixture broker(options);
    QVERIFY2(broker.start(), qPrintable(broker.error()));
    TestSubscriber subscriber;
    subscriber.setTls(options.caFile);
    QVERIFY(subscriber.connectAndSubscribe(broker.host(), broker.port(), {kAll}));
    const QString topic = Topics::data(kGateway, QStringLiteral("c1"), QStringLiteral("g"));
    {
        // A broker whose certificate our authority did not sign is not spoken to.
        GatewayConfig config = configFor(broker, m_dir.filePath(QStringLiteral("tls-stranger.db")));
        config.broker.caFile = strangerOptions.caFile;
        TestSupport::LogCapture log;
        Northbound wary(config, nullptr);
        QVERIFY2(wary.open(&error), qPrintable(error));
        wary.publishData(topic, dataMessage(1));
        QVERIFY(TestSubscriber::waitFor([&] { return warned(log, "TLS") && wary.backlog() == 1; }, 10000));
        QVERIFY(!wary.isConnected());
        wary.close(0);
    }
    GatewayConfig config = configFor(broker, m_dir.filePath(QStringLiteral("tls.db")));
    config.broker.caFile = options.caFile;
    Northbound north(config, nullptr);
    QVERIFY2(north.open(&error), qPrintable(error));
    north.publishData(topic, dataMessage(2));
    QVERIFY(TestSubscriber::waitFor([&] { return subscriber.count(topic) == 1; }, 10000));
    QCOMPARE(seqsOn(subscriber, topic), QList<int>{2});
    QCOMPARE(subscriber.count(QStringLiteral("sorvik/gw/status")), 1);
    north.close(2000);
}

void TstGatewayNorth::metricsAreServedForPrometheus()
{
    quint16 port = 0;
    {
        QTcpServer probe;
        QVERIFY(probe.listen(QHostAddress::LocalHost, 0));
        port = probe.serverPort();
    }
    GatewayMetrics metrics;
    QString error;
    QVERIFY2(metrics.serve(QStringLiteral("127.0.0.1:%1").arg(port), &error), qPrintable(error));
    metrics.addCycle(QStringLiteral("c1"));
    metrics.addCycle(QStringLiteral("c1"));
    metrics.addCycle(QStringLiteral("c2"));
    metrics.addFailure(QStringLiteral("c1"), 3);
    metrics.addFailure(QStringLiteral("c2"), 3);
    metrics.addWriteRefused(QStringLiteral("read only"));
    metrics.addDropped(4);

    const QJsonObject totals = metrics.snapshot();
    QCOMPARE(totals.value(QLatin1String("cycles")).toInt(), 3);
    QCOMPARE(totals.value(QLatin1String("dropped")).toInt(), 4);
    QCOMPARE(totals.value(QLatin1String("writesRefused")).toInt(), 1);
    QCOMPARE(totals.value(QLatin1String("failures")).toObject().value(QLatin1String("3")).toInt(), 2);

    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, port);
    QVERIFY(socket.waitForConnected(5000));
    socket.write("GET /metrics HTTP/1.0\r\nHost: localhost\r\n\r\n");
    QByteArray response;
    while (socket.waitForReadyRead(5000))
        response += socket.readAll();
    response += socket.readAll();
    QVERIFY2(response.startsWith("HTTP/1.1 200"), response.left(200).constData());
    for (const char *line : {"sorvik_gateway_cycles_total{controller=\"c1\"} 2",
                             "sorvik_gateway_failures_total{controller=\"c2\",status=\"3\"} 1",
                             "sorvik_gateway_writes_refused_total{reason=\"read only\"} 1",
                             "sorvik_gateway_messages_total{outcome=\"dropped\"} 4"})
        QVERIFY2(response.contains(line), line);
}

QTEST_GUILESS_MAIN(TstGatewayNorth)
#include "tst_gateway_north.moc"
