// The gateway's south side against real simulated controllers over loopback
// UDP: what a data message says of each tag, that no value ever goes out
// under another tag's name while replies come late, a controller lost and
// back, and cycles that overrun their interval.
#include "RecordingSink.h"

#include "gateway/ControllerPoller.h"
#include "gateway/GatewayMetrics.h"
#include "gateway/Topics.h"
#include "host/DataType.h"
#include "sim/SimSelfDescribing.h"
#include "sim/SorvikSimulator.h"

#include <QJsonArray>
#include <QtTest>

namespace {

const QString kGateway = QStringLiteral("gw");

TagConfig tag(const QString &name, const QString &text, int type)
{
    TagConfig t;
    t.name = name;
    t.tag = text;
    t.dataType = type;
    return t;
}

ControllerConfig controller(const QString &name, const QString &connection, int intervalMs, QList<TagConfig> tags)
{
    ControllerConfig c;
    c.name = name;
    c.connection = connection;
    ScanGroupConfig group;
    group.name = QStringLiteral("fast");
    group.intervalMs = intervalMs;
    group.tags = tags;
    c.groups = {group};
    return c;
}

// A simulated controller on a loopback address of this program, or behind a
// pseudo-terminal ("PATH,BAUD,8,1,N").
struct Simulated {
    SorvikSimulator sim;
    QString address;
    quint16 port = 0;
    bool serial = false;
    QString connection() const
    {
        return serial ? address + QStringLiteral(",115200,8,1,N") : QStringLiteral("%1:%2").arg(address).arg(port);
    }
};

bool startSim(Simulated *s, int k, bool serial = false, quint16 port = 0)
{
    s->serial = serial;
    s->address = serial ? s->sim.startPty() : controllerAddress(k);
    if (!serial)
        s->port = s->sim.startUdp(QHostAddress(s->address), port);
    return serial ? !s->address.isEmpty() : s->port != 0;
}

QJsonObject valuesOf(const RecordingSink::Message &m)
{
    return m.json.value(QLatin1String("values")).toObject();
}
QJsonObject errorsOf(const RecordingSink::Message &m)
{
    return m.json.value(QLatin1String("errors")).toObject();
}

} // namespace

class GatewayPollerTest : public QObject
{
    Q_OBJECT

private slots:
    void valuesCarryNameUnitScaleAndQuality();
    void lateRepliesNeverPutAValueUnderAnotherName_data();
    void lateRepliesNeverPutAValueUnderAnotherName();
    void lostControllerIsBack_data();
    void lostControllerIsBack();
    void overrunningCyclesAreCountedNotQueued();
};

