// Point writing: one write per tag, or per string of a string tag, without a
// plan, with a pause after every tag of a list.

#include "engine/CInductiveDrive.h"
#include "host/ValueLists.h"

#include "EngineTestSupport.h"

#include <QElapsedTimer>
#include <QtTest>

using Induction::SWriteInfo;
using SorvikValues::toVariant;
using EngineTest::entry;
using EngineTest::values;
using EngineTest::bytesOf;
using EngineTest::sameValue;

namespace {

struct WriteCall {
    QString tag;
    int type;
    QVariant value;
    int count;
};

// Stands in for the one-tag write path: records every call and answers as
// that path does, status 0 with the time or the status set for the tag text;
// a count below 1 is refused with 4.
struct WritePath {
    QList<WriteCall> calls;
    QHash<QString, int> statusOfTag;

    void install(CInductiveDrive &engine)
    {
        engine.m_writeCallback = [this](const QString &, const QString &tag, DataType type, QVariant value, int count) {
            calls.append({tag, type, value, count});
            CLabelVariable record;
            record.tag = tag;
            record.dataType = type;
            record.length = count;
            record.value = value;
            record.status = count < 1 ? 4 : statusOfTag.value(tag, 0);
            if (record.status == 0)
                record.time = QDateTime::currentDateTime();
            return record;
        };
    }
};

} // namespace

class TestPointWriting : public QObject
{
    Q_OBJECT

private slots:
    void numbersKeepTagTypeAndValueWithLengthOne_data();
    void numbersKeepTagTypeAndValueWithLengthOne();
    void strings_data();
    void strings();
    void listWritesEveryEntryAndPausesAfterEach();
    void repeatedEntryIsWrittenTwiceAndKeepsOnePlace();
    void negativeIntervalIsNoPause();
    void withoutCallbackNothingIsSent();
    void leavesPlansAndRefusalsAlone();
};

void TestPointWriting::numbersKeepTagTypeAndValueWithLengthOne_data()
{
    QTest::addColumn<SWriteInfo>("info");
    QTest::addColumn<int>("type"); // as it reaches the write path

    QTest::newRow("three floats, one written") << entry("ai01", TYPE_FLOAT, values<float>({1, 2, 3})) << 8;
    QTest::newRow("Int8") << entry("DO1", TYPE_INT8, values<char>({5})) << 2;
    QTest::newRow("UInt8") << entry("DO1", TYPE_UINT8, values<uchar>({5})) << 3;
    QTest::newRow("a byte-order form") << entry("LW1", TYPE_INT32_F2, values<int>({5})) << 18;
    QTest::newRow("no element") << entry("LW1", TYPE_NO_ELEMENT, QVariant()) << 41;
    // Any number travels on unchanged; the write path refuses what it cannot size.
    QTest::newRow("above the table") << entry("LW1", 1000, values<int>({5})) << 1000;
    QTest::newRow("negative") << entry("LW1", -1, values<int>({5})) << -1;
}

void TestPointWriting::numbersKeepTagTypeAndValueWithLengthOne()
{
    QFETCH(SWriteInfo, info);
    QFETCH(int, type);

    CInductiveDrive engine;
    WritePath path;
    path.install(engine);
    const CLabelVariable record = engine.PointWriting("udp", info);

    QCOMPARE(path.calls.size(), 1);
    QCOMPARE(path.calls.first().tag, info.tag);
    QCOMPARE(path.calls.first().type, type);
    QVERIFY(sameValue(path.calls.first().value, info.value)); // handed on whole, as given
    QCOMPARE(path.calls.first().count, 1);
    QCOMPARE(record.status, 0);
    QCOMPARE(record.tag, info.tag);
}

void TestPointWriting::strings_data()
{
    QTest::addColumn<SWriteInfo>("info");
    QTest::addColumn<QString>("tag");
    QTest::addColumn<int>("count");
    QTest::addColumn<QList<QByteArray>>("sent"); // the bytes of each write

    const QByteArray abc("abc");
    QTest::newRow("SI") << entry("SI5", TYPE_STRING, values<QString>({"abc"})) << "SI5" << 256
                        << QList<QByteArray>{abc + QByteArray(253, '\0')};
    QTest::newRow("lower case, size unknown")
        << entry("si05", TYPE_STRING, values<QString>({"abc"})) << "SI5" << -1 << QList<QByteArray>{QByteArray()};
    QTest::newRow("outside SI and SO") << entry("AI5", TYPE_STRING, values<QString>({"abc"})) << "AI5" << -1
                                       << QList<QByteArray>{QByteArray()};
    QTest::newRow("suffix fits no pattern") << entry("AI5[20]", TYPE_STRING, values<QString>({"abc"})) << "UNKNOW-1"
                                            << 20 << QList<QByteArray>{abc + QByteArray(17, '\0')};
    QTest::newRow("SO") << entry("SO5", TYPE_STRING, values<QString>({"abc"})) << "SO5" << 256
                        << QList<QByteArray>{abc + QByteArray(253, '\0')};
    QTest::newRow("two strings, two writes")
        << entry("SI5", TYPE_STRING, values<QString>({"abc", "de"})) << "SI5" << 256
        << QList<QByteArray>{abc + QByteArray(253, '\0'), QByteArray("de") + QByteArray(254, '\0')};
    QTest::newRow("cut to the size") << entry("SI5", TYPE_STRING, values<QString>({QString(300, 'x')})) << "SI5" << 256
                                     << QList<QByteArray>{QByteArray(256, 'x')};
    QTest::newRow("Latin-1") << entry("SI5", TYPE_STRING, values<QString>({QString::fromUtf8("é")})) << "SI5" << 256
                             << QList<QByteArray>{QByteArray("\xe9") + QByteArray(255, '\0')};
    // A length no request can carry builds nothing; the write path refuses it.
    QTest::newRow("huge suffix") << entry("SI1[2000000000]", TYPE_STRING, values<QString>({"abc"})) << "UNKNOW-1"
                                 << 2000000000 << QList<QByteArray>{QByteArray()};
    QTest::newRow("no string") << entry("SI5", TYPE_STRING, values<QString>({})) << QString() << 0
                               << QList<QByteArray>();
    QTest::newRow("not strings") << entry("SI5", TYPE_STRING, values<int>({1})) << QString() << 0
                                 << QList<QByteArray>();
}

