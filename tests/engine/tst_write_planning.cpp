// Write planning, each block described as EngineTest::describe() writes it.

#include "engine/CInductiveDrive.h"

#include "EngineTestSupport.h"

#include <QtTest>

#include <random>

using Induction::SWriteInfo;
using namespace EngineTest;

namespace {

// The blocks of the plan in key order.
QStringList describe(const CInductiveDrive::WritePlan &plan)
{
    QStringList blocks;
    for (auto block = plan.cbegin(); block != plan.cend(); ++block)
        blocks << EngineTest::describe(block.key(), *block);
    return blocks;
}

template <typename F> QList<SWriteInfo> numbered(const QString &area, int from, int to, int type, F valueOf)
{
    QStringList items;
    for (int i = from; i <= to; ++i)
        items << QStringLiteral("%1%2/%3:%4").arg(area).arg(i).arg(type).arg(valueOf(i));
    return entries(items.join(' '));
}

} // namespace

class TestWritePlanning : public QObject
{
    Q_OBJECT

private slots:
    void plans_data()
    {
        QTest::addColumn<QString>("infos");
        QTest::addColumn<QStringList>("blocks");
        auto row = [](const char *name, const QString &infos, const QStringList &blocks) {
            QTest::newRow(name) << infos << blocks;
        };
        row("three adjacent floats", "AI1/8:1 AI2/8:2 AI3/8:-1", {"AI1,AI2,AI3 AI 1 12 1 0000803f00000040000080bf"});
        row("a gap splits", "AI1/8:1 AI3/8:2", {"AI1 AI 1 4 1 0000803f", "AI3 AI 3 4 1 00000040"});
        row("int16 on SA spans one address", "SA1/4:258 SA2/4:-2", {"SA1,SA2 SA 1 4 1 0201feff"});
        row("int16 on SA with a gap", "SA1/4:1 SA3/4:2", {"SA1 SA 1 2 1 0100", "SA3 SA 3 2 1 0200"});
        row("int32 spans two SA addresses", "SA1/6:16909060 SA3/4:1286", {"SA1,SA3 SA 1 6 1 040302010605"});
        row("int16 on AI ends inside an address", "AI1/4:1 AI2/4:2", {"AI1 AI 1 2 1 0100", "AI2 AI 2 2 1 0200"});
        row("a ragged end closes the block", "LW1/6:1 LW2/4:2 lw2/8:1",
            {"LW1,LW2 LW 1 6 1 010000000200", "lw2 LW 2 4 1 0000803f"});
        row("int32 and float merge, forms as their base", "AO1/18:-1 AO2/35:1 AO3/7:287454020",
            {"AO1,AO2,AO3 AO 1 12 1 ffffffff0000803f44332211"});
        row("64-bit elements", "LW1/9:-2 LW3/37:1 LW5/32:72623859790382856",
            {"LW1,LW3,LW5 LW 1 24 1 feffffffffffffff000000000000f03f0807060504030201"});
        row("only the first element of a list", "AI1/8:1,2,3 AI2/6:7,8", {"AI1,AI2 AI 1 8 1 0000803f07000000"});
        row("Int8 and UInt8 give one byte", "LW1/2:-127,5 LW2/3:200", {"LW1 LW 1 1 1 81", "LW2 LW 2 1 1 c8"});
        row("bools merge point by point", "DI1/1:1 DI2/1:0,1 DI3/1:1", {"DI1,DI2,DI3 DI 1 3 2 010001"});
        row("bools on a word area count points", "AI1/1:1 AI2/1:1", {"AI1,AI2 AI 1 2 2 0101"});
        row("a bool and a byte item never share", "DI1/1:1 DI2/4:3", {"DI1 DI 1 1 2 01", "DI2 DI 2 2 1 0300"});
        row("byte items on a bit area stand alone", "DO1/2:1 DO2/2:2 AI_S1/3:3 AI_S2/3:4",
            {"AI_S1 AI_S 1 1 1 03", "AI_S2 AI_S 2 1 1 04", "DO1 DO 1 1 1 01", "DO2 DO 2 1 1 02"});
        // An item never joins a block that it would overlap, only one that ends where it starts.
        row("one address named twice is written twice", "ai1/8:2 AI1/6:1 AI2/6:2 AI1/8:1",
            {"AI1 AI 1 4 1 01000000", "AI1 AI 1 4 1 0000803f", "ai1,AI2 AI 1 8 1 0000004002000000"});
        row("an item starting inside the one before", "SA1/6:1 SA2/4:2 SA3/4:3",
            {"SA1 SA 1 4 1 01000000", "SA2,SA3 SA 2 4 1 02000300"});
        row("canonical area name and start, caller's tag in the key", "ai0005/8:1", {"ai0005 AI 5 4 1 0000803f"});
        row("keys in key order, not address order", "AI9/8:0 AI11/8:0",
            {"AI11 AI 11 4 1 00000000", "AI9 AI 9 4 1 00000000"});
        row("strings reach the limit alone", "SI1/12:abc SI2/12:first," + QString(300, 'x'),
            {"SI1 SI 1 256 1 616263" + QString(506, '0'), "SI2 SI 2 256 1 " + QString(256, 'x').toLatin1().toHex()});
        // A string of no known size joins the block before with no bytes and ends it.
        row("string of unknown size adds no bytes", "AI4/8:1 AI5/12:abc AI6/8:1",
            {"AI4,AI5 AI 4 3 1 0000803f", "AI6 AI 6 4 1 0000803f"});
        row("string of unknown size alone", "AI5/12:abc", {"AI5 AI 5 -1 1 "});
    }
    void plans()
    {
        QFETCH(QString, infos);
        QFETCH(QStringList, blocks);
        CInductiveDrive engine;
        const QList<QList<SWriteInfo>> keys = engine.InductiveDrive_Write("udp", entries(infos));
        QCOMPARE(describe(engine.GetInductiveDrive_Write("udp")), blocks);
        QCOMPARE(keys, engine.GetInductiveDrive_Write("udp").keys());
        QCOMPARE(engine.GetCannotInductiveDrive_Write("udp"), QList<SWriteInfo>());
    }