// One message per cycle: good values by name, a scaled one with its unit and
// raw value, a tag past what its block moves read alone, a refused tag with status and meaning
// and no value.
void GatewayPollerTest::valuesCarryNameUnitScaleAndQuality()
{
    Simulated s;
    QVERIFY(startSim(&s, 1));
    for (const char *preset :
         {"AI1=int32:42", "AI3=float:1.5", "DI2=bool:1", "SI1=string:abc", "AI5=int16:-300", "AI10=int16:-7,8,9"})
        QVERIFY(s.sim.presetTag(QLatin1String(preset)));

    TagConfig level = tag(QStringLiteral("level"), QStringLiteral("AI1"), TYPE_INT32);
    level.unit = QStringLiteral("mm");
    TagConfig flow = tag(QStringLiteral("flow"), QStringLiteral("AI1"), TYPE_INT32);
    flow.scale = 0.5;
    flow.offset = 1;
    flow.unit = QStringLiteral("l/s");
    TagConfig counted = tag(QStringLiteral("three"), QStringLiteral("AI10"), TYPE_INT16);
    counted.count = 3;
    const ControllerConfig config =
        controller(QStringLiteral("plc1"), s.connection(), 200,
                   {level, flow, tag(QStringLiteral("temp"), QStringLiteral("AI3"), TYPE_FLOAT),
                    tag(QStringLiteral("run"), QStringLiteral("DI2"), TYPE_BOOL),
                    tag(QStringLiteral("label"), QStringLiteral("SI1"), TYPE_STRING),
                    tag(QStringLiteral("tail"), QStringLiteral("AI5"), TYPE_INT16), counted,
                    tag(QStringLiteral("nowhere"), QStringLiteral("XY1"), TYPE_INT32)});

    RecordingSink sink;
    GatewayMetrics metrics;
    ControllerPoller poller(config, kGateway, QStringLiteral(SORVIK_LIBRARY_FILE), &sink, &metrics);
    poller.start();
    QTRY_VERIFY_WITH_TIMEOUT(!sink.data().isEmpty(), 20000);
    poller.stop();

    const RecordingSink::Message first = sink.data().first();
    QCOMPARE(first.topic, Topics::data(kGateway, QStringLiteral("plc1"), QStringLiteral("fast")));
    QCOMPARE(first.json.value(QLatin1String("controller")).toString(), QStringLiteral("plc1"));
    QVERIFY(first.json.value(QLatin1String("time")).toString().endsWith(QLatin1Char('Z')));

    const QJsonObject values = valuesOf(first);
    QCOMPARE(values.value(QLatin1String("level")).toObject(), (QJsonObject{{"value", 42}, {"unit", "mm"}}));
    QCOMPARE(values.value(QLatin1String("flow")).toObject(),
             (QJsonObject{{"value", 22}, {"unit", "l/s"}, {"raw", 42}}));
    QCOMPARE(values.value(QLatin1String("temp")).toObject(), (QJsonObject{{"value", 1.5}}));
    QCOMPARE(values.value(QLatin1String("run")).toObject(), (QJsonObject{{"value", true}}));
    QCOMPARE(values.value(QLatin1String("label")).toObject(), (QJsonObject{{"value", "abc"}}));
    // AI5 ends 2 bytes into a word the block does not move: read alone, not a zero.
    QCOMPARE(values.value(QLatin1String("tail")).toObject(), (QJsonObject{{"value", -300}}));
    QCOMPARE(values.value(QLatin1String("three")).toObject(), (QJsonObject{{"value", QJsonArray{-7, 8, 9}}}));

    QVERIFY(!values.contains(QLatin1String("nowhere")));
    QCOMPARE(errorsOf(first).value(QLatin1String("nowhere")).toObject(),
             (QJsonObject{{"status", 3}, {"meaning", "no area in the tag text"}}));
    QCOMPARE(sink.states().first(), QStringLiteral("online"));
    QVERIFY(metrics.snapshot().value(QLatin1String("requests")).toInt() > 0);
}

// Every element of a self-describing memory names its own area and address,
// so a value published under a tag it does not belong to is caught, whatever
// the shift. A share of the replies comes back after the drive gave up.
void GatewayPollerTest::lateRepliesNeverPutAValueUnderAnotherName_data()
{
    QTest::addColumn<bool>("serial");
    QTest::newRow("udp") << false;
    QTest::newRow("serial") << true;
}

