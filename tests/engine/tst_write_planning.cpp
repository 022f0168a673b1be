// Write planning: which tags merge into one block, the exact bytes and points
// of each block, the limits, and what is refused and reported.

#include "engine/CInductiveDrive.h"
#include "host/ValueLists.h"

#include "EngineTestSupport.h"

#include <QtTest>

#include <algorithm>
#include <random>

using Induction::SWriteInfo;
using SorvikValues::toVariant;
using EngineTest::entry;
using EngineTest::values;
using EngineTest::bytesOf;
using EngineTest::tagsOf;
using EngineTest::sameValue;

namespace {

// One block as expected: its tags in key order and its fields; `data` is the
// hexadecimal text of the bytes, or of one byte 00/01 a point.
struct Block {
    QStringList tags;
    QString areaText;
    QString start;
    int length;
    int kind;
    QByteArray data;
};

QByteArray dataHex(const SWriteGroup &group)
{
    if (group.kind == 2) {
        QByteArray points;
        for (const bool point : SorvikValues::listFrom<bool>(group.data))
            points.append(point ? '\1' : '\0');
        return points.toHex();
    }
    return bytesOf(group.data).toHex();
}

QList<SWriteInfo> floatsFromAI1(int count)
{
    QList<SWriteInfo> infos;
    for (int i = 1; i <= count; ++i)
        infos << entry(QStringLiteral("AI%1").arg(i), TYPE_FLOAT, values<float>({float(i)}));
    return infos;
}

QByteArray latin1Padded(const QByteArray &text, int size)
{
    return (text.left(size) + QByteArray(size - qMin(size, text.size()), '\0')).toHex();
}

} // namespace

Q_DECLARE_METATYPE(QList<SWriteInfo>)
Q_DECLARE_METATYPE(Block)
Q_DECLARE_METATYPE(QList<Block>)

class TestWritePlanning : public QObject
{
    Q_OBJECT

private slots:
    void plans_data();
    void plans();
    void limits_data();
    void limits();
    void refused_data();
    void refused();
    void sameEntryTwiceKeepsEarlierKeyWithLaterData();
    void refusalsKeepTheirOrderAndLastOnlyUntilTheNextPlanning();
    void plansArePerConnectionAndReplacedWhole();
    void emptyTagsLeaveNoTrace();
    void queriesBeforeAnyPlanning();
    void planningCallsNoCallback();
    void largeShuffledListPlansLikeSortedOne();
};

