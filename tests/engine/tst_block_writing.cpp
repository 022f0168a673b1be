// Block writing: one write per planned block with exactly the planned bytes,
// one record per tag, and a plan that keeps what failed until it succeeds.

#include "engine/CInductiveDrive.h"
#include "host/ValueLists.h"

#include "EngineTestSupport.h"

#include <QtTest>

using Induction::SWriteInfo;
using SorvikValues::toVariant;
using EngineTest::entry;
using EngineTest::values;
using EngineTest::bytesOf;

namespace {

struct WriteCall {
    QString connectPar;
    QString tag;
    int type;
    QVariant value;
    int count;
};

// Stands in for the one-tag write path: records every call and answers as
// that path does, with status 0 and the time, or with the status it is told
// to give; a count below 1 is refused with 4 before anything would be sent.
struct WritePath {
    QList<WriteCall> calls;
    int status = 0;

    void install(CInductiveDrive &engine)
    {
        engine.m_writeCallback = [this](const QString &connectPar, const QString &tag, DataType type, QVariant value,
                                        int count) {
            calls.append({connectPar, tag, type, value, count});
            CLabelVariable record;
            record.tag = tag;
            record.dataType = type;
            record.length = count;
            record.value = value;
            record.statusAux = 0;
            record.auxWord = 77;
            record.status = count < 1 ? 4 : status;
            if (record.status == 0)
                record.time = QDateTime::currentDateTime();
            return record;
        };
    }
};

const QList<SWriteInfo> threeFloats{entry("AI1", TYPE_FLOAT, values<float>({1.0f})),
                                    entry("AI2", TYPE_FLOAT, values<float>({2.0f})),
                                    entry("AI3", TYPE_FLOAT, values<float>({-1.0f}))};
const QByteArray threeFloatsHex("0000803f00000040000080bf");

} // namespace

class TestBlockWriting : public QObject
{
    Q_OBJECT

private slots:
    void byteBlockGoesOutAsOneInt8Write();
    void bitBlockGoesOutAsPoints();
    void stringBlocksUnderCanonicalText_data();
    void stringBlocksUnderCanonicalText();
    void failedBlockStaysAndRetriesTheSameBytes();
    void groupFindsItsBlockByTagsOnly();
    void nothingToWrite();
    void allBlocksWrittenLeavesAnEmptyPlan();
};

void TestBlockWriting::byteBlockGoesOutAsOneInt8Write()
{
    CInductiveDrive engine;
    WritePath path;
    path.install(engine);
    const QList<SWriteInfo> group = engine.InductiveDrive_Write("udp", threeFloats).first();

    const QMap<SWriteInfo, CLabelVariable> results = engine.BlockWriting("udp", group);

    QCOMPARE(path.calls.size(), 1);
    const WriteCall &call = path.calls.first();
    QCOMPARE(call.connectPar, QStringLiteral("udp"));
    QCOMPARE(call.tag, QStringLiteral("AI1"));
    QCOMPARE(call.type, int(TYPE_INT8));
    QCOMPARE(call.value.userType(), qMetaTypeId<QList<char>>());
    QCOMPARE(bytesOf(call.value).toHex(), threeFloatsHex);
    QCOMPARE(call.count, 12);

    QCOMPARE(results.keys(), threeFloats);
    for (CLabelVariable record : results) {
        QCOMPARE(record.status, 0);
        QVERIFY(record.time.isValid());
        QCOMPARE(record.tag, QStringLiteral("AI1"));
        QCOMPARE(record.dataType, int(TYPE_INT8));
        QCOMPARE(record.length, 12);
        QCOMPARE(bytesOf(record.value).toHex(), threeFloatsHex);
        QCOMPARE(record.statusAux, 1); // assigned onto a fresh record
        QCOMPARE(record.auxWord, 0);
    }

    // Written: the block left the plan, and the same group sends nothing again.
    QVERIFY(engine.GetInductiveDrive_Write("udp").isEmpty());
    QVERIFY(engine.BlockWriting("udp", group).isEmpty());
    QCOMPARE(path.calls.size(), 1);
}

