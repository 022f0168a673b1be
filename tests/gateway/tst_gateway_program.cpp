// sorvik-gateway as an operator runs it: options, --check, and a run against
// simulators and a real broker, stopped by SIGTERM.

#include "BrokerFixture.h"
#include "RecordingSink.h"
#include "TestSubscriber.h"
#include "sim/SorvikSimulator.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>

namespace {

struct Run {
    int exitCode = -1;
    bool crashed = false;
    QString out;
    QString err;
};

Run gateway(const QStringList &arguments)
{
    QProcess process;
    process.start(QStringLiteral(SORVIK_GATEWAY_FILE), arguments);
    Run run;
    if (!process.waitForFinished(30000)) {
        process.kill();
        process.waitForFinished();
    }
    run.crashed = process.exitStatus() != QProcess::NormalExit;
    run.exitCode = process.exitCode();
    run.out = QString::fromUtf8(process.readAllStandardOutput());
    run.err = QString::fromUtf8(process.readAllStandardError());
    return run;
}

// A simulated controller with these values on its own loopback address; it
// answers while the test runs its event loop. Its connection text, or empty.
QString serve(SorvikSimulator &sim, int k, const QStringList &presets)
{
    for (const QString &preset : presets)
        if (!sim.presetTag(preset))
            return QString();
    const quint16 port = sim.startUdp(QHostAddress(controllerAddress(k)));
    return port == 0 ? QString() : QStringLiteral("%1:%2").arg(controllerAddress(k)).arg(port);
}

bool writeFile(const QString &path, const QByteArray &text)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(text) == text.size();
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The first block of this language in the README's gateway section.
QByteArray readmeExample(const QString &language)
{
    const QString readme = QString::fromUtf8(readFile(QStringLiteral(SORVIK_SOURCE_DIR "/README.md")));
    const int begin = readme.indexOf(QLatin1String("<!-- gateway:begin -->"));
    const int end = readme.indexOf(QLatin1String("<!-- gateway:end -->"));
    if (begin < 0 || end < begin)
        return QByteArray();
    const QString section = readme.mid(begin, end - begin);
    const QString fence = QStringLiteral("```") + language + '\n';
    const int open = section.indexOf(fence);
    const int close = section.indexOf(QLatin1String("\n```"), open + fence.size());
    if (open < 0 || close < 0)
        return QByteArray();
    return section.mid(open + fence.size(), close - open - fence.size() + 1).toUtf8();
}

quint16 freePort()
{
    QTcpServer probe;
    return probe.listen(QHostAddress::LocalHost, 0) ? probe.serverPort() : 0;
}

QJsonObject lastJson(const TestSubscriber &subscriber, const QString &topic)
{
    const QList<TestSubscriber::Message> messages = subscriber.messages(topic);
    return messages.isEmpty() ? QJsonObject() : QJsonDocument::fromJson(messages.last().payload).object();
}

} // namespace