void TestWritePlanning::plans_data()
{
    QTest::addColumn<QList<SWriteInfo>>("infos");
    QTest::addColumn<QList<Block>>("blocks");

    QTest::newRow("three adjacent floats")
        << QList<SWriteInfo>{entry("AI1", TYPE_FLOAT, values<float>({1.0f})),
                             entry("AI2", TYPE_FLOAT, values<float>({2.0f})),
                             entry("AI3", TYPE_FLOAT, values<float>({-1.0f}))}
        << QList<Block>{{{"AI1", "AI2", "AI3"}, "AI", "1", 12, 1, "0000803f00000040000080bf"}};
    QTest::newRow("a gap splits") << QList<SWriteInfo>{entry("AI1", TYPE_FLOAT, values<float>({1.0f})),
                                                       entry("AI3", TYPE_FLOAT, values<float>({2.0f}))}
                                  << QList<Block>{{{"AI1"}, "AI", "1", 4, 1, "0000803f"},
                                                  {{"AI3"}, "AI", "3", 4, 1, "00000040"}};
    QTest::newRow("int16 on SA spans one address")
        << QList<SWriteInfo>{entry("SA1", TYPE_INT16, values<short>({0x0102})),
                             entry("SA2", TYPE_INT16, values<short>({-2}))}
        << QList<Block>{{{"SA1", "SA2"}, "SA", "1", 4, 1, "0201feff"}};
    QTest::newRow("int16 on SA with a gap")
        << QList<SWriteInfo>{entry("SA1", TYPE_INT16, values<short>({1})), entry("SA3", TYPE_INT16, values<short>({2}))}
        << QList<Block>{{{"SA1"}, "SA", "1", 2, 1, "0100"}, {{"SA3"}, "SA", "3", 2, 1, "0200"}};
    QTest::newRow("int32 spans two SA addresses")
        << QList<SWriteInfo>{entry("SA1", TYPE_INT32, values<int>({0x01020304})),
                             entry("SA3", TYPE_INT16, values<short>({0x0506}))}
        << QList<Block>{{{"SA1", "SA3"}, "SA", "1", 6, 1, "040302010605"}};
    QTest::newRow("int16 on AI ends inside an address")
        << QList<SWriteInfo>{entry("AI1", TYPE_INT16, values<short>({1})), entry("AI2", TYPE_INT16, values<short>({2}))}
        << QList<Block>{{{"AI1"}, "AI", "1", 2, 1, "0100"}, {{"AI2"}, "AI", "2", 2, 1, "0200"}};
    QTest::newRow("a ragged end closes the block")
        << QList<SWriteInfo>{entry("LW1", TYPE_INT32, values<int>({1})), entry("LW2", TYPE_INT16, values<short>({2})),
                             entry("lw2", TYPE_FLOAT, values<float>({1.0f}))}
        << QList<Block>{{{"LW1", "LW2"}, "LW", "1", 6, 1, "010000000200"}, {{"lw2"}, "LW", "2", 4, 1, "0000803f"}};
    QTest::newRow("int32 and float merge, forms as their base")
        << QList<SWriteInfo>{entry("AO1", TYPE_INT32_F2, values<int>({-1})),
                             entry("AO2", TYPE_FLOAT_F3, values<float>({1.0f})),
                             entry("AO3", TYPE_UINT32, values<uint>({0x11223344u}))}
        << QList<Block>{{{"AO1", "AO2", "AO3"}, "AO", "1", 12, 1, "ffffffff0000803f44332211"}};
    QTest::newRow("64-bit elements")
        << QList<SWriteInfo>{entry("LW1", TYPE_INT64, values<qlonglong>({-2})),
                             entry("LW3", TYPE_DOUBLE_F1, values<double>({1.0})),
                             entry("LW5", TYPE_UINT64_F4, values<qulonglong>({0x0102030405060708ull}))}
        << QList<Block>{{{"LW1", "LW3", "LW5"}, "LW", "1", 24, 1, "feffffffffffffff000000000000f03f0807060504030201"}};
    QTest::newRow("only the first element of a list")
        << QList<SWriteInfo>{entry("AI1", TYPE_FLOAT, values<float>({1.0f, 2.0f, 3.0f})),
                             entry("AI2", TYPE_INT32, values<int>({7, 8}))}
        << QList<Block>{{{"AI1", "AI2"}, "AI", "1", 8, 1, "0000803f07000000"}};
    QTest::newRow("Int8 and UInt8 give one byte")
        << QList<SWriteInfo>{entry("LW1", TYPE_INT8, values<char>({'\x81', 5})),
                             entry("LW2", TYPE_UINT8, values<uchar>({200}))}
        << QList<Block>{{{"LW1"}, "LW", "1", 1, 1, "81"}, {{"LW2"}, "LW", "2", 1, 1, "c8"}};
    QTest::newRow("bools merge point by point")
        << QList<SWriteInfo>{entry("DI1", TYPE_BOOL, values<bool>({true})),
                             entry("DI2", TYPE_BOOL, values<bool>({false, true})),
                             entry("DI3", TYPE_BOOL, values<bool>({true}))}
        << QList<Block>{{{"DI1", "DI2", "DI3"}, "DI", "1", 3, 2, "010001"}};
    QTest::newRow("bools on a word area count points")
        << QList<SWriteInfo>{entry("AI1", TYPE_BOOL, values<bool>({true})),
                             entry("AI2", TYPE_BOOL, values<bool>({true}))}
        << QList<Block>{{{"AI1", "AI2"}, "AI", "1", 2, 2, "0101"}};
    QTest::newRow("a bool and a byte item never share")
        << QList<SWriteInfo>{entry("DI1", TYPE_BOOL, values<bool>({true})),
                             entry("DI2", TYPE_INT16, values<short>({3}))}
        << QList<Block>{{{"DI1"}, "DI", "1", 1, 2, "01"}, {{"DI2"}, "DI", "2", 2, 1, "0300"}};
    QTest::newRow("byte items on a bit area stand alone")
        << QList<SWriteInfo>{entry("DO1", TYPE_INT8, values<char>({1})), entry("DO2", TYPE_INT8, values<char>({2})),
                             entry("AI_S1", TYPE_UINT8, values<uchar>({3})),
                             entry("AI_S2", TYPE_UINT8, values<uchar>({4}))}
        << QList<Block>{{{"AI_S1"}, "AI_S", "1", 1, 1, "03"},
                        {{"AI_S2"}, "AI_S", "2", 1, 1, "04"},
                        {{"DO1"}, "DO", "1", 1, 1, "01"},
                        {{"DO2"}, "DO", "2", 1, 1, "02"}};
    // Equal addresses go by key order; an item never joins a block that it
    // would overlap, only one that ends right where it starts.
    QTest::newRow("one address named twice is written twice")
        << QList<SWriteInfo>{entry("ai1", TYPE_FLOAT, values<float>({2.0f})),
                             entry("AI1", TYPE_INT32, values<int>({1})), entry("AI2", TYPE_INT32, values<int>({2})),
                             entry("AI1", TYPE_FLOAT, values<float>({1.0f}))}
        << QList<Block>{{{"AI1"}, "AI", "1", 4, 1, "01000000"},
                        {{"AI1"}, "AI", "1", 4, 1, "0000803f"},
                        {{"ai1", "AI2"}, "AI", "1", 8, 1, "0000004002000000"}};
    QTest::newRow("an item starting inside the one before")
        << QList<SWriteInfo>{entry("SA1", TYPE_INT32, values<int>({1})), entry("SA2", TYPE_INT16, values<short>({2})),
                             entry("SA3", TYPE_INT16, values<short>({3}))}
        << QList<Block>{{{"SA1"}, "SA", "1", 4, 1, "01000000"}, {{"SA2", "SA3"}, "SA", "2", 4, 1, "02000300"}};
    QTest::newRow("canonical area name and start, caller's tag in the key")
        << QList<SWriteInfo>{entry("ai0005", TYPE_FLOAT, values<float>({1.0f}))}
        << QList<Block>{{{"ai0005"}, "AI", "5", 4, 1, "0000803f"}};
    QTest::newRow("keys in key order, not address order")
        << QList<SWriteInfo>{entry("AI9", TYPE_FLOAT, values<float>({0.0f})),
                             entry("AI11", TYPE_FLOAT, values<float>({0.0f}))}
        << QList<Block>{{{"AI11"}, "AI", "11", 4, 1, "00000000"}, {{"AI9"}, "AI", "9", 4, 1, "00000000"}};
    QTest::newRow("strings reach the limit alone")
        << QList<SWriteInfo>{entry("SI1", TYPE_STRING, values<QString>({"abc"})),
                             entry("SI2", TYPE_STRING, values<QString>({"first", QString(300, 'x')}))}
        << QList<Block>{{{"SI1"}, "SI", "1", 256, 1, latin1Padded("abc", 256)},
                        {{"SI2"}, "SI", "2", 256, 1, latin1Padded(QByteArray(300, 'x'), 256)}};
    // A string of no known size joins the block before it with no bytes; the
    // ragged length that leaves ends the block there.
    QTest::newRow("string of unknown size adds no bytes")
        << QList<SWriteInfo>{entry("AI4", TYPE_FLOAT, values<float>({1.0f})),
                             entry("AI5", TYPE_STRING, values<QString>({"abc"})),
                             entry("AI6", TYPE_FLOAT, values<float>({1.0f}))}
        << QList<Block>{{{"AI4", "AI5"}, "AI", "4", 3, 1, "0000803f"}, {{"AI6"}, "AI", "6", 4, 1, "0000803f"}};
    QTest::newRow("string of unknown size alone")
        << QList<SWriteInfo>{entry("AI5", TYPE_STRING, values<QString>({"abc"}))}
        << QList<Block>{{{"AI5"}, "AI", "5", -1, 1, ""}};
}

