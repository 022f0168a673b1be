// Writing tag lists: one write per tag, or per string of a string tag, without a plan; or one write per
// planned block with its planned bytes, one record per tag.

#include "engine/CInductiveDrive.h"

#include "EngineTestSupport.h"

#include <QtTest>

using Induction::SWriteInfo;
using namespace EngineTest;

namespace {

const QList<SWriteInfo> threeFloats = entries("AI1/8:1 AI2/8:2 AI3/8:-1");
const QString threeFloatsHex = QStringLiteral("0000803f00000040000080bf");

QString hexOf(const QVariant &data)
{
    return QString::fromLatin1(bytesOf(data).toHex());
}

} // namespace

class TestWriting : public QObject
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
        WritePath path(engine);
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
        WritePath path(engine);
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
        WritePath path(engine);
        path.statusOfTag.insert("AI2", 8);
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
        WritePath path(engine);
        engine.InductiveDrive_Write("udp", infos);
        engine.PointWriting("udp", infos, 0);
        QCOMPARE(path.calls.size(), 2);
        QCOMPARE(engine.GetInductiveDrive_Write("udp").size(), 1);
        QCOMPARE(engine.GetCannotInductiveDrive_Write("udp"), QList<SWriteInfo>{infos[1]});
    }

    void byteBlockGoesOutAsOneInt8Write()
    {
        CInductiveDrive engine;
        WritePath path(engine);
        const QList<SWriteInfo> group = engine.InductiveDrive_Write("udp", threeFloats).first();
        engine.InductiveDrive_Write("serial", threeFloats);

        const QMap<SWriteInfo, CLabelVariable> results = engine.BlockWriting("udp", group);
        QCOMPARE(path.calls.size(), 1);
        QCOMPARE(describe(path.calls.first()), "udp AI1 2 12 " + threeFloatsHex);
        QCOMPARE(path.calls.first().value.userType(), qMetaTypeId<QList<char>>());
        QCOMPARE(results.keys(), threeFloats);
        for (CLabelVariable record : results) {
            QVERIFY(record.status == 0 && record.time.isValid());
            QCOMPARE(record.tag, QStringLiteral("AI1"));
            QCOMPARE(record.dataType, int(TYPE_INT8));
            QCOMPARE(record.length, 12);
            QCOMPARE(hexOf(record.value), threeFloatsHex);
            QCOMPARE(record.statusAux, 1); // assigned onto a fresh record
            QCOMPARE(record.auxWord, 0);
        }

        // Written: the block left the plan, and the same group sends nothing again.
        QVERIFY(engine.m_writePlans.contains("udp"));
        QVERIFY(engine.GetInductiveDrive_Write("udp").isEmpty());
        QCOMPARE(engine.GetInductiveDrive_Write("udp", group).kind, 0);
        QVERIFY(engine.BlockWriting("udp", group).isEmpty());
        QCOMPARE(path.calls.size(), 1);
        QCOMPARE(engine.GetInductiveDrive_Write("serial").size(), 1); // another connection's plan is untouched
    }

    void bitBlockGoesOutAsPoints()
    {
        CInductiveDrive engine;
        WritePath path(engine);
        const QList<SWriteInfo> infos = entries("DI1/1:1 DI2/1:0 DI3/1:1 DI4/1:0 DI5/1:1 DI6/1:0 DI7/1:1 DI8/1:0");
        const QMap<SWriteInfo, CLabelVariable> results =
            engine.BlockWriting("udp", engine.InductiveDrive_Write("udp", infos).first());
        QCOMPARE(path.calls.size(), 1);
        QCOMPARE(describe(path.calls.first()), QStringLiteral("udp DI1 1 8 "));
        QCOMPARE(SorvikValues::listFrom<bool>(path.calls.first().value),
                 (QList<bool>{true, false, true, false, true, false, true, false}));
        QCOMPARE(results.size(), 8);
        QCOMPARE(results.first().dataType, int(TYPE_BOOL));
    }

    // Strings go out under the canonical text; outside SI and SO no size, and status 4.
    void stringBlocks()
    {
        CInductiveDrive engine;
        WritePath path(engine);
        const SWriteInfo si = entry("SI0003", TYPE_STRING, values<QString>({"abc"}));
        const SWriteInfo ai = entry("AI5", TYPE_STRING, values<QString>({"abc"}));
        const QList<QList<SWriteInfo>> groups = engine.InductiveDrive_Write("udp", {si, ai});
        QCOMPARE(engine.BlockWriting("udp", {ai}).value(ai).status, 4);
        QCOMPARE(engine.BlockWriting("udp", {si}).value(si).status, 0);
        QCOMPARE(describe(path.calls.at(0)), QStringLiteral("udp AI5 2 -1 "));
        QCOMPARE(describe(path.calls.at(1)), "udp SI3 2 256 616263" + QString(506, '0'));
        // A failed block stays planned and goes out again as planned.
        QCOMPARE(engine.GetInductiveDrive_Write("udp").keys(), QList<QList<SWriteInfo>>{{ai}});
        QCOMPARE(engine.BlockWriting("udp", {ai}).value(ai).status, 4);
        QCOMPARE(describe(path.calls.at(2)), describe(path.calls.at(0)));
    }

    // Values take no part in finding a block: the planned bytes go out all the same.
    void groupFindsItsBlockByTagsOnly()
    {
        CInductiveDrive engine;
        WritePath path(engine);
        engine.InductiveDrive_Write("udp", threeFloats);
        QVERIFY(engine.BlockWriting("udp", {threeFloats.at(1), threeFloats.at(0), threeFloats.at(2)}).isEmpty());
        QVERIFY(engine.BlockWriting("serial", threeFloats).isEmpty());
        QVERIFY(engine.BlockWriting("udp", threeFloats.mid(0, 2)).isEmpty());
        QVERIFY(engine.BlockWriting("udp", {}).isEmpty());
        QVERIFY(path.calls.isEmpty());

        QList<SWriteInfo> otherValues = threeFloats;
        for (SWriteInfo &info : otherValues)
            info.value = values<float>({99.0f});
        const QMap<SWriteInfo, CLabelVariable> results = engine.BlockWriting("udp", otherValues);
        QCOMPARE(path.calls.size(), 1);
        QCOMPARE(hexOf(path.calls.first().value), threeFloatsHex);
        QCOMPARE(SorvikValues::listFrom<float>(results.firstKey().value), QList<float>{99.0f});
    }

    void withoutCallbackNothingIsWritten()
    {
        CInductiveDrive engine;
        QVERIFY(engine.BlockWriting("udp", threeFloats).isEmpty()); // no plan either
        engine.InductiveDrive_Write("udp", threeFloats);
        QVERIFY(engine.BlockWriting("udp", threeFloats).isEmpty());
        QCOMPARE(engine.GetInductiveDrive_Write("udp").size(), 1);
    }
};

QTEST_GUILESS_MAIN(TestWriting)
#include "tst_writing.moc"
