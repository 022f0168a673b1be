// A gateway started again at once after a crash: the late reply to the last
// request of the run before reaches the same address and port, and must not
// pass as the value of this run's first read.
#include "RecordingSink.h"
#include "TestSupport.h"

#include "gateway/ControllerPoller.h"
#include "host/DataType.h"
#include "sim/SorvikSimulator.h"

#include <QtTest>

namespace {

ControllerConfig oneTag(quint16 port, const QString &text)
{
    TagConfig tag;
    tag.name = QStringLiteral("v");
    tag.tag = text;
    tag.dataType = TYPE_INT32;
    ScanGroupConfig group;
    group.name = QStringLiteral("g");
    group.intervalMs = 100;
    group.tags = {tag};
    ControllerConfig c;
    c.name = QStringLiteral("plc");
    c.connection = QStringLiteral("%1:%2").arg(TestSupport::testHost().toString()).arg(port);
    c.groups = {group};
    return c;
}

} // namespace

class GatewayRestartTest : public QObject
{
    Q_OBJECT

private slots:
    void lateReplyOfTheRunBeforeIsNeverTaken();
};

void GatewayRestartTest::lateReplyOfTheRunBeforeIsNeverTaken()
{
    SorvikSimulator sim;
    const quint16 port = sim.startUdp(TestSupport::testHost());
    QVERIFY(port != 0);
    QVERIFY(sim.presetTag(QStringLiteral("AI1=int32:111")));
    QVERIFY(sim.presetTag(QStringLiteral("AI2=int32:222")));
    SimFaults faults;
    faults.lateReplies.insert(1, 900); // the first read's reply comes after the drive gave up
    faults.delayMs = 300;              // and every request waits long enough for it to come
    sim.setFaults(faults);

    {
        // The run before: its read gets no reply in time, and it ends at once.
        RecordingSink sink;
        ControllerPoller before(oneTag(port, QStringLiteral("AI1")), QStringLiteral("gw"),
                                QStringLiteral(SORVIK_LIBRARY_FILE), &sink, nullptr);
        before.start();
        QTRY_VERIFY_WITH_TIMEOUT(!sink.data().isEmpty(), 10000);
        const QJsonObject errors = sink.data().first().json.value(QLatin1String("errors")).toObject();
        QCOMPARE(errors.value(QLatin1String("v")).toObject().value(QLatin1String("status")).toInt(), 8);
        before.stop();
    }
    RecordingSink sink;
    ControllerPoller next(oneTag(port, QStringLiteral("AI2")), QStringLiteral("gw"),
                          QStringLiteral(SORVIK_LIBRARY_FILE), &sink, nullptr);
    next.start();
    QTRY_VERIFY_WITH_TIMEOUT(sink.data().size() >= 3, 20000);
    next.stop();
    int good = 0;
    for (const RecordingSink::Message &m : sink.data()) {
        const QJsonObject values = m.json.value(QLatin1String("values")).toObject();
        if (values.contains(QLatin1String("v")) && ++good)
            QCOMPARE(values.value(QLatin1String("v")).toObject().value(QLatin1String("value")).toInt(), 222);
    }
    QVERIFY(good > 0);
}

QTEST_GUILESS_MAIN(GatewayRestartTest)
#include "tst_gateway_restart.moc"