void TestWritePlanning::plans()
{
    QFETCH(QList<SWriteInfo>, infos);
    QFETCH(QList<Block>, blocks);

    CInductiveDrive engine;
    const QList<QList<SWriteInfo>> keys = engine.InductiveDrive_Write("udp", infos);
    const CInductiveDrive::WritePlan plan = engine.GetInductiveDrive_Write("udp");

    QCOMPARE(engine.GetCannotInductiveDrive_Write("udp"), QList<SWriteInfo>());
    QCOMPARE(keys, plan.keys());
    QCOMPARE(keys.size(), blocks.size());
    for (int i = 0; i < blocks.size(); ++i) {
        const SWriteGroup group = plan.value(keys.at(i));
        QCOMPARE(tagsOf(keys.at(i)), blocks.at(i).tags);
        QCOMPARE(group.areaText, blocks.at(i).areaText);
        QCOMPARE(group.start.userType(), int(QMetaType::QString));
        QCOMPARE(group.start.toString(), blocks.at(i).start);
        QCOMPARE(group.length, blocks.at(i).length);
        QCOMPARE(group.kind, blocks.at(i).kind);
        QCOMPARE(group.data.userType(), group.kind == 2 ? qMetaTypeId<QList<bool>>() : qMetaTypeId<QList<char>>());
        QCOMPARE(dataHex(group), blocks.at(i).data);
    }
}