    void limits_data()
    {
        QTest::addColumn<QList<SWriteInfo>>("infos"); // in address order
        QTest::addColumn<int>("byteLimit");
        QTest::addColumn<int>("pointLimit");
        QTest::addColumn<QList<int>>("lengths"); // of the blocks, by address

        const QList<SWriteInfo> floats = numbered("AI", 1, 41, 8, [](int i) { return i; });
        const QList<SWriteInfo> bools = numbered("DI", 1, 1281, 1, [](int i) { return int(i % 3 == 0); });
        QTest::newRow("41 floats") << floats << 160 << 1280 << QList<int>{160, 4};
        QTest::newRow("limit tested before adding")
            << floats.mid(0, 39) + entries("AI40/11:1") << 160 << 1280 << QList<int>{164};
        QTest::newRow("1281 bools") << bools << 160 << 1280 << QList<int>{1280, 1};
        QTest::newRow("point limit 3") << bools.mid(0, 5) << 160 << 3 << QList<int>{3, 2};
        QTest::newRow("byte limit 0 keeps every item alone") << floats.mid(0, 3) << 0 << 1280 << QList<int>{4, 4, 4};
        QTest::newRow("point limit 0 keeps every point alone") << bools.mid(0, 2) << 160 << 0 << QList<int>{1, 1};
        QTest::newRow("raised limit merges strings") << entries("SI1/12:a SI2/12:b") << 512 << 1280 << QList<int>{512};
        QTest::newRow("negative limit counts as 0") << floats.mid(0, 2) << -7 << 1280 << QList<int>{4, 4};
    }
    void limits()
    {
        QFETCH(QList<SWriteInfo>, infos);
        QFETCH(int, byteLimit);
        QFETCH(int, pointLimit);
        QFETCH(QList<int>, lengths);
        CInductiveDrive engine;
        engine.SetInductionParam(Induction::INDUCTION_WRITE, Induction::INDUCTION_BYTE_LIMIT, byteLimit);
        engine.SetInductionParam(Induction::INDUCTION_WRITE, Induction::INDUCTION_POINT_LIMIT, pointLimit);
        // Every tag lies in exactly one block, and each block's data is as long as the block.
        QMap<int, int> lengthAt;
        QMap<int, QString> tagsAt;
        for (const QList<SWriteInfo> &key : engine.InductiveDrive_Write("udp", infos)) {
            const SWriteGroup group = engine.GetInductiveDrive_Write("udp", key);
            lengthAt[group.start.toInt()] = group.length;
            tagsAt[group.start.toInt()] = tagsOf(key).join(',');
            const int elements =
                group.kind == 2 ? SorvikValues::listFrom<bool>(group.data).size() : bytesOf(group.data).size();
            QCOMPARE(elements, group.length);
        }
        QCOMPARE(lengthAt.values(), lengths);
        QCOMPARE(QStringList(tagsAt.values()).join(','), tagsOf(infos).join(','));
    }

    void refused_data()
    {
        QTest::addColumn<SWriteInfo>("refused");
        QTest::newRow("no area") << entry("XY1", TYPE_FLOAT, values<float>({1.0f}));
        QTest::newRow("length suffix") << entry("SD100[20]", TYPE_STRING, values<QString>({"abc"}));
        QTest::newRow("type 0") << entry("AI5", TYPE_NONE, values<float>({1.0f}));
        QTest::newRow("type 41") << entry("AI5", TYPE_NO_ELEMENT, values<char>({1}));
        QTest::newRow("type 42") << entry("AI5", 42, values<int>({1}));
        QTest::newRow("float given as doubles") << entry("AI5", TYPE_FLOAT, values<double>({1.0}));
        QTest::newRow("int given as a plain int") << entry("AI5", TYPE_INT32, QVariant(7));
        QTest::newRow("bool given as ints") << entry("DI5", TYPE_BOOL, values<int>({1}));
        QTest::newRow("string given as ints") << entry("SI5", TYPE_STRING, values<int>({1}));
        QTest::newRow("string given as a plain text") << entry("SI5", TYPE_STRING, QVariant(QStringLiteral("abc")));
        QTest::newRow("empty floats") << entry("AI5", TYPE_FLOAT, values<float>({}));
        QTest::newRow("empty bools") << entry("DI5", TYPE_BOOL, values<bool>({}));
        QTest::newRow("empty strings") << entry("SI5", TYPE_STRING, values<QString>({}));
    }
    // A refused entry is reported with its value; its neighbours plan as if it were not there.
    void refused()
    {
        QFETCH(SWriteInfo, refused);
        CInductiveDrive engine;
        const QList<SWriteInfo> around = entries(refused.dataType == TYPE_BOOL ? "DI4/1:1 DI6/1:1" : "AI4/8:1 AI6/8:1");
        const QList<QList<SWriteInfo>> keys = engine.InductiveDrive_Write("udp", {around[0], refused, around[1]});
        QCOMPARE(keys, (QList<QList<SWriteInfo>>{{around[0]}, {around[1]}}));
        const QList<SWriteInfo> cannot = engine.GetCannotInductiveDrive_Write("udp");
        QCOMPARE(cannot, QList<SWriteInfo>{refused});
        QVERIFY(sameValue(cannot.first().value, refused.value));
    }