void TestPointWriting::strings()
{
    QFETCH(SWriteInfo, info);
    QFETCH(QString, tag);
    QFETCH(int, count);
    QFETCH(QList<QByteArray>, sent);

    CInductiveDrive engine;
    WritePath path;
    path.install(engine);
    const CLabelVariable record = engine.PointWriting("udp", info);

    QCOMPARE(path.calls.size(), sent.size());
    for (int i = 0; i < sent.size(); ++i) {
        QCOMPARE(path.calls.at(i).tag, tag);
        QCOMPARE(path.calls.at(i).type, int(TYPE_INT8));
        QCOMPARE(path.calls.at(i).value.userType(), qMetaTypeId<QList<char>>());
        QCOMPARE(path.calls.at(i).count, count);
        QCOMPARE(bytesOf(path.calls.at(i).value), sent.at(i));
    }
    if (sent.isEmpty()) {
        QCOMPARE(record.status, 1); // nothing was sent
    } else {
        QCOMPARE(record.status, count < 1 ? 4 : 0);
        QCOMPARE(bytesOf(record.value), sent.last());
    }
}

void TestPointWriting::listWritesEveryEntryAndPausesAfterEach()
{
    CInductiveDrive engine;
    WritePath path;
    path.statusOfTag.insert("AI2", 8);
    path.install(engine);
    const QList<SWriteInfo> infos{entry("AI1", TYPE_FLOAT, values<float>({1})),
                                  entry("AI2", TYPE_FLOAT, values<float>({2})),
                                  entry("SI3", TYPE_STRING, values<QString>({"x"}))};

    QElapsedTimer clock;
    clock.start();
    const QMap<SWriteInfo, CLabelVariable> results = engine.PointWriting("udp", infos, 40);
    QVERIFY(clock.elapsed() >= 3 * 40 - 5); // a pause after each, the last one too

    QCOMPARE(path.calls.size(), 3);
    QCOMPARE(results.keys(), infos);
    QCOMPARE(results.value(infos.at(0)).status, 0);
    QCOMPARE(results.value(infos.at(1)).status, 8); // one failure stops nothing
    QCOMPARE(results.value(infos.at(2)).status, 0);
    QCOMPARE(results.value(infos.at(2)).tag, QStringLiteral("SI3"));

    clock.restart();
    QVERIFY(engine.PointWriting("udp", QList<SWriteInfo>(), 10000).isEmpty());
    QVERIFY(clock.elapsed() < 5000);
    QCOMPARE(path.calls.size(), 3);
}

void TestPointWriting::repeatedEntryIsWrittenTwiceAndKeepsOnePlace()
{
    CInductiveDrive engine;
    WritePath path;
    path.install(engine);
    const SWriteInfo first = entry("SI1", TYPE_STRING, values<QString>({"one"}));
    const SWriteInfo second = entry("SI1", TYPE_STRING, values<QString>({"two"}));

    const QMap<SWriteInfo, CLabelVariable> results = engine.PointWriting("udp", {first, second}, 0);

    QCOMPARE(path.calls.size(), 2);
    QCOMPARE(results.size(), 1);
    QCOMPARE(SorvikValues::listFrom<QString>(results.firstKey().value), QStringList{"one"});
    QCOMPARE(bytesOf(results.first().value).left(3), QByteArray("two"));
}

void TestPointWriting::negativeIntervalIsNoPause()
{
    CInductiveDrive engine;
    WritePath path;
    path.install(engine);
    QElapsedTimer clock;
    clock.start();
    QCOMPARE(engine.PointWriting("udp", {entry("AI1", TYPE_FLOAT, values<float>({1}))}, -1).size(), 1);
    QVERIFY(clock.elapsed() < 5000);
}

void TestPointWriting::withoutCallbackNothingIsSent()
{
    CInductiveDrive engine;
    const SWriteInfo info = entry("AI1", TYPE_FLOAT, values<float>({1}));
    QCOMPARE(engine.PointWriting("udp", info).status, 1);
    const QMap<SWriteInfo, CLabelVariable> results = engine.PointWriting("udp", {info}, 0);
    QCOMPARE(results.size(), 1);
    QCOMPARE(results.first().status, 1);
}

void TestPointWriting::leavesPlansAndRefusalsAlone()
{
    CInductiveDrive engine;
    WritePath path;
    path.install(engine);
    const SWriteInfo planned = entry("AI1", TYPE_FLOAT, values<float>({1}));
    const SWriteInfo refused = entry("XY1", TYPE_FLOAT, values<float>({1}));
    engine.InductiveDrive_Write("udp", {planned, refused});

    engine.PointWriting("udp", {planned, refused}, 0);

    QCOMPARE(path.calls.size(), 2);
    QCOMPARE(engine.GetInductiveDrive_Write("udp").size(), 1);
    QCOMPARE(engine.GetCannotInductiveDrive_Write("udp"), QList<SWriteInfo>{refused});
}

QTEST_GUILESS_MAIN(TestPointWriting)
#include "tst_point_writing.moc"