void TestBlockWriting::bitBlockGoesOutAsPoints()
{
    CInductiveDrive engine;
    WritePath path;
    path.install(engine);
    QList<SWriteInfo> infos;
    for (int i = 1; i <= 8; ++i)
        infos << entry(QStringLiteral("DI%1").arg(i), TYPE_BOOL, values<bool>({i % 2 == 1}));
    const QList<SWriteInfo> group = engine.InductiveDrive_Write("udp", infos).first();

    const QMap<SWriteInfo, CLabelVariable> results = engine.BlockWriting("udp", group);

    QCOMPARE(path.calls.size(), 1);
    QCOMPARE(path.calls.first().tag, QStringLiteral("DI1"));
    QCOMPARE(path.calls.first().type, int(TYPE_BOOL));
    QCOMPARE(path.calls.first().count, 8);
    QCOMPARE(SorvikValues::listFrom<bool>(path.calls.first().value),
             (QList<bool>{true, false, true, false, true, false, true, false}));
    QCOMPARE(results.size(), 8);
    QCOMPARE(results.first().dataType, int(TYPE_BOOL));
}

void TestBlockWriting::stringBlocksUnderCanonicalText_data()
{
    QTest::addColumn<SWriteInfo>("info");
    QTest::addColumn<QString>("tag");
    QTest::addColumn<int>("count");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("status");

    QTest::newRow("SI") << entry("SI0003", TYPE_STRING, values<QString>({"abc"})) << "SI3" << 256
                        << (QByteArray("abc") + QByteArray(253, '\0')) << 0;
    // Size unknown outside SI and SO: nothing to send, the write path refuses the length.
    QTest::newRow("unknown size") << entry("AI5", TYPE_STRING, values<QString>({"abc"})) << "AI5" << -1 << QByteArray()
                                  << 4;
}

void TestBlockWriting::stringBlocksUnderCanonicalText()
{
    QFETCH(SWriteInfo, info);
    QFETCH(QString, tag);
    QFETCH(int, count);
    QFETCH(QByteArray, bytes);
    QFETCH(int, status);

    CInductiveDrive engine;
    WritePath path;
    path.install(engine);
    const QList<SWriteInfo> group = engine.InductiveDrive_Write("udp", {info}).first();
    const QMap<SWriteInfo, CLabelVariable> results = engine.BlockWriting("udp", group);

    QCOMPARE(path.calls.size(), 1);
    QCOMPARE(path.calls.first().tag, tag);
    QCOMPARE(path.calls.first().type, int(TYPE_INT8));
    QCOMPARE(path.calls.first().count, count);
    QCOMPARE(bytesOf(path.calls.first().value), bytes);
    QCOMPARE(results.value(info).status, status);
    QCOMPARE(engine.GetInductiveDrive_Write("udp").contains(group), status != 0);
}

void TestBlockWriting::failedBlockStaysAndRetriesTheSameBytes()
{
    CInductiveDrive engine;
    WritePath path;
    path.install(engine);
    const QList<SWriteInfo> group = engine.InductiveDrive_Write("udp", threeFloats).first();
    const SWriteGroup planned = engine.GetInductiveDrive_Write("udp", group);

    for (const int failure : {8, 9, 3}) {
        path.status = failure;
        const QMap<SWriteInfo, CLabelVariable> results = engine.BlockWriting("udp", group);
        QCOMPARE(results.size(), 3);
        for (const CLabelVariable &record : results) {
            QCOMPARE(record.status, failure);
            QVERIFY(!record.time.isValid());
        }
        const SWriteGroup kept = engine.GetInductiveDrive_Write("udp", group);
        QCOMPARE(kept.start, planned.start);
        QCOMPARE(kept.length, 12);
        QCOMPARE(bytesOf(kept.data).toHex(), threeFloatsHex);
    }

    path.status = 0;
    QCOMPARE(engine.BlockWriting("udp", group).first().status, 0);
    QCOMPARE(path.calls.size(), 4);
    for (const WriteCall &call : path.calls) {
        QCOMPARE(call.tag, QStringLiteral("AI1"));
        QCOMPARE(bytesOf(call.value).toHex(), threeFloatsHex);
    }
    QCOMPARE(engine.GetInductiveDrive_Write("udp", group).kind, 0);
}