    void sameEntryTwiceKeepsEarlierKeyWithLaterData()
    {
        CInductiveDrive engine;
        const QList<QList<SWriteInfo>> keys = engine.InductiveDrive_Write("udp", entries("AI1/8:1 AI2/8:3 AI1/8:2"));
        QCOMPARE(describe(engine.GetInductiveDrive_Write("udp")), QStringList{"AI1,AI2 AI 1 8 1 0000004000004040"});
        QVERIFY(sameValue(keys.first().first().value, values<float>({1.0f})));
    }

    // Plans live per connection until replaced whole; refusals until the next planning of any
    // connection; empty tags leave no trace. Planning calls no callback.
    void plansAndRefusalsPerConnection()
    {
        CInductiveDrive engine;
        const SWriteGroup blank = engine.GetInductiveDrive_Write("udp", entries("AI1/8:1"));
        QVERIFY(blank.areaText.isEmpty() && !blank.start.isValid() && !blank.data.isValid());
        QVERIFY(blank.length == 0 && blank.kind == 0 && engine.GetInductiveDrive_Write("udp").isEmpty());
        WritePath writes(engine);
        ReadPath reads(engine);

        const QList<SWriteInfo> ai = entries("AI1/8:1 AI7/8:7");
        const QList<SWriteInfo> refused = entries("XY1/8:1 AI1/0:2 AB1/8:3");
        engine.InductiveDrive_Write(
            "udp", {refused[0], ai[0], refused[1], entry("", TYPE_FLOAT, values<float>({1})), ai[1], refused[2]});
        QCOMPARE(engine.GetCannotInductiveDrive_Write("udp"), refused);
        engine.InductiveDrive_Write("serial", {ai[1]});
        QVERIFY(engine.m_cannotWrite.isEmpty());
        QCOMPARE(engine.GetInductiveDrive_Write("udp").keys(), (QList<QList<SWriteInfo>>{{ai[0]}, {ai[1]}}));
        QVERIFY(writes.calls.isEmpty() && reads.calls.isEmpty());

        engine.InductiveDrive_Write("udp", {ai[1], refused[0]});
        QCOMPARE(engine.GetInductiveDrive_Write("udp").keys(), (QList<QList<SWriteInfo>>{{ai[1]}}));
        QCOMPARE(engine.GetCannotInductiveDrive_Write("udp").size(), 1);
        QCOMPARE(engine.GetCannotInductiveDrive_Write("serial"), QList<SWriteInfo>());
        QCOMPARE(engine.InductiveDrive_Write("udp", {entry("", TYPE_NONE, QVariant())}), QList<QList<SWriteInfo>>());
        QVERIFY(engine.m_cannotWrite.isEmpty() && engine.m_writePlans.contains("udp"));
        QVERIFY(engine.GetInductiveDrive_Write("udp").isEmpty());
        QCOMPARE(engine.GetInductiveDrive_Write("serial").keys(), (QList<QList<SWriteInfo>>{{ai[1]}}));
    }

    // Thousands of tags in random order plan into the same blocks as in address order.
    void largeShuffledListPlansLikeSortedOne()
    {
        const QList<SWriteInfo> sorted = numbered("NDO", 1, 30000, 1, [](int i) { return int(i % 7 == 0); }) +
                                         numbered("NAI", 1, 8000, 6, [](int i) { return i; });
        QList<SWriteInfo> infos = sorted;
        std::shuffle(infos.begin(), infos.end(), std::mt19937(7));
        CInductiveDrive engine, reference;
        QCOMPARE(engine.InductiveDrive_Write("udp", infos).size(), 24 + 200); // 23 x 1280 + 560 points; 200 x 40 ints
        reference.InductiveDrive_Write("udp", sorted);
        QCOMPARE(describe(engine.GetInductiveDrive_Write("udp")), describe(reference.GetInductiveDrive_Write("udp")));
    }
};

QTEST_GUILESS_MAIN(TestWritePlanning)
#include "tst_write_planning.moc"
