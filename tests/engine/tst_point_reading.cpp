// Point reading: one read per tag, strings read as raw bytes under their
// canonical text, and the pause after every tag of a list.

#include "engine/CInductiveDrive.h"

#include <QElapsedTimer>
#include <QtTest>

using Induction::SReadInfo;

namespace {

const QString kConnect = QStringLiteral("COM3,9600,8,1,N");

struct ReadCall {
    QString connectPar;
    QString tag;
    int dataType;
    int count;
};

// Records every read and answers it with a record that names the read, as
// the one-tag path does; the value says how many reads came before.
struct Recorder {
    QList<ReadCall> calls;
    QList<qint64> times; // ms since `clock` started, at every read
    QElapsedTimer clock;

    void attach(CInductiveDrive &engine)
    {
        clock.start();
        engine.m_readCallback = [this](const QString &connectPar, const QString &tag, DataType type, int count) {
            calls.append({connectPar, tag, type, count});
            times.append(clock.elapsed());
            CLabelVariable reply;
            reply.status = tag.startsWith(QLatin1String("SO")) || tag.startsWith(QLatin1String("UNKNOW")) ? 3 : 0;
            reply.tag = tag;
            reply.dataType = type;
            reply.length = count;
            reply.value = QVariant::fromValue(QList<int>{calls.size()});
            return reply;
        };
    }
    QString call(int i) const
    {
        const ReadCall &c = calls.value(i);
        return QStringLiteral("%1 %2 %3").arg(c.tag).arg(c.dataType).arg(c.count);
    }
};

} // namespace

class TestPointReading : public QObject
{
    Q_OBJECT

private slots:
    void noCallbackGivesAFreshRecord();
    void numericTagGoesOutAsWritten();
    void stringTagGoesOutUnderItsCanonicalText_data();
    void stringTagGoesOutUnderItsCanonicalText();
    void stringCacheIsPerConnectionAndTrusted();
    void typeOutsideTheTableIsHandedOn();
    void listReadsEveryEntryInOrder();
    void listPausesAfterEveryTag();
};

void TestPointReading::noCallbackGivesAFreshRecord()
{
    CInductiveDrive engine;
    const CLabelVariable record = engine.PointReading(kConnect, SReadInfo{"AI5", 6});
    QCOMPARE(record.status, 1);
    QVERIFY(!record.value.isValid());
    const SReadInfo info{"AI5", 6};
    QCOMPARE(engine.PointReading(kConnect, QList<SReadInfo>{info}, 0).value(info).status, 1);
}

void TestPointReading::numericTagGoesOutAsWritten()
{
    CInductiveDrive engine;
    Recorder device;
    device.attach(engine);
    for (const SReadInfo &info : QList<SReadInfo>{{"AI5", 6}, {"ai5", 6}, {"Custom5", 4}, {"AI005", 41}}) {
        const CLabelVariable record = engine.PointReading(kConnect, info);
        QCOMPARE(device.calls.last().connectPar, kConnect);
        QCOMPARE(device.call(device.calls.size() - 1), QStringLiteral("%1 %2 1").arg(info.tag).arg(info.dataType));
        QCOMPARE(record.tag, info.tag); // the record comes back unchanged
        QCOMPARE(record.value.value<QList<int>>(), QList<int>{device.calls.size()});
    }
    QVERIFY(engine.m_stringPoints.isEmpty());
}

void TestPointReading::stringTagGoesOutUnderItsCanonicalText_data()
{
    QTest::addColumn<QString>("tag");
    QTest::addColumn<QString>("read");

    QTest::newRow("SI") << "SI5"
                        << "SI5 2 256";
    QTest::newRow("leading zeros") << "SI005"
                                   << "SI5 2 256";
    QTest::newRow("lower case") << "si5"
                                << "SI5 2 -1"; // tagSize knows only SI and SO
    QTest::newRow("SO") << "SO5"
                        << "SO5 2 256";
    QTest::newRow("outside SI and SO") << "AI5"
                                       << "AI5 2 -1";
    QTest::newRow("length suffix") << "AI5[20]"
                                   << "UNKNOW-1 2 20";
    QTest::newRow("no pattern") << "XY1"
                                << "UNKNOW-1 2 -1";
}