void GatewayPollerTest::lateRepliesNeverPutAValueUnderAnotherName()
{
    QFETCH(bool, serial);
    constexpr int kId = 7;
    Simulated s;
    QVERIFY(startSim(&s, 2, serial));
    QVERIFY(s.sim.fillSelfDescribing(kId));
    SimFaults faults;
    faults.seed = 17;
    faults.lateShare = 0.2;
    faults.lateShareMs = 700; // after the drive gave up, inside the late window
    s.sim.setFaults(faults);

    // Blocks far apart, so that each cycle makes several requests, and a
    // tag of each kind of road.
    QList<TagConfig> tags;
    for (int n : {1, 2, 45, 46, 79})
        tags << tag(QStringLiteral("ai%1").arg(n), QStringLiteral("AI%1").arg(n), TYPE_INT32);
    for (int n : {4, 90, 1500})
        tags << tag(QStringLiteral("nao%1").arg(n), QStringLiteral("NAO%1").arg(n), TYPE_INT32);
    TagConfig pair = tag(QStringLiteral("ai60x2"), QStringLiteral("AI60"), TYPE_INT32);
    pair.count = 2;
    tags << pair;
    ControllerConfig config = controller(QStringLiteral("plc2"), s.connection(), 100, tags);
    config.reconnect.firstPauseMs = 100;
    config.reconnect.longestPauseMs = 400;

    RecordingSink sink;
    ControllerPoller poller(config, kGateway, QStringLiteral(SORVIK_LIBRARY_FILE), &sink, nullptr);
    poller.start();
    QTRY_VERIFY_WITH_TIMEOUT(sink.data().size() >= 60, 120000);
    poller.stop();

    auto expected = [](const QString &name) {
        const int area = name.startsWith(QLatin1String("nao")) ? 18 : 7;
        const int element = QRegularExpression(QStringLiteral("\\d+")).match(name).captured().toInt();
        return SimSelfDescribing::word(kId, area, element);
    };
    int good = 0;
    int distrusted = 0;
    for (const RecordingSink::Message &m : sink.data()) {
        const QJsonObject values = valuesOf(m);
        for (auto it = values.begin(); it != values.end(); ++it) {
            const QJsonValue value = it.value().toObject().value(QLatin1String("value"));
            if (it.key() == QLatin1String("ai60x2")) {
                QCOMPARE(value.toArray(),
                         (QJsonArray{expected(QStringLiteral("ai60")), expected(QStringLiteral("ai61"))}));
            } else {
                QVERIFY2(value.toDouble() == expected(it.key()),
                         qPrintable(QStringLiteral("%1 published %2").arg(it.key()).arg(qint64(value.toDouble()))));
            }
            ++good;
        }
        const QJsonObject errors = errorsOf(m);
        for (auto it = errors.begin(); it != errors.end(); ++it) {
            QVERIFY(!it.value().toObject().contains(QLatin1String("value")));
            if (it.value().toObject().value(QLatin1String("status")).toInt() == 8)
                ++distrusted;
        }
    }
    // Both happened: replies were lost, and values were read between.
    QVERIFY(good > 0);
    QVERIFY(distrusted > 0);
}

// A controller that goes away (UDP: its port closes) or falls silent (serial:
// the line stays open, no handshake tells) is lost with a reason, its tags bad
// and without values; when it answers again it is back online with values.
void GatewayPollerTest::lostControllerIsBack_data()
{
    QTest::addColumn<bool>("serial");
    QTest::newRow("udp controller stops") << false;
    QTest::newRow("serial controller falls silent") << true;
}

