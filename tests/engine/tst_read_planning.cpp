// Read planning, automatic and manual, and the queries and removals of the read
// plan; each block described as EngineTest::describe() writes it.

#include "engine/CInductiveDrive.h"

#include "EngineTestSupport.h"

#include <QtTest>

using EngineTest::describe;
using Induction::SReadInfo;
using Induction::SReadInfo_manual;

namespace {

const QString kConnect = QStringLiteral("192.168.0.7:5000");

// Plans the list "tag/type tag/type ..." and describes the blocks in result order.
QStringList plan(CInductiveDrive &engine, const QString &tags, const QString &connectPar = kConnect)
{
    QStringList blocks;
    for (const QList<SReadInfo> &key : engine.InductiveDrive_Read(connectPar, EngineTest::readInfos(tags))) {
        const SReadGroup group = engine.GetInductiveDrive_Read(connectPar, key);
        blocks << (group.tags.keys() == key ? describe(group) : QStringLiteral("a key that does not name its block"));
    }
    return blocks;
}

} // namespace

class TestReadPlanning : public QObject
{
    Q_OBJECT

private slots:
    void plans_data()
    {
        QTest::addColumn<QString>("tags");
        QTest::addColumn<int>("pointLimit");
        QTest::addColumn<int>("byteLimit");
        QTest::addColumn<QStringList>("blocks");
        auto row = [](const char *name, const QString &tags, const QStringList &blocks, int points = 1280,
                      int bytes = 160) { QTest::newRow(name) << tags << points << bytes << blocks; };
        row("worked word plan", "AI1/6 AI3/8 AI3/4 AI60/11",
            {"AI 1 12 1: AI1/6@0:4 AI3/4@2:4 AI3/8@2:4", "AI 60 8 1: AI60/11@0:4"});
        row("worked bit plan", "DI1285/1 DI7/4 DI5/6 DI1284/1",
            {"DI 5 1280 2: DI1284/1@1279:1 DI5/6@0:1 DI7/4@2:1", "DI 1285 1 2: DI1285/1@0:1"});
        row("bytes fill the limit", "AI1/6 AI40/6", {"AI 1 160 1: AI1/6@0:4 AI40/6@39:4"});
        row("four bytes beyond", "AI1/6 AI41/6", {"AI 1 4 1: AI1/6@0:4", "AI 41 4 1: AI41/6@0:4"});
        row("largest reach, not the last", "AI2/4 AI1/11", {"AI 1 8 1: AI1/11@0:4 AI2/4@1:4"});
        row("wider tag first at one address", "AI1/4 AI1/11", {"AI 1 8 1: AI1/11@0:4", "AI 1 2 1: AI1/4@0:4"}, 1280, 0);
        row("SA width 2", "SA1/4 SA2/8", {"SA 1 6 1: SA1/4@0:2 SA2/8@1:2"});
        row("odd length raised", "SA1/4 SA3/1", {"SA 1 6 1: SA1/4@0:2 SA3/1@32:2"});
        row("odd length may pass the limit", "AI1/6 AI2/2", {"AI 1 6 1: AI1/6@0:4 AI2/2@1:4"}, 1280, 5);
        row("one bool in AI", "AI1/1", {"AI 1 2 1: AI1/1@0:4"});
        row("bool in a word block counts bits", "AI3/6 AI5/1", {"AI 3 10 1: AI3/6@0:4 AI5/1@64:4"});
        row("strings above the limit stay whole", "SI1/12 SI2/12",
            {"SI 1 256 1: SI1/12@0:256", "SI 2 256 1: SI2/12@0:256"});
        row("lone string outside SI", "AI4/12", {"AI 4 -1 1: AI4/12@0:4"});
        row("byte limit 0", "AI1/6 AI2/6", {"AI 1 4 1: AI1/6@0:4", "AI 2 4 1: AI2/6@0:4"}, 0, 0);
        row("point limit 0", "DI1/1 DI2/1", {"DI 1 1 2: DI1/1@0:1", "DI 2 1 2: DI2/1@0:1"}, 0, 0);
        row("key in text order", "AI9/6 AI10/6", {"AI 9 8 1: AI10/6@1:4 AI9/6@0:4"});
        row("start without zeros", "AI005/6", {"AI 5 4 1: AI005/6@0:4"});
        row("duplicates fall together", "AI5/6 AI5/6", {"AI 5 4 1: AI5/6@0:4"});
        row("lower case has no width", "ai2/6 ai1/6", {"ai 1 8 1: ai1/6@0:0 ai2/6@1:0"});
        row("spelling of the last key wins", "AI1/6 ai2/6", {"ai 1 8 1: AI1/6@0:0 ai2/6@1:0"});
        row("SO is planned", "SO1/12", {"SO 1 256 1: SO1/12@0:256"});
        row("result by area, then start", "AI41/6 AI1/6 DI1/1 XY1/1 AI_F2/8",
            {"DI 1 1 2: DI1/1@0:1", "AI 1 4 1: AI1/6@0:4", "AI 41 4 1: AI41/6@0:4", "AI_F 2 4 1: AI_F2/8@0:4"});
    }
    void plans()
    {
        QFETCH(QString, tags);
        QFETCH(int, pointLimit);
        QFETCH(int, byteLimit);
        QFETCH(QStringList, blocks);
        CInductiveDrive engine;
        engine.SetInductionParam(Induction::INDUCTION_READ, Induction::INDUCTION_POINT_LIMIT, pointLimit);
        engine.SetInductionParam(Induction::INDUCTION_READ, Induction::INDUCTION_BYTE_LIMIT, byteLimit);
        QCOMPARE(plan(engine, tags), blocks);
        QCOMPARE(engine.GetInductiveDrive_Read(kConnect).size(), blocks.size());
    }