void TestWritePlanning::limits_data()
{
    QTest::addColumn<QList<SWriteInfo>>("infos");
    QTest::addColumn<int>("byteLimit");
    QTest::addColumn<int>("pointLimit");
    QTest::addColumn<QList<int>>("lengths"); // of the blocks, by address

    QList<SWriteInfo> bools;
    for (int i = 1; i <= 1281; ++i)
        bools << entry(QStringLiteral("DI%1").arg(i), TYPE_BOOL, values<bool>({i % 3 == 0}));
    QList<SWriteInfo> doubleJoins = floatsFromAI1(39);
    doubleJoins << entry("AI40", TYPE_DOUBLE, values<double>({1.0}));
    const QList<SWriteInfo> twoStrings{entry("SI1", TYPE_STRING, values<QString>({"a"})),
                                       entry("SI2", TYPE_STRING, values<QString>({"b"}))};

    QTest::newRow("41 floats") << floatsFromAI1(41) << 160 << 1280 << QList<int>{160, 4};
    QTest::newRow("limit tested before adding") << doubleJoins << 160 << 1280 << QList<int>{164};
    QTest::newRow("1281 bools") << bools << 160 << 1280 << QList<int>{1280, 1};
    QTest::newRow("point limit 3") << bools.mid(0, 5) << 160 << 3 << QList<int>{3, 2};
    QTest::newRow("byte limit 0 keeps every item alone") << floatsFromAI1(3) << 0 << 1280 << QList<int>{4, 4, 4};
    QTest::newRow("point limit 0 keeps every point alone") << bools.mid(0, 2) << 160 << 0 << QList<int>{1, 1};
    QTest::newRow("raised limit merges strings") << twoStrings << 512 << 1280 << QList<int>{512};
    QTest::newRow("negative limit counts as 0") << floatsFromAI1(2) << -7 << 1280 << QList<int>{4, 4};
}