class TestGatewayProgram : public QObject
{
    Q_OBJECT

private slots:
    void usage_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("out");
        QTest::addColumn<QString>("err");
        QTest::newRow("help") << QStringList{"--help"} << 0 << "Usage: "
                              << "";
        QTest::newRow("version") << QStringList{"--version"} << 0 << "sorvik-gateway 1.8.4\n"
                                 << "";
        QTest::newRow("unknown option") << QStringList{"--colour"} << 1 << ""
                                        << "sorvik-gateway: Unknown option 'colour'. (see --help)\n";
        QTest::newRow("no file") << QStringList{"--check"} << 1 << ""
                                 << "sorvik-gateway: no configuration file given (see --help)\n";
        QTest::newRow("two files") << QStringList{"a.toml", "b.toml"} << 1 << ""
                                   << "sorvik-gateway: one configuration file only, not a.toml b.toml (see --help)\n";
        QTest::newRow("file twice") << QStringList{"a.toml", "--config", "b.toml"} << 1 << ""
                                    << "sorvik-gateway: give the configuration file once: as FILE or with --config\n";
        QTest::newRow("check and start afresh")
            << QStringList{"--check", "--start-afresh", "a.toml"} << 1 << ""
            << "sorvik-gateway: --start-afresh starts the gateway; --check only checks\n";
    }

    void usage()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, out);
        QFETCH(QString, err);
        const Run run = gateway(arguments);
        QVERIFY(!run.crashed);
        QCOMPARE(run.exitCode, exitCode);
        if (out.isEmpty())
            QVERIFY2(run.out.isEmpty(), qPrintable(run.out));
        else
            QVERIFY2(run.out.startsWith(out), qPrintable(run.out));
        QCOMPARE(run.err, err);
    }

    void readmeExamplePassesCheck()
    {
        const QByteArray example = readmeExample(QStringLiteral("toml"));
        QVERIFY2(!example.isEmpty(), "no ```toml block in the README's gateway section");
        QCOMPARE(example, readFile(QStringLiteral(SORVIK_SOURCE_DIR "/gateway/example.toml")));
        QTemporaryDir dir;
        const QString file = dir.filePath(QStringLiteral("example.toml"));
        QVERIFY(writeFile(file, example));
        const Run run = gateway({QStringLiteral("--check"), file});
        QVERIFY2(run.exitCode == 0 && !run.crashed, qPrintable(run.err));
        QVERIFY2(run.out.contains(QLatin1String("\nconfiguration good: ")), qPrintable(run.out));
        QVERIFY(run.err.isEmpty());
    }

    void checkPrintsThePlan()
    {
        QTemporaryDir dir;
        const QString file = dir.filePath(QStringLiteral("gw.toml"));
        QVERIFY(writeFile(file, "name = \"gw\"\n"
                                "[broker]\nuser = \"plant\"\npassword = \"hunter2\"\n"
                                "[buffer]\npath = \"q.db\"\nmax_file_bytes = 65536\n"
                                "[[controllers]]\nname = \"plc1\"\nconnection = \"10.0.0.7:6000\"\n"
                                "[[controllers.groups]]\nname = \"fast\"\ninterval_ms = 250\n"
                                "tags = [ { name = \"a\", tag = \"AI1\", type = \"float\" },\n"
                                "         { name = \"b\", tag = \"AI2\", type = \"int32\" },\n"
                                "         { name = \"c\", tag = \"AI41\", type = \"float\" },\n"
                                "         { name = \"d\", tag = \"DI3\", type = \"bool\" },\n"
                                "         { name = \"e\", tag = \"Custom5\", type = \"int16\" },\n"
                                "         { name = \"f\", tag = \"LW1\", type = \"int32\", count = 3 } ]\n"));
        const Run run = gateway({QStringLiteral("--check"), file});
        QVERIFY2(run.exitCode == 0 && !run.crashed, qPrintable(run.err));
        // The lines of each group's plan are the planner's own; here they
        // stand under their controller and group, summed up at the end.
        const QStringList lines = run.out.split('\n');
        QCOMPARE(
            lines.mid(0, 6),
            QStringList({"gateway gw: 1 controller, 1 scan group",
                         "broker 127.0.0.1:1883, client id sorvik-gateway-gw, QoS 1, keepalive 30 s, user plant "
                         "with a password",
                         QStringLiteral("offline buffer %1, at most 67108864 bytes in a file of at most 65536 bytes")
                             .arg(dir.filePath("q.db")),
                         "", "controller plc1 at 10.0.0.7:6000, lost after 3 cycles without a good reply",
                         "  group fast, every 250 ms"}));
        QVERIFY2(lines.contains("    block 2: AI1, 8 bytes, tags a, b"), qPrintable(run.out));
        QCOMPARE(lines.mid(lines.size() - 4),
                 QStringList({"    6 tags in 3 blocks: 5 requests per cycle instead of 6", "",
                              "configuration good: 6 tags in 3 blocks, 5 requests per round of all groups instead "
                              "of 6",
                              ""}));
        QVERIFY(!run.out.contains(QLatin1String("hunter2")));
    }

    void checkReportsErrorsOnStderr()
    {
        QTemporaryDir dir;
        const QString file = dir.filePath(QStringLiteral("gw.toml"));
        QVERIFY(writeFile(file, "name = \"gw\"\n[broker]\npassword = \"hunter2\"\nqos = 5\n[buffer]\npath = 7\n"));
        const Run run = gateway({QStringLiteral("--check"), file});
        QCOMPARE(run.exitCode, 1);
        QVERIFY(run.out.isEmpty());
        QCOMPARE(run.err, QStringLiteral("%1:2:1: [broker] has a password but no \"user\"\n"
                                         "%1:4:7: \"qos\" must be from 0 to 2, not 5\n"
                                         "%1:6:8: \"path\" must be a string, not an integer\n"
                                         "%1:1:1: no controllers ([[controllers]])\n"
                                         "sorvik-gateway: 4 errors in %1\n")
                              .arg(file));
        // What the parser saw could be a piece of a password: only where.
        QVERIFY(writeFile(file, "[broker]\npassword = \"x\" Zq\n"));
        QCOMPARE(gateway({QStringLiteral("--check"), file}).err,
                 QStringLiteral("%1:2:16: Error while parsing key-value pair: expected a comment or whitespace\n"
                                "sorvik-gateway: 1 error in %1\n")
                     .arg(file));
    }

    // Also: an unusable queue file refused, then moved aside by
    // --start-afresh; the broker's password from a file, never shown; and the
    // README's ACL in force.
    void runsUntilSigterm()
    {
        BrokerFixture::Options options;
        options.users = {{QStringLiteral("gwtest"), QStringLiteral("pw-from-file")},
                         {QStringLiteral("operator"), QStringLiteral("op")}};
        options.acl = readmeExample(QStringLiteral("conf")).replace("station1", "gwtest");
        QVERIFY(options.acl.contains("user gwtest\n"));
        BrokerFixture broker(options);
        QVERIFY2(broker.start(), qPrintable(broker.error()));
        SorvikSimulator pumpsSim;
        SorvikSimulator tankSim;
        const QString pumps = serve(pumpsSim, 1, {"AI1=float:42.5", "AI3=int32:-7", "DI1=bool:1"});
        const QString tank = serve(tankSim, 2, {"SI2=string:hello", "LW1=int32:40"});
        QVERIFY(!pumps.isEmpty() && !tank.isEmpty());
        const quint16 metricsPort = freePort();
        QTemporaryDir dir;
        const QString file = dir.filePath(QStringLiteral("gw.toml"));
        QVERIFY(writeFile(
            file,
            QStringLiteral("name = \"gwtest\"\n"
                           "heartbeat_ms = 300\n"
                           "library = \"%1\"\n"
                           "[metrics]\naddress = \"127.0.0.1:%2\"\n"
                           "[broker]\nport = %3\nuser = \"gwtest\"\npassword_file = \"pw\"\n"
                           "[buffer]\npath = \"queue.sqlite\"\n"
                           "[[controllers]]\nname = \"pumps\"\nconnection = \"%4\"\n"
                           "[[controllers.groups]]\nname = \"fast\"\ninterval_ms = 200\n"
                           "tags = [ { name = \"flow\", tag = \"AI1\", type = \"float\", unit = \"m3/h\", "
                           "scale = 2, offset = 1 },\n"
                           "         { name = \"count\", tag = \"AI3\", type = \"int32\" },\n"
                           "         { name = \"running\", tag = \"DI1\", type = \"bool\" },\n"
                           "         { name = \"setpoint\", tag = \"AO1\", type = \"float\", writable = true } ]\n"
                           "[[controllers]]\nname = \"tank\"\nconnection = \"%5\"\n"
                           "[[controllers.groups]]\nname = \"slow\"\ninterval_ms = 300\n"
                           "tags = [ { name = \"text\", tag = \"SI2\", type = \"string\" },\n"
                           "         { name = \"gain\", tag = \"LW1\", type = \"int32\", unit = \"bar\", "
                           "scale = 0.5 } ]\n")
                .arg(QStringLiteral(SORVIK_LIBRARY_FILE))
                .arg(metricsPort)
                .arg(broker.port())
                .arg(pumps, tank)
                .toUtf8()));

        QVERIFY(writeFile(dir.filePath(QStringLiteral("pw")), "pw-from-file\n"));
        const Run check = gateway({QStringLiteral("--check"), file});
        QVERIFY2(check.exitCode == 0 && !check.out.contains(QLatin1String("pw-from-file")), qPrintable(check.out));

        TestSubscriber subscriber;
        subscriber.setCredentials(QStringLiteral("operator"), QStringLiteral("op"));
        QVERIFY(subscriber.connectAndSubscribe(broker.host(), broker.port(), {QStringLiteral("sorvik/gwtest/#")}));
        const QString queue = dir.filePath(QStringLiteral("queue.sqlite"));
        QVERIFY(writeFile(queue, QByteArray(4096, 'x')));
        const Run refused = gateway({file});
        QCOMPARE(refused.exitCode, 1);
        QVERIFY2(refused.err.contains(queue) && refused.err.contains(QLatin1String("--start-afresh")),
                 qPrintable(refused.err));
        QCOMPARE(readFile(queue), QByteArray(4096, 'x'));

        QProcess process;
        process.start(QStringLiteral(SORVIK_GATEWAY_FILE),
                      {QStringLiteral("--start-afresh"), QStringLiteral("--config"), file});
        QByteArray errors;
        const QString fast = QStringLiteral("sorvik/gwtest/pumps/fast");
        const QString slow = QStringLiteral("sorvik/gwtest/tank/slow");
        QVERIFY2(
            TestSubscriber::waitFor([&] { return subscriber.count(fast) >= 2 && subscriber.count(slow) >= 2; }, 30000),
            (errors += process.readAllStandardError()).constData());

        // Values by name, scaled with the raw value beside, units where given.
        const QJsonObject pumpsMessage = lastJson(subscriber, fast);
        QCOMPARE(pumpsMessage.value("gateway").toString(), QStringLiteral("gwtest"));
        QCOMPARE(pumpsMessage.value("controller").toString(), QStringLiteral("pumps"));
        QCOMPARE(pumpsMessage.value("group").toString(), QStringLiteral("fast"));
        QVERIFY(pumpsMessage.value("seq").toInt() >= 2);
        const QJsonObject values = pumpsMessage.value("values").toObject();
        QCOMPARE(values.value("flow").toObject(),
                 QJsonObject({{"value", 86.0}, {"raw", 42.5}, {"unit", QStringLiteral("m3/h")}}));
        QCOMPARE(values.value("count").toObject(), QJsonObject({{"value", -7}}));
        QCOMPARE(values.value("running").toObject(), QJsonObject({{"value", true}}));
        QVERIFY(pumpsMessage.value("errors").toObject().isEmpty());
        const QJsonObject tankValues = lastJson(subscriber, slow).value("values").toObject();
        QCOMPARE(tankValues.value("text").toObject(), QJsonObject({{"value", QStringLiteral("hello")}}));
        QCOMPARE(tankValues.value("gain").toObject(),
                 QJsonObject({{"value", 20.0}, {"raw", 40}, {"unit", QStringLiteral("bar")}}));
        QCOMPARE(lastJson(subscriber, "sorvik/gwtest/pumps/status").value("state").toString(),
                 QStringLiteral("online"));

        // A write reaches its own controller's poller; one for a controller the
        // gateway does not have is answered, not dropped, and logged once.
        QVERIFY(subscriber.publish("sorvik/gwtest/boiler/write", R"({"id":"w0","tag":"setpoint","value":1})"));
        QVERIFY(subscriber.publish("sorvik/gwtest/pumps/write", R"({"id":"w1","tag":"setpoint","value":3.5})"));
        QVERIFY(subscriber.publish("sorvik/gwtest/boiler/write", R"({"id":"w2","tag":"setpoint","value":1})"));
        QVERIFY(TestSubscriber::waitFor(
            [&] {
                return lastJson(subscriber, fast)
                               .value("values")
                               .toObject()
                               .value("setpoint")
                               .toObject()
                               .value("value") == 3.5 &&
                       subscriber.count("sorvik/gwtest/boiler/write/reply") == 2;
            },
            20000));
        QCOMPARE(lastJson(subscriber, "sorvik/gwtest/pumps/write/reply").value("status").toInt(-1), 0);
        QCOMPARE(lastJson(subscriber, "sorvik/gwtest/boiler/write/reply"),
                 QJsonObject({{"id", "w2"},
                              {"tag", "setpoint"},
                              {"refused", QStringLiteral("no controller \"boiler\" in this gateway")}}));

        // The heartbeat carries the counters, and /metrics serves them too.
        QVERIFY(TestSubscriber::waitFor([&] { return subscriber.count("sorvik/gwtest/heartbeat") >= 1; }, 20000));
        QVERIFY(lastJson(subscriber, "sorvik/gwtest/heartbeat").value("cycles").toInt() > 0);
        QTcpSocket metrics;
        metrics.connectToHost(QHostAddress::LocalHost, metricsPort);
        QVERIFY(metrics.waitForConnected(5000));
        metrics.write("GET /metrics HTTP/1.0\r\nHost: localhost\r\n\r\n");
        QByteArray answer;
        while (metrics.waitForReadyRead(5000))
            answer += metrics.readAll();
        QVERIFY2(answer.startsWith("HTTP/1.1 200") || answer.startsWith("HTTP/1.0 200"), answer.left(200).constData());
        for (const char *line : {"\nsorvik_gateway_cycles_total{controller=\"pumps\"} ",
                                 "\nsorvik_gateway_writes_total{controller=\"pumps\",outcome=\"done\"} 1\n",
                                 "\nsorvik_gateway_writes_refused_total{reason=\"unknown controller\"} 2\n",
                                 "\nsorvik_gateway_messages_total{outcome=\"dropped\"} 0\n"})
            QVERIFY2(answer.contains(line), line);
        QVERIFY(!answer.contains("pw-from-file"));

        // SIGTERM: exit 0, and the gateway's retained status goes offline last.
        process.terminate();
        QVERIFY(TestSubscriber::waitFor([&] { return process.state() == QProcess::NotRunning; }, 30000));
        QCOMPARE(process.exitStatus(), QProcess::NormalExit);
        QCOMPARE(process.exitCode(), 0);
        const QString log = QString::fromUtf8(errors + process.readAllStandardError());
        QCOMPARE(log.count(QLatin1String("write refused (unknown controller)")), 1);
        QVERIFY(!log.contains(QLatin1String("pw-from-file")));
        const QStringList aside = QDir(dir.path()).entryList({QStringLiteral("queue.sqlite.corrupt-*")});
        QCOMPARE(aside.size(), 1);
        QCOMPARE(readFile(dir.filePath(aside.first())), QByteArray(4096, 'x'));
        QVERIFY(readFile(queue) != QByteArray(4096, 'x'));
        QVERIFY(TestSubscriber::waitFor(
            [&] {
                const auto statuses = subscriber.messages("sorvik/gwtest/status");
                return !statuses.isEmpty() && statuses.last().payload == "offline";
            },
            10000));
    }
};

QTEST_GUILESS_MAIN(TestGatewayProgram)
#include "tst_gateway_program.moc"