    // Planning adds to what is there; a changed limit acts from the next planning on.
    void laterPlanningAddsAndOverwrites()
    {
        CInductiveDrive engine;
        QVERIFY(engine.InductiveDrive_Read(kConnect, QList<SReadInfo>()).isEmpty());
        QVERIFY(engine.InductiveDrive_Read(kConnect, QList<SReadInfo_manual>()).isEmpty());
        QVERIFY(engine.m_readPlans.isEmpty() && engine.m_cannotRead.isEmpty());

        QCOMPARE(plan(engine, "AI1/6 AI3/8"), QStringList{"AI 1 12 1: AI1/6@0:4 AI3/8@2:4"});
        plan(engine, "DI1/1");
        plan(engine, "DI1/1", "other");
        engine.SetInductionParam(Induction::INDUCTION_WRITE, Induction::INDUCTION_BYTE_LIMIT, 4);
        QCOMPARE(plan(engine, "AI11/6 AI13/6").size(), 1); // the write limits are not the read limits
        QCOMPARE(engine.GetInductiveDrive_Read("other").size(), 1);

        // The same key again replaces its block, here with a narrower spelling.
        engine.SetInductionParam(Induction::INDUCTION_READ, Induction::INDUCTION_BYTE_LIMIT, 4);
        QCOMPARE(plan(engine, "AI1/6 AI3/8"), (QStringList{"AI 1 4 1: AI1/6@0:4", "AI 3 4 1: AI3/8@0:4"}));
        QCOMPARE(engine.GetInductiveDrive_Read(kConnect, {{"AI1", 6}, {"AI3", 8}}).length, 12);
        QCOMPARE(engine.GetInductiveDrive_Read(kConnect, {{"AI11", 6}, {"AI13", 6}}).length, 12);
        QCOMPARE(engine.GetInductiveDrive_Read(kConnect).size(), 5);
    }

    void refusedTagsAreListedInOrderWithRepetitions()
    {
        CInductiveDrive engine;
        QVERIFY(plan(engine, "XY1/1 DI0/1 AI5[20]/12 XY1/1").isEmpty());
        QVERIFY(!engine.m_readPlans.contains(kConnect));
        QCOMPARE(plan(engine, "AI5.3/6 AI1/6 Di5/1"), QStringList{"AI 1 4 1: AI1/6@0:4"});
        const QList<SReadInfo> refused{{"XY1", 1}, {"DI0", 1}, {"AI5[20]", 12}, {"XY1", 1}, {"AI5.3", 6}, {"Di5", 1}};
        QCOMPARE(engine.GetCannotInductiveDrive_Read(kConnect), refused);
        QVERIFY(engine.GetCannotInductiveDrive_Read("other").isEmpty());
        engine.DelCannotInductiveDrive_Read(kConnect);
        QVERIFY(engine.GetCannotInductiveDrive_Read(kConnect).isEmpty());
        QCOMPARE(engine.GetInductiveDrive_Read(kConnect).size(), 1);
    }