void TestWritePlanning::limits()
{
    QFETCH(QList<SWriteInfo>, infos);
    QFETCH(int, byteLimit);
    QFETCH(int, pointLimit);
    QFETCH(QList<int>, lengths);

    CInductiveDrive engine;
    engine.SetInductionParam(Induction::INDUCTION_WRITE, Induction::INDUCTION_BYTE_LIMIT, byteLimit);
    engine.SetInductionParam(Induction::INDUCTION_WRITE, Induction::INDUCTION_POINT_LIMIT, pointLimit);
    engine.InductiveDrive_Write("udp", infos);

    QList<SWriteGroup> groups = engine.GetInductiveDrive_Write("udp").values();
    std::sort(groups.begin(), groups.end(),
              [](const SWriteGroup &a, const SWriteGroup &b) { return a.start.toInt() < b.start.toInt(); });
    QList<int> planned;
    int firstTagOfNext = 1;
    for (const SWriteGroup &group : groups) {
        planned << group.length;
        QCOMPARE(group.start.toInt(), firstTagOfNext); // every tag is in exactly one block, none skipped
        const int width = group.kind == 2 ? 1 : group.areaText == "SI" ? 256 : 4;
        firstTagOfNext += group.kind == 2 ? group.length : group.length / width;
        const int dataSize = group.kind == 2 ? SorvikValues::listFrom<bool>(group.data).size()
                                             : SorvikValues::listFrom<char>(group.data).size();
        QCOMPARE(dataSize, group.length);
    }
    QCOMPARE(planned, lengths);
}

void TestWritePlanning::refused_data()
{
    QTest::addColumn<SWriteInfo>("refused");

    QTest::newRow("no area") << entry("XY1", TYPE_FLOAT, values<float>({1.0f}));
    QTest::newRow("length suffix") << entry("SD100[20]", TYPE_STRING, values<QString>({"abc"}));
    QTest::newRow("number 0") << entry("AI0", TYPE_FLOAT, values<float>({1.0f}));
    QTest::newRow("type 0") << entry("AI5", TYPE_NONE, values<float>({1.0f}));
    QTest::newRow("type 41") << entry("AI5", TYPE_NO_ELEMENT, values<char>({1}));
    QTest::newRow("type 42") << entry("AI5", 42, values<int>({1}));
    QTest::newRow("negative type") << entry("AI5", -1, values<int>({1}));
    QTest::newRow("float given as doubles") << entry("AI5", TYPE_FLOAT, values<double>({1.0}));
    QTest::newRow("int given as a plain int") << entry("AI5", TYPE_INT32, QVariant(7));
    QTest::newRow("no value at all") << entry("AI5", TYPE_UINT16, QVariant());
    QTest::newRow("bool given as ints") << entry("DI5", TYPE_BOOL, values<int>({1}));
    QTest::newRow("string given as ints") << entry("SI5", TYPE_STRING, values<int>({1}));
    QTest::newRow("string given as a plain text") << entry("SI5", TYPE_STRING, QVariant(QStringLiteral("abc")));
    QTest::newRow("empty floats") << entry("AI5", TYPE_FLOAT, values<float>({}));
    QTest::newRow("empty bools") << entry("DI5", TYPE_BOOL, values<bool>({}));
    QTest::newRow("empty strings") << entry("SI5", TYPE_STRING, values<QString>({}));
}

// A refused entry reaches no block, is reported with its value, and its
// neighbours are planned as if it were not there.
void TestWritePlanning::refused()
{
    QFETCH(SWriteInfo, refused);

    CInductiveDrive engine;
    const bool points = refused.dataType == TYPE_BOOL;
    const SWriteInfo before =
        points ? entry("DI4", TYPE_BOOL, values<bool>({true})) : entry("AI4", TYPE_FLOAT, values<float>({1.0f}));
    const SWriteInfo after =
        points ? entry("DI6", TYPE_BOOL, values<bool>({true})) : entry("AI6", TYPE_FLOAT, values<float>({1.0f}));
    const QList<QList<SWriteInfo>> keys = engine.InductiveDrive_Write("udp", {before, refused, after});

    QCOMPARE(keys, (QList<QList<SWriteInfo>>{{before}, {after}}));
    const QList<SWriteInfo> cannot = engine.GetCannotInductiveDrive_Write("udp");
    QCOMPARE(cannot.size(), 1);
    QCOMPARE(cannot.first(), refused);
    QVERIFY(sameValue(cannot.first().value, refused.value));
}

