// Scaling out: two sorvik-gateway processes, each with its own share of the
// controllers, publish to one broker; a consumer group of two subscribers on
// one shared subscription reads both. Every data message must reach the group
// exactly once: nothing lost, nothing doubled.

#include "BrokerFixture.h"
#include "TestSubscriber.h"
#include "sim/SorvikSimulator.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QProcess>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <memory>
#include <tuple>

namespace {

// 127.<N+100>.0.k, N the last byte of this program's own address, so that
// no other test program's controllers share an address.
QString controllerAddress(int k)
{
    const QByteArray host = qgetenv("SORVIK_TEST_HOST");
    const int n = host.isEmpty() ? 1 : host.mid(host.lastIndexOf('.') + 1).toInt();
    return QStringLiteral("127.%1.0.%2").arg(n + 100).arg(k);
}

// A gateway of its own name, queue file and (by default, from the name)
// client id, polling the controllers it is given.
QByteArray gatewayConfig(const QString &name, const QString &folder, quint16 brokerPort,
                         const QList<QPair<QString, QString>> &controllers)
{
    QByteArray text = QStringLiteral("name = \"%1\"\nheartbeat_ms = 500\nlibrary = \"%2\"\n"
                                     "[broker]\nhost = \"127.0.0.1\"\nport = %3\n"
                                     "[buffer]\npath = \"%4/%1.sqlite\"\n")
                          .arg(name, QStringLiteral(SORVIK_LIBRARY_FILE))
                          .arg(brokerPort)
                          .arg(folder)
                          .toUtf8();
    for (const auto &controller : controllers)
        text += QStringLiteral("[[controllers]]\nname = \"%1\"\nconnection = \"%2\"\n"
                               "[[controllers.groups]]\nname = \"fast\"\ninterval_ms = 100\n"
                               "tags = [ { name = \"a\", tag = \"NAI1\", type = \"float\" },\n"
                               "         { name = \"b\", tag = \"NAI2\", type = \"float\" } ]\n")
                    .arg(controller.first, controller.second)
                    .toUtf8();
    return text;
}

} // namespace

class TestGatewaySharding : public QObject
{
    Q_OBJECT

private slots:
    void consumerGroupTakesEveryMessageOfEveryGatewayOnce()
    {
        BrokerFixture broker;
        QVERIFY2(broker.start(), qPrintable(broker.error()));
        std::vector<std::unique_ptr<SorvikSimulator>> sims;
        QList<QPair<QString, QString>> controllers;
        for (int k = 1; k <= 4; ++k) {
            sims.push_back(std::make_unique<SorvikSimulator>());
            const quint16 port = sims.back()->startUdp(QHostAddress(controllerAddress(k)), 0);
            QVERIFY(port != 0);
            controllers.append(
                {QStringLiteral("c%1").arg(k), QStringLiteral("%1:%2").arg(controllerAddress(k)).arg(port)});
        }

        // The consumer group, and one plain subscriber for the heartbeats,
        // whose count of messages the broker took shows a loss at the very end.
        const QString shared = QStringLiteral("$share/readers/sorvik/+/+/fast");
        TestSubscriber first;
        TestSubscriber second;
        TestSubscriber beats;
        QVERIFY(first.connectAndSubscribe(broker.host(), broker.port(), {shared}));
        QVERIFY(second.connectAndSubscribe(broker.host(), broker.port(), {shared}));
        QVERIFY(beats.connectAndSubscribe(broker.host(), broker.port(), {QStringLiteral("sorvik/+/heartbeat")}));

        QTemporaryDir dir;
        QProcess east;
        QProcess west;
        const QString eastFile = dir.filePath(QStringLiteral("east.toml"));
        const QString westFile = dir.filePath(QStringLiteral("west.toml"));
        for (const auto &[file, name, share] :
             {std::make_tuple(eastFile, QStringLiteral("east"), controllers.mid(0, 2)),
              std::make_tuple(westFile, QStringLiteral("west"), controllers.mid(2, 2))}) {
            QFile out(file);
            QVERIFY(out.open(QIODevice::WriteOnly));
            out.write(gatewayConfig(name, dir.path(), broker.port(), share));
        }
        east.start(QStringLiteral(SORVIK_GATEWAY_FILE), {eastFile});
        west.start(QStringLiteral(SORVIK_GATEWAY_FILE), {westFile});
        QVERIFY(east.waitForStarted() && west.waitForStarted());
        QVERIFY2(TestSubscriber::waitFor([&] { return first.messages().size() + second.messages().size() >= 4 * 15; },
                                         30000),
                 east.readAllStandardError() + west.readAllStandardError());
        east.terminate();
        west.terminate();
        QVERIFY(east.waitForFinished(15000) && west.waitForFinished(15000));
        QCOMPARE(east.exitCode() + west.exitCode(), 0);
        QTest::qWait(500); // what was on its way

        // (gateway, controller, group, boot, seq) once across the group.
        QMap<QString, QSet<qint64>> streams; // gateway/controller/group/boot -> numbers
        QMap<QString, int> perGateway;
        int total = 0;
        for (const TestSubscriber *member : {&first, &second}) {
            QVERIFY2(!member->messages().isEmpty(), "a member of the group got no share");
            for (const TestSubscriber::Message &message : member->messages()) {
                const QJsonObject data = QJsonDocument::fromJson(message.payload).object();
                const QString gateway = data.value(QStringLiteral("gateway")).toString();
                const QString stream = QStringLiteral("%1/%2/%3/%4")
                                           .arg(gateway, data.value(QStringLiteral("controller")).toString(),
                                                data.value(QStringLiteral("group")).toString())
                                           .arg(qint64(data.value(QStringLiteral("boot")).toDouble()));
                const qint64 seq = qint64(data.value(QStringLiteral("seq")).toDouble());
                QVERIFY2(!streams[stream].contains(seq),
                         qPrintable(QStringLiteral("%1 #%2 twice").arg(stream).arg(seq)));
                streams[stream].insert(seq);
                ++perGateway[gateway];
                ++total;
            }
        }
        QCOMPARE(streams.size(), 4);
        for (auto it = streams.cbegin(); it != streams.cend(); ++it) {
            // Numbered from 1: the highest number is the count when none is missing.
            const qint64 highest = *std::max_element(it.value().cbegin(), it.value().cend());
            QVERIFY2(highest == it.value().size(), qPrintable(it.key() + QStringLiteral(": a gap")));
        }
        for (const QString &gateway : {QStringLiteral("east"), QStringLiteral("west")}) {
            const QList<TestSubscriber::Message> heartbeats =
                beats.messages(QStringLiteral("sorvik/%1/heartbeat").arg(gateway));
            QVERIFY(!heartbeats.isEmpty());
            const int published =
                QJsonDocument::fromJson(heartbeats.last().payload).object().value("published").toInt();
            QVERIFY2(perGateway.value(gateway) >= published,
                     qPrintable(QStringLiteral("%1: %2 received, %3 taken by the broker")
                                    .arg(gateway)
                                    .arg(perGateway.value(gateway))
                                    .arg(published)));
        }
        QVERIFY(total >= 4 * 15);
    }
};

QTEST_GUILESS_MAIN(TestGatewaySharding)
#include "tst_gateway_sharding.moc"
