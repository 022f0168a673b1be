// Block writing: one write per planned block with its planned bytes, one record per tag.

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

class TestBlockWriting : public QObject
{
    Q_OBJECT

private slots:
    void byteBlockGoesOutAsOneInt8Write()
    {
        CInductiveDrive engine;
        WritePath path;
        path.install(engine);
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
        WritePath path;
        path.install(engine);
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
        WritePath path;
        path.install(engine);
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
        WritePath path;
        path.install(engine);
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

QTEST_GUILESS_MAIN(TestBlockWriting)
#include "tst_block_writing.moc"