void TestWritePlanning::sameEntryTwiceKeepsEarlierKeyWithLaterData()
{
    CInductiveDrive engine;
    const SWriteInfo first = entry("AI1", TYPE_FLOAT, values<float>({1.0f}));
    const SWriteInfo second = entry("AI1", TYPE_FLOAT, values<float>({2.0f}));
    const QList<QList<SWriteInfo>> keys =
        engine.InductiveDrive_Write("udp", {first, entry("AI2", TYPE_FLOAT, values<float>({3.0f})), second});

    QCOMPARE(keys.size(), 1);
    QCOMPARE(tagsOf(keys.first()), (QStringList{"AI1", "AI2"}));
    QVERIFY(sameValue(keys.first().first().value, first.value));
    const SWriteGroup group = engine.GetInductiveDrive_Write("udp", keys.first());
    QCOMPARE(group.length, 8);
    QCOMPARE(bytesOf(group.data).toHex(), QByteArray("0000004000004040"));
}

void TestWritePlanning::refusalsKeepTheirOrderAndLastOnlyUntilTheNextPlanning()
{
    CInductiveDrive engine;
    const QList<SWriteInfo> refused{entry("XY1", TYPE_FLOAT, values<float>({1.0f})),
                                    entry("AI1", TYPE_NONE, values<int>({2})),
                                    entry("AB1", TYPE_FLOAT, values<float>({3.0f}))};
    engine.InductiveDrive_Write(
        "udp", {refused.at(0), entry("AI2", TYPE_FLOAT, values<float>({0.0f})), refused.at(1), refused.at(2)});
    QCOMPARE(engine.GetCannotInductiveDrive_Write("udp"), refused);
    QCOMPARE(engine.GetCannotInductiveDrive_Write("serial"), QList<SWriteInfo>());

    // Planning again under the same text without refusals empties the list.
    engine.InductiveDrive_Write("udp", {refused.at(0)});
    QCOMPARE(engine.GetCannotInductiveDrive_Write("udp").size(), 1);
    engine.InductiveDrive_Write("udp", {});
    QCOMPARE(engine.GetCannotInductiveDrive_Write("udp"), QList<SWriteInfo>());

    // Planning of another connection forgets every list, also this one.
    engine.InductiveDrive_Write("udp", {refused.at(0)});
    engine.InductiveDrive_Write("serial", {entry("AI2", TYPE_FLOAT, values<float>({0.0f}))});
    QCOMPARE(engine.GetCannotInductiveDrive_Write("udp"), QList<SWriteInfo>());
    QVERIFY(engine.m_cannotWrite.isEmpty());
}

void TestWritePlanning::plansArePerConnectionAndReplacedWhole()
{
    CInductiveDrive engine;
    const SWriteInfo ai1 = entry("AI1", TYPE_FLOAT, values<float>({1.0f}));
    const SWriteInfo ai7 = entry("AI7", TYPE_FLOAT, values<float>({7.0f}));
    engine.InductiveDrive_Write("udp", {ai1, ai7});
    engine.InductiveDrive_Write("serial", {ai7});

    QCOMPARE(engine.GetInductiveDrive_Write("udp").keys(), (QList<QList<SWriteInfo>>{{ai1}, {ai7}}));
    QCOMPARE(engine.GetInductiveDrive_Write("serial").keys(), (QList<QList<SWriteInfo>>{{ai7}}));

    engine.InductiveDrive_Write("udp", {ai7});
    QCOMPARE(engine.GetInductiveDrive_Write("udp").keys(), (QList<QList<SWriteInfo>>{{ai7}}));
    QCOMPARE(engine.GetInductiveDrive_Write("udp", {ai1}).kind, 0);

    QCOMPARE(engine.InductiveDrive_Write("udp", {}), QList<QList<SWriteInfo>>());
    QVERIFY(engine.m_writePlans.contains("udp"));
    QVERIFY(engine.GetInductiveDrive_Write("udp").isEmpty());
    QCOMPARE(engine.GetInductiveDrive_Write("serial").size(), 1);
}