void TestPointReading::stringTagGoesOutUnderItsCanonicalText()
{
    QFETCH(QString, tag);
    QFETCH(QString, read);
    CInductiveDrive engine;
    Recorder device;
    device.attach(engine);
    const CLabelVariable record = engine.PointReading(kConnect, SReadInfo{tag, TYPE_STRING});
    QCOMPARE(device.call(0), read);
    // The record is that of a byte read: nothing is turned into text here.
    QCOMPARE(record.tag, read.section(' ', 0, 0));
    QCOMPARE(record.dataType, int(TYPE_INT8));
    const SStringPoint point = engine.m_stringPoints[kConnect][SReadInfo{tag, TYPE_STRING}];
    QCOMPARE(QStringLiteral("%1 %2 %3").arg(point.tag).arg(point.dataType).arg(point.length), read);
}

void TestPointReading::stringCacheIsPerConnectionAndTrusted()
{
    CInductiveDrive engine;
    Recorder device;
    device.attach(engine);
    const SReadInfo si{"SI005", TYPE_STRING};
    engine.PointReading(kConnect, si);
    engine.PointReading("other", si);
    QCOMPARE(engine.m_stringPoints.size(), 2);
    QCOMPARE(engine.m_stringPoints[kConnect].size(), 1);

    // A made entry is used as it stands; a blank one is made anew.
    engine.m_stringPoints[kConnect][si].tag = QStringLiteral("SI9");
    engine.PointReading(kConnect, si);
    QCOMPARE(device.call(2), QStringLiteral("SI9 2 256"));
    engine.m_stringPoints[kConnect][si] = SStringPoint();
    engine.PointReading(kConnect, si);
    QCOMPARE(device.call(3), QStringLiteral("SI5 2 256"));

    // No removal of the plan touches it.
    engine.DelInductiveDrive_Read(kConnect);
    engine.DelCannotInductiveDrive_Read(kConnect);
    QCOMPARE(engine.m_stringPoints[kConnect].size(), 1);
}

// Any type number travels on unchanged; the one-tag path decides about it.
void TestPointReading::typeOutsideTheTableIsHandedOn()
{
    CInductiveDrive engine;
    Recorder device;
    device.attach(engine);
    for (int type : {-1, 42, 1000})
        engine.PointReading(kConnect, SReadInfo{"AI5", type});
    QCOMPARE(device.calls.size(), 3);
    QCOMPARE(device.call(1), QStringLiteral("AI5 42 1"));
}

void TestPointReading::listReadsEveryEntryInOrder()
{
    CInductiveDrive engine;
    Recorder device;
    device.attach(engine);
    QVERIFY(engine.PointReading(kConnect, QList<SReadInfo>(), 1000).isEmpty());
    QVERIFY(device.calls.isEmpty());

    const QList<SReadInfo> infos{{"DI2", 1}, {"SO5", 12}, {"AI1", 8}, {"DI2", 1}};
    const QMap<SReadInfo, CLabelVariable> records = engine.PointReading(kConnect, infos, 0);
    QCOMPARE(device.calls.size(), 4);
    QCOMPARE(device.call(0), QStringLiteral("DI2 1 1"));
    QCOMPARE(device.call(1), QStringLiteral("SO5 2 256"));
    QCOMPARE(device.call(3), QStringLiteral("DI2 1 1"));
    QCOMPARE(records.size(), 3);
    QCOMPARE(records[infos[0]].value.value<QList<int>>(), QList<int>{4}); // the later read stands
    QCOMPARE(records[infos[1]].status, 3);                                // a failure keeps its entry
}

// The pause follows every tag, the last one too; timings are checked loosely.
void TestPointReading::listPausesAfterEveryTag()
{
    CInductiveDrive engine;
    Recorder device;
    device.attach(engine);
    const QList<SReadInfo> infos{{"AI1", 6}, {"AI2", 6}, {"AI3", 6}};
    QElapsedTimer timer;
    timer.start();
    engine.PointReading(kConnect, infos, 40);
    const qint64 elapsed = timer.elapsed();
    QVERIFY2(elapsed >= 115, qPrintable(QString::number(elapsed)));
    QVERIFY(device.times[1] - device.times[0] >= 38);
    QVERIFY(device.times[2] - device.times[1] >= 38);

    // A negative pause is no pause.
    timer.restart();
    engine.PointReading(kConnect, infos, -100000);
    QVERIFY2(timer.elapsed() < 5000, qPrintable(QString::number(timer.elapsed())));
}

QTEST_APPLESS_MAIN(TestPointReading)
#include "tst_point_reading.moc"
