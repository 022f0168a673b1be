// Point writing: one write per tag, or per string of a string tag, without a plan.

#include "engine/CInductiveDrive.h"

#include "EngineTestSupport.h"

#include <QtTest>

using Induction::SWriteInfo;
using namespace EngineTest;

class TestPointWriting : public QObject
{
    Q_OBJECT

private slots:
    void numbersKeepTagTypeAndValueWithLengthOne_data()
    {
        QTest::addColumn<SWriteInfo>("info");
        QTest::newRow("three floats, one written") << entry("ai01", TYPE_FLOAT, values<float>({1, 2, 3}));
        QTest::newRow("Int8") << entry("DO1", TYPE_INT8, values<char>({5}));
        QTest::newRow("UInt8") << entry("DO1", TYPE_UINT8, values<uchar>({5}));
        QTest::newRow("a byte-order form") << entry("LW1", TYPE_INT32_F2, values<int>({5}));
        QTest::newRow("no element") << entry("LW1", TYPE_NO_ELEMENT, QVariant());
        // Any number travels on unchanged; the write path refuses what it cannot size.
        QTest::newRow("above the table") << entry("LW1", 1000, values<int>({5}));
        QTest::newRow("negative") << entry("LW1", -1, values<int>({5}));
    }
    void numbersKeepTagTypeAndValueWithLengthOne()
    {
        QFETCH(SWriteInfo, info);
        CInductiveDrive engine;
        WritePath path;
        path.install(engine);
        const CLabelVariable record = engine.PointWriting("udp", info);

        QCOMPARE(path.calls.size(), 1);
        const WritePath::Call &call = path.calls.first();
        QVERIFY(call.connectPar == "udp" && call.tag == info.tag && call.type == info.dataType && call.count == 1);
        QVERIFY(sameValue(call.value, info.value)); // handed on whole, as given
        QVERIFY(record.status == 0 && record.tag == info.tag);
    }

    // Each write as "tag count bytes text", the text without its zero padding.
    void strings_data()
    {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<QString>("tag");
        QTest::addColumn<QStringList>("sent");
        const QVariant abc = values<QString>({"abc"});
        QTest::newRow("SI") << abc << "SI5" << QStringList{"SI5 256 256 abc"};
        QTest::newRow("SO") << abc << "SO5" << QStringList{"SO5 256 256 abc"};
        QTest::newRow("lower case, size unknown") << abc << "si05" << QStringList{"SI5 -1 0 "};
        QTest::newRow("outside SI and SO") << abc << "AI5" << QStringList{"AI5 -1 0 "};
        QTest::newRow("suffix fits no pattern") << abc << "AI5[20]" << QStringList{"UNKNOW-1 20 20 abc"};
        QTest::newRow("two strings, two writes")
            << values<QString>({"abc", "de"}) << "SI5" << QStringList{"SI5 256 256 abc", "SI5 256 256 de"};
        QTest::newRow("cut to the size") << values<QString>({QString(300, 'x')}) << "SI5"
                                         << QStringList{"SI5 256 256 " + QString(256, 'x')};
        QTest::newRow("Latin-1") << values<QString>({QString::fromUtf8("é")}) << "SI5"
                                 << QStringList{QString::fromUtf8("SI5 256 256 é")};
        // A length no request can carry builds nothing; the write path refuses it.
        QTest::newRow("huge suffix") << abc << "SI1[2000000000]" << QStringList{"UNKNOW-1 2000000000 0 "};
        QTest::newRow("no string") << values<QString>({}) << "SI5" << QStringList();
        QTest::newRow("not strings") << values<int>({1}) << "SI5" << QStringList();
    }
    void strings()
    {
        QFETCH(QVariant, value);
        QFETCH(QString, tag);
        QFETCH(QStringList, sent);
        CInductiveDrive engine;
        WritePath path;
        path.install(engine);
        const CLabelVariable record = engine.PointWriting("udp", entry(tag, TYPE_STRING, value));
        QStringList writes;
        for (const WritePath::Call &call : qAsConst(path.calls)) {
            QCOMPARE(call.type, int(TYPE_INT8));
            QCOMPARE(call.value.userType(), qMetaTypeId<QList<char>>());
            const QByteArray bytes = bytesOf(call.value);
            const QByteArray text(bytes.constData(), int(qstrnlen(bytes.constData(), uint(bytes.size()))));
            QCOMPARE(bytes, text + QByteArray(bytes.size() - text.size(), '\0')); // zero padding only
            writes << QStringLiteral("%1 %2 %3 %4")
                          .arg(call.tag)
                          .arg(call.count)
                          .arg(bytes.size())
                          .arg(QString::fromLatin1(text));
        }
        QCOMPARE(writes, sent);
        const int count = path.calls.isEmpty() ? 0 : path.calls.first().count;
        QCOMPARE(record.status, sent.isEmpty() ? 1 : count < 1 ? 4 : 0); // 1: nothing was sent
        QCOMPARE(bytesOf(record.value), path.calls.isEmpty() ? QByteArray() : bytesOf(path.calls.last().value));
    }

    // One failure stops nothing; a repeated entry is written twice and keeps one place.
    void listWritesEveryEntryAndPausesAfterEach()
    {
        CInductiveDrive engine;
        WritePath path;
        path.statusOfTag.insert("AI2", 8);
        path.install(engine);
        const QList<SWriteInfo> infos = entries("AI1/8:1 AI2/8:2 SI3/12:one SI3/12:two");
        QElapsedTimer clock;
        clock.start();
        const QMap<SWriteInfo, CLabelVariable> results = engine.PointWriting("udp", infos, 40);
        QVERIFY(clock.elapsed() >= 4 * 40 - 5); // a pause after each, the last one too

        QCOMPARE(path.calls.size(), 4);
        QCOMPARE(results.keys(), infos.mid(0, 3));
        QCOMPARE(results.value(infos.at(0)).status, 0);
        QCOMPARE(results.value(infos.at(1)).status, 8);
        QCOMPARE(results.value(infos.at(2)).status, 0);
        QCOMPARE(SorvikValues::listFrom<QString>(results.lastKey().value), QStringList{"one"});
        QCOMPARE(bytesOf(results.last().value).left(4), QByteArray("two\0", 4));

        clock.restart();
        QVERIFY(engine.PointWriting("udp", QList<SWriteInfo>(), 10000).isEmpty());
        QVERIFY(clock.elapsed() < 5000);
        QCOMPARE(path.calls.size(), 4);
    }

    // Without a callback nothing is sent; with one, plans and refusals stay as they were.
    void needsNoPlan()
    {
        CInductiveDrive engine;
        const QList<SWriteInfo> infos = entries("AI1/8:1 XY1/8:1");
        QCOMPARE(engine.PointWriting("udp", infos[0]).status, 1);
        QCOMPARE(engine.PointWriting("udp", infos, 0).value(infos[1]).status, 1);
        WritePath path;
        path.install(engine);
        engine.InductiveDrive_Write("udp", infos);
        engine.PointWriting("udp", infos, 0);
        QCOMPARE(path.calls.size(), 2);
        QCOMPARE(engine.GetInductiveDrive_Write("udp").size(), 1);
        QCOMPARE(engine.GetCannotInductiveDrive_Write("udp"), QList<SWriteInfo>{infos[1]});
    }
};

QTEST_GUILESS_MAIN(TestPointWriting)
#include "tst_point_writing.moc"