void TestWritePlanning::emptyTagsLeaveNoTrace()
{
    CInductiveDrive engine;
    const QList<QList<SWriteInfo>> keys = engine.InductiveDrive_Write(
        "udp", {entry("", TYPE_FLOAT, values<float>({1.0f})), entry("", TYPE_NONE, QVariant())});
    QVERIFY(keys.isEmpty());
    QVERIFY(engine.m_cannotWrite.isEmpty());
}

void TestWritePlanning::queriesBeforeAnyPlanning()
{
    CInductiveDrive engine;
    QVERIFY(engine.GetInductiveDrive_Write("udp").isEmpty());
    QVERIFY(engine.GetCannotInductiveDrive_Write("udp").isEmpty());
    const SWriteGroup blank = engine.GetInductiveDrive_Write("udp", {entry("AI1", TYPE_FLOAT, QVariant())});
    QVERIFY(blank.areaText.isEmpty());
    QVERIFY(!blank.start.isValid());
    QVERIFY(!blank.data.isValid());
    QCOMPARE(blank.length, 0);
    QCOMPARE(blank.kind, 0);
}

void TestWritePlanning::planningCallsNoCallback()
{
    CInductiveDrive engine;
    int calls = 0;
    engine.m_writeCallback = [&](const QString &, const QString &, DataType, QVariant, int) {
        ++calls;
        return CLabelVariable();
    };
    engine.m_readCallback = [&](const QString &, const QString &, DataType, int) {
        ++calls;
        return CLabelVariable();
    };
    engine.InductiveDrive_Write("udp", floatsFromAI1(3));
    QCOMPARE(calls, 0);
}

// Thousands of tags in random order plan into the same blocks as in address
// order: the sort, not the caller's order, decides.
void TestWritePlanning::largeShuffledListPlansLikeSortedOne()
{
    QList<SWriteInfo> infos;
    for (int i = 1; i <= 30000; ++i)
        infos << entry(QStringLiteral("NDO%1").arg(i), TYPE_BOOL, values<bool>({i % 7 == 0}));
    for (int i = 1; i <= 8000; ++i)
        infos << entry(QStringLiteral("NAI%1").arg(i), TYPE_INT32, values<int>({i}));
    const QList<SWriteInfo> sorted = infos;
    std::shuffle(infos.begin(), infos.end(), std::mt19937(7));

    CInductiveDrive engine;
    const QList<QList<SWriteInfo>> keys = engine.InductiveDrive_Write("udp", infos);
    CInductiveDrive reference;
    QCOMPARE(keys, reference.InductiveDrive_Write("udp", sorted));
    QCOMPARE(keys.size(), 24 + 200); // 23 x 1280 + 560 points; 200 x 40 ints

    const CInductiveDrive::WritePlan plan = engine.GetInductiveDrive_Write("udp");
    const CInductiveDrive::WritePlan expected = reference.GetInductiveDrive_Write("udp");
    for (const QList<SWriteInfo> &key : keys) {
        QCOMPARE(plan.value(key).length, expected.value(key).length);
        QCOMPARE(dataHex(plan.value(key)), dataHex(expected.value(key)));
    }
    const SWriteGroup firstInts = plan.value(keys.first());
    QCOMPARE(firstInts.areaText, QStringLiteral("NAI"));
    QCOMPARE(firstInts.length, 160);
    QCOMPARE(bytesOf(firstInts.data).left(8).toHex(), QByteArray("0100000002000000"));
}

QTEST_GUILESS_MAIN(TestWritePlanning)
#include "tst_write_planning.moc"