void GatewayPollerTest::lostControllerIsBack()
{
    QFETCH(bool, serial);
    auto s = std::make_unique<Simulated>();
    QVERIFY(startSim(s.get(), 3, serial));
    QVERIFY(s->sim.presetTag(QStringLiteral("AI1=int32:5")));
    ControllerConfig config = controller(QStringLiteral("plc3"), s->connection(), 100,
                                         {tag(QStringLiteral("a"), QStringLiteral("AI1"), TYPE_INT32)});
    config.reconnect = {2, 100, 500};
    RecordingSink sink;
    GatewayMetrics metrics;
    PollerOptions options;
    options.lateWindowMs = 200;
    ControllerPoller poller(config, kGateway, QStringLiteral(SORVIK_LIBRARY_FILE), &sink, &metrics, options);
    poller.start();
    QTRY_VERIFY_WITH_TIMEOUT(sink.states().contains(QStringLiteral("online")), 20000);

    const quint16 port = s->port;
    SimFaults silent;
    silent.silent = true;
    if (serial)
        s->sim.setFaults(silent);
    else
        s.reset();
    QTRY_VERIFY_WITH_TIMEOUT(sink.states().contains(QStringLiteral("lost")), 30000);
    const int lostAt = sink.states().lastIndexOf(QStringLiteral("lost"));
    const QString reason = sink.status().at(lostAt).json.value(QLatin1String("reason")).toString();
    QVERIFY2(reason.contains(QLatin1String("a: ")) || reason.contains(QLatin1String("no ")), qPrintable(reason));
    const int dataAtLoss = sink.data().size();
    QTRY_VERIFY_WITH_TIMEOUT(sink.data().size() >= dataAtLoss + 3, 30000);
    for (const RecordingSink::Message &m : sink.data().mid(dataAtLoss)) {
        QVERIFY(valuesOf(m).isEmpty());
        QVERIFY(errorsOf(m).contains(QLatin1String("a")));
    }

    if (serial) {
        QVERIFY(s->sim.presetTag(QStringLiteral("AI1=int32:6")));
        s->sim.setFaults(SimFaults());
    } else {
        QTRY_VERIFY_WITH_TIMEOUT(sink.states().mid(lostAt).contains(QStringLiteral("reconnecting")), 30000);
        s = std::make_unique<Simulated>();
        QVERIFY(startSim(s.get(), 3, false, port));
        QVERIFY(s->sim.presetTag(QStringLiteral("AI1=int32:6")));
    }
    QTRY_VERIFY_WITH_TIMEOUT(sink.states().mid(lostAt).contains(QStringLiteral("online")), 30000);
    QTRY_VERIFY_WITH_TIMEOUT(valuesOf(sink.data().last()).contains(QLatin1String("a")), 30000);
    poller.stop();
    QCOMPARE(valuesOf(sink.data().last()).value(QLatin1String("a")).toObject().value(QLatin1String("value")).toInt(),
             6);
    QVERIFY(serial || metrics.snapshot().value(QLatin1String("reconnects")).toInt() > 0);
}

// Every reply takes longer than the interval: the missed starts are counted
// and skipped, so the messages do not pile up behind the schedule.
void GatewayPollerTest::overrunningCyclesAreCountedNotQueued()
{
    Simulated s;
    QVERIFY(startSim(&s, 4));
    SimFaults faults;
    faults.delayMs = 80; // well inside the drive's wait
    s.sim.setFaults(faults);
    const ControllerConfig config = controller(QStringLiteral("plc4"), s.connection(), 50,
                                               {tag(QStringLiteral("a"), QStringLiteral("AI1"), TYPE_INT32),
                                                tag(QStringLiteral("b"), QStringLiteral("AI45"), TYPE_INT32),
                                                tag(QStringLiteral("c"), QStringLiteral("AI79"), TYPE_INT32)});
    RecordingSink sink;
    GatewayMetrics metrics;
    ControllerPoller poller(config, kGateway, QStringLiteral(SORVIK_LIBRARY_FILE), &sink, &metrics);
    poller.start();
    QTRY_VERIFY_WITH_TIMEOUT(sink.data().size() >= 5, 30000);
    poller.stop();

    const QJsonObject counters = metrics.snapshot();
    const int cycles = counters.value(QLatin1String("cycles")).toInt();
    const int overruns = counters.value(QLatin1String("overruns")).toInt();
    QCOMPARE(cycles, sink.data().size());
    // Each cycle of two 80 ms replies (AI1, and AI45 with AI79) passes at
    // least two starts of 50 ms.
    QVERIFY2(overruns >= 2 * (cycles - 1),
             qPrintable(QStringLiteral("%1 overruns in %2 cycles").arg(overruns).arg(cycles)));
    const QList<RecordingSink::Message> data = sink.data();
    for (int i = 0; i < data.size(); ++i) {
        QCOMPARE(data.at(i).json.value(QLatin1String("seq")).toInt(), i + 1);
        QCOMPARE(valuesOf(data.at(i)).size(), 3);
    }
}

QTEST_GUILESS_MAIN(GatewayPollerTest)
#include "tst_gateway_poller.moc"
