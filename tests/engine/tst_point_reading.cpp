// Point reading: one read per tag, strings as raw bytes under their canonical text.

#include "engine/CInductiveDrive.h"

#include "EngineTestSupport.h"

#include <QtTest>

using Induction::SReadInfo;

namespace {

const QString kConnect = QStringLiteral("COM3,9600,8,1,N");

// Answers with the count of reads so far; SO and tags of no area fail with 3.
struct Recorder : EngineTest::ReadPath {
    explicit Recorder(CInductiveDrive &engine)
    {
        answer = [this](const QString &tag, DataType type, int count) {
            CLabelVariable reply;
            reply.status = tag.startsWith(QLatin1String("SO")) || tag.startsWith(QLatin1String("UNKNOW")) ? 3 : 0;
            reply.tag = tag;
            reply.dataType = type;
            reply.length = count;
            reply.value = QVariant::fromValue(QList<int>{calls.size()});
            return reply;
        };
        install(engine);
    }
};

} // namespace

class TestPointReading : public QObject
{
    Q_OBJECT

private slots:
    // Non-string types go out as written, count 1; without a callback the record is fresh.
    void otherTypesGoOutAsWritten()
    {
        CInductiveDrive engine;
        const SReadInfo ai5{"AI5", 6};
        QVERIFY(engine.PointReading(kConnect, ai5).status == 1 && !engine.PointReading(kConnect, ai5).value.isValid());
        QCOMPARE(engine.PointReading(kConnect, QList<SReadInfo>{ai5}, 0).value(ai5).status, 1);
        Recorder device(engine);
        const QList<SReadInfo> infos{{"AI5", 6}, {"ai5", 6}, {"Custom5", 4}, {"AI005", 41}, {"AI5", -1}, {"AI5", 42}};
        for (const SReadInfo &info : infos) {
            const CLabelVariable record = engine.PointReading(kConnect, info);
            QCOMPARE(device.calls.last(), QStringLiteral("%1 %2 1").arg(info.tag).arg(info.dataType));
            QCOMPARE(record.tag, info.tag); // the record comes back unchanged
            QCOMPARE(record.value.value<QList<int>>(), QList<int>{device.calls.size()});
        }
        QCOMPARE(device.connects.first(), kConnect);
        QVERIFY(engine.m_stringPoints.isEmpty());
    }

    // The size is known only for SI and SO.
    void stringTagGoesOutUnderItsCanonicalText_data()
    {
        QTest::addColumn<QString>("tag");
        QTest::addColumn<QString>("readTag");
        QTest::addColumn<int>("count");
        QTest::newRow("SI5") << "SI5"
                             << "SI5" << 256;
        QTest::newRow("SI005") << "SI005"
                               << "SI5" << 256;
        QTest::newRow("si5") << "si5"
                             << "SI5" << -1;
        QTest::newRow("SO5") << "SO5"
                             << "SO5" << 256;
        QTest::newRow("AI5") << "AI5"
                             << "AI5" << -1;
        QTest::newRow("AI5[20]") << "AI5[20]"
                                 << "UNKNOW-1" << 20;
        QTest::newRow("XY1") << "XY1"
                             << "UNKNOW-1" << -1;
    }
    void stringTagGoesOutUnderItsCanonicalText()
    {
        QFETCH(QString, tag);
        QFETCH(QString, readTag);
        QFETCH(int, count);
        CInductiveDrive engine;
        Recorder device(engine);
        const CLabelVariable record = engine.PointReading(kConnect, SReadInfo{tag, TYPE_STRING});
        QCOMPARE(device.calls, QStringList{QStringLiteral("%1 2 %2").arg(readTag).arg(count)});
        // The record is that of a byte read: nothing is turned into text here.
        QCOMPARE(record.tag, readTag);
        QCOMPARE(record.dataType, int(TYPE_INT8));
        const SStringPoint point = engine.m_stringPoints[kConnect][SReadInfo{tag, TYPE_STRING}];
        QCOMPARE(point.tag, readTag);
        QCOMPARE(point.dataType, int(TYPE_INT8));
        QCOMPARE(point.length, count);
    }

    void stringCacheIsPerConnectionAndTrusted()
    {
        CInductiveDrive engine;
        Recorder device(engine);
        const SReadInfo si{"SI005", TYPE_STRING};
        engine.PointReading(kConnect, si);
        engine.PointReading("other", si);
        QVERIFY(engine.m_stringPoints.size() == 2 && engine.m_stringPoints[kConnect].size() == 1);
        // A made entry is used as it stands; a blank one is made anew.
        engine.m_stringPoints[kConnect][si].tag = QStringLiteral("SI9");
        engine.PointReading(kConnect, si);
        engine.m_stringPoints[kConnect][si] = SStringPoint();
        engine.PointReading(kConnect, si);
        QCOMPARE(device.calls.mid(2), (QStringList{"SI9 2 256", "SI5 2 256"}));
        engine.DelInductiveDrive_Read(kConnect); // no removal touches it
        engine.DelCannotInductiveDrive_Read(kConnect);
        QCOMPARE(engine.m_stringPoints[kConnect].size(), 1);
    }

    // One failure stops nothing; the pause follows every tag, the last one too.
    void listReadsEveryEntryInOrderAndPauses()
    {
        CInductiveDrive engine;
        Recorder device(engine);
        QVERIFY(engine.PointReading(kConnect, QList<SReadInfo>(), 10000).isEmpty());
        QVERIFY(device.calls.isEmpty());

        const QList<SReadInfo> infos{{"DI2", 1}, {"SO5", 12}, {"AI1", 8}, {"DI2", 1}};
        QElapsedTimer timer;
        timer.start();
        const QMap<SReadInfo, CLabelVariable> records = engine.PointReading(kConnect, infos, 40);
        QVERIFY2(timer.elapsed() >= 155, qPrintable(QString::number(timer.elapsed())));
        QCOMPARE(device.calls, (QStringList{"DI2 1 1", "SO5 2 256", "AI1 8 1", "DI2 1 1"}));
        for (int i = 1; i < 4; ++i)
            QVERIFY(device.times[i] - device.times[i - 1] >= 38);
        QCOMPARE(records.size(), 3);
        QCOMPARE(records[infos[0]].value.value<QList<int>>(), QList<int>{4}); // the later read stands
        QCOMPARE(records[infos[1]].status, 3);                                // a failure keeps its entry
    }
};

QTEST_APPLESS_MAIN(TestPointReading)
#include "tst_point_reading.moc"