// Values take no part in finding a block: the planned bytes go out, and the
// results come back under the entries handed in.
void TestBlockWriting::groupFindsItsBlockByTagsOnly()
{
    CInductiveDrive engine;
    WritePath path;
    path.install(engine);
    engine.InductiveDrive_Write("udp", threeFloats);

    QList<SWriteInfo> reordered{threeFloats.at(1), threeFloats.at(0), threeFloats.at(2)};
    QVERIFY(engine.BlockWriting("udp", reordered).isEmpty());
    QVERIFY(engine.BlockWriting("serial", threeFloats).isEmpty());
    QVERIFY(engine.BlockWriting("udp", threeFloats.mid(0, 2)).isEmpty());
    QVERIFY(path.calls.isEmpty());

    QList<SWriteInfo> otherValues = threeFloats;
    for (SWriteInfo &info : otherValues)
        info.value = values<float>({99.0f});
    const QMap<SWriteInfo, CLabelVariable> results = engine.BlockWriting("udp", otherValues);

    QCOMPARE(path.calls.size(), 1);
    QCOMPARE(bytesOf(path.calls.first().value).toHex(), threeFloatsHex);
    QCOMPARE(SorvikValues::listFrom<float>(results.firstKey().value), QList<float>{99.0f});
}

void TestBlockWriting::nothingToWrite()
{
    CInductiveDrive engine;
    QVERIFY(engine.BlockWriting("udp", threeFloats).isEmpty()); // no callback, no plan

    engine.InductiveDrive_Write("udp", threeFloats);
    QVERIFY(engine.BlockWriting("udp", threeFloats).isEmpty()); // no callback
    QCOMPARE(engine.GetInductiveDrive_Write("udp").size(), 1);

    WritePath path;
    path.install(engine);
    QVERIFY(engine.BlockWriting("udp", {}).isEmpty());
    QVERIFY(path.calls.isEmpty());
}

void TestBlockWriting::allBlocksWrittenLeavesAnEmptyPlan()
{
    CInductiveDrive engine;
    WritePath path;
    path.install(engine);
    const QList<QList<SWriteInfo>> groups = engine.InductiveDrive_Write(
        "udp", {entry("AI1", TYPE_FLOAT, values<float>({1.0f})), entry("DO2", TYPE_BOOL, values<bool>({true})),
                entry("SA7", TYPE_INT16, values<short>({-1}))});
    engine.InductiveDrive_Write("serial", threeFloats);
    QCOMPARE(groups.size(), 3);

    QStringList sent;
    for (const QList<SWriteInfo> &group : groups) {
        QCOMPARE(engine.BlockWriting("udp", group).size(), 1);
        sent << path.calls.last().tag;
    }
    QCOMPARE(sent, (QStringList{"AI1", "DO2", "SA7"}));
    QVERIFY(engine.m_writePlans.contains("udp"));
    QVERIFY(engine.GetInductiveDrive_Write("udp").isEmpty());
    QCOMPARE(engine.GetInductiveDrive_Write("udp", groups.first()).kind, 0);
    QCOMPARE(engine.GetInductiveDrive_Write("serial").size(), 1); // another connection's plan is untouched
}

QTEST_GUILESS_MAIN(TestBlockWriting)
#include "tst_block_writing.moc"