    // Taken as laid out; a start of no pattern gives kind 0, a later item replaces an earlier.
    void manualBlocks()
    {
        CInductiveDrive engine;
        const QList<SReadInfo_manual> blocks{{"AI5", 16, {{"AI5", 6, 0}, {"AI8", 8, 3}}},
                                             {"XY1", 4, {{"XY1", 6, 0}}},
                                             {"di5", 3, {{"DI7", 1, 2}, {"AI1", 6, 9}, {"DI7", 1, 5}}},
                                             {"SA2", 0, {}}};
        const QList<QList<SReadInfo>> keys = engine.InductiveDrive_Read(kConnect, blocks);
        QStringList described;
        for (const QList<SReadInfo> &key : keys)
            described << describe(engine.GetInductiveDrive_Read(kConnect, key));
        QCOMPARE(described, (QStringList{"AI 5 16 1: AI5/6@0:4 AI8/8@3:4", " -1 4 0: XY1/6@0:0",
                                         "di 5 3 2: AI1/6@9:1 DI7/1@5:1", "SA 2 0 1: "}));
        QVERIFY(keys.last().isEmpty());
        QVERIFY(engine.m_cannotRead.isEmpty());
    }

    void manualBlocksShareThePlan()
    {
        CInductiveDrive engine;
        plan(engine, "AI1/6 AI3/8");
        const QList<SReadInfo_manual> blocks{{"AI1", 8, {{"AI1", 6, 0}, {"AI3", 8, 1}}},
                                             {"AI1", 14, {{"AI3", 8, 2}, {"AI1", 6, 0}}}};
        const QList<SReadInfo> key{{"AI1", 6}, {"AI3", 8}};
        QCOMPARE(engine.InductiveDrive_Read(kConnect, blocks), (QList<QList<SReadInfo>>{key, key}));
        QCOMPARE(engine.GetInductiveDrive_Read(kConnect).size(), 1);
        QCOMPARE(describe(engine.GetInductiveDrive_Read(kConnect, key)),
                 QStringLiteral("AI 1 14 1: AI1/6@0:4 AI3/8@2:4"));
    }

    void queriesGiveCopiesAndRemovalsAreLocal()
    {
        CInductiveDrive engine;
        plan(engine, "AI1/6 DI1/1 XY1/1");
        plan(engine, "AI1/6", "other");
        const QList<SReadInfo> ai{{"AI1", 6}}, di{{"DI1", 1}};
        CInductiveDrive::ReadPlan copy = engine.GetInductiveDrive_Read(kConnect);
        copy[ai].length = 99;
        QCOMPARE(engine.GetInductiveDrive_Read(kConnect, ai).length, 4);

        const SReadGroup blank = engine.GetInductiveDrive_Read(kConnect, {{"AI2", 6}});
        QVERIFY(blank.areaText.isEmpty() && !blank.start.isValid() && blank.length == 0 && blank.kind == 0 &&
                blank.tags.isEmpty());
        QVERIFY(!engine.GetInductiveDrive_Read("nobody", ai).start.isValid());
        QVERIFY(engine.GetInductiveDrive_Read("nobody").isEmpty());

        engine.DelInductiveDrive_Read(kConnect, {{"AI2", 6}});
        engine.DelInductiveDrive_Read("nobody", ai);
        QCOMPARE(engine.GetInductiveDrive_Read(kConnect).size(), 2);
        engine.DelInductiveDrive_Read(kConnect, ai);
        engine.DelInductiveDrive_Read(kConnect, ai);
        QCOMPARE(engine.GetInductiveDrive_Read(kConnect).keys(), QList<QList<SReadInfo>>{di});
        engine.DelInductiveDrive_Read(kConnect);
        engine.DelInductiveDrive_Read(kConnect);
        QVERIFY(engine.GetInductiveDrive_Read(kConnect).isEmpty());
        QCOMPARE(engine.GetCannotInductiveDrive_Read(kConnect).size(), 1);
        QCOMPARE(engine.GetInductiveDrive_Read("other").size(), 1);
        // What is left plans on as if the removed blocks had never been.
        QCOMPARE(plan(engine, "DI1/1").size(), 1);
    }
};

QTEST_APPLESS_MAIN(TestReadPlanning)
#include "tst_read_planning.moc"
