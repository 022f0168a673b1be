// Tag lists through the whole drive: planned, read block by block and written
// block by block against the simulator over loopback, one frame per block.

#include "drive/LibSorvik.h"

#include "DriveTestSupport.h"

#include <QtTest>

using namespace Induction;
using DriveTest::listOf;
using TestSupport::hex;

namespace {

const QString kConnect = QStringLiteral("1");

struct Expected {
    SReadInfo info;
    QString preset;
    QVariant value;
};

} // namespace

class TestEngineEndToEnd : public QObject
{
    Q_OBJECT

    SorvikSimulator m_sim;
    LibSorvik m_drive;

private slots:
    void initTestCase() { QVERIFY(DriveTest::connectTo(m_sim, m_drive) != 0); }
    void init()
    {
        DriveTest::reset(m_sim);
        m_drive.DelInductiveDrive_Read(kConnect);
        m_drive.DelCannotInductiveDrive_Read(kConnect);
    }
    // A process image across bit, word, pair and block areas and many types, read in
    // as many frames as it has blocks.
    void pollCycleCostsOneFramePerBlock()
    {
        const QList<Expected> expected = {
            {{"AI1", TYPE_INT32}, "AI1=int32:-42", listOf<int>({-42})},
            {{"AI3", TYPE_FLOAT}, "AI3=float:1.5", listOf<float>({1.5f})},
            {{"AI5", TYPE_UINT16}, "AI5=uint16:65000", listOf<ushort>({65000})},
            {{"AI20", TYPE_DOUBLE}, "AI20=double:2.25", listOf<double>({2.25})},
            {{"NAI100", TYPE_INT64}, "NAI100=int64:-5", listOf<qlonglong>({-5})},
            {{"NAI200", TYPE_FLOAT}, "NAI200=float:-3.5", listOf<float>({-3.5f})},
            {{"LW7", TYPE_INT32}, "LW7=int32:123456", listOf<int>({123456})},
            {{"SA1", TYPE_INT16}, "SA1=int16:300", listOf<short>({300})},
            {{"DI5", TYPE_BOOL}, "DI5=bool:1", listOf<bool>({true})},
            {{"DI7", TYPE_BOOL}, "DI7=bool:0", listOf<bool>({false})},
            {{"DI8", TYPE_INT16}, "DI8=bool:1", listOf<bool>({true})}, // any type in a bit block reads as one point
            {{"NDI1000", TYPE_BOOL}, "NDI1000=bool:1", listOf<bool>({true})},
            {{"SI2", TYPE_STRING}, "SI2=string:pump on", listOf<QString>({"pump on"})},
        };
        QList<SReadInfo> tags;
        for (const Expected &e : expected) {
            QVERIFY2(m_sim.presetTag(e.preset), qPrintable(e.preset));
            tags << e.info;
        }
        tags << SReadInfo{"XY1", TYPE_INT32} << SReadInfo{"AI5[2]", TYPE_STRING};

        const QList<QList<SReadInfo>> keys = m_drive.InductiveDrive_Read(kConnect, tags);
        QCOMPARE(m_sim.frameCount(), 0); // planning touches no device
        QCOMPARE(m_drive.GetCannotInductiveDrive_Read(kConnect).size(), 2);
        // DI, AI, SA, NDI, NAI (two blocks: 100..101 and 200), LW, SI.
        QCOMPARE(keys.size(), 8);

        QMap<SReadInfo, CLabelVariable> records;
        for (const QList<SReadInfo> &key : keys) {
            const int framesBefore = m_sim.frameCount();
            const QMap<SReadInfo, CLabelVariable> block = m_drive.BlockReading(kConnect, key);
            QCOMPARE(m_sim.frameCount(), framesBefore + 1);
            for (auto it = block.begin(); it != block.end(); ++it)
                records.insert(it.key(), it.value());
        }
        QCOMPARE(records.size(), expected.size());
        for (const Expected &e : expected) {
            const CLabelVariable record = records.value(e.info);
            QCOMPARE(record.status, 0);
            QCOMPARE(record.tag, e.info.tag);
            QCOMPARE(record.dataType, e.info.dataType);
            QCOMPARE(record.length, 1);
            QVERIFY(!record.time.isNull());
            const int listType =
                e.info.tag.startsWith("DI") || e.info.tag.startsWith("NDI") ? int(TYPE_BOOL) : e.info.dataType;
            COMPARE_VALUE(listType, record.value, e.value);
        }
    }
    void blockWritesReadBack()
    {
        QList<SWriteInfo> infos;
        for (int i = 1; i <= 41; ++i) // 40 floats in one block, the 41st in a second
            infos << SWriteInfo{QStringLiteral("NAO%1").arg(i), TYPE_FLOAT, listOf<float>({i * 0.5f})};
        infos << SWriteInfo{"LW1", TYPE_INT32, listOf<int>({-9})} << SWriteInfo{"LW2", TYPE_UINT32, listOf<uint>({9})}
              << SWriteInfo{"SA3", TYPE_INT32, listOf<int>({70000})}
              << SWriteInfo{"SA5", TYPE_INT16, listOf<short>({-2})}
              << SWriteInfo{"AO2", TYPE_DOUBLE, listOf<double>({-1.25})}
              << SWriteInfo{"DO1", TYPE_BOOL, listOf<bool>({true})}
              << SWriteInfo{"DO2", TYPE_BOOL, listOf<bool>({false})}
              << SWriteInfo{"DO3", TYPE_BOOL, listOf<bool>({true})}
              << SWriteInfo{"SI3", TYPE_STRING, listOf<QString>({"valve"})}
              << SWriteInfo{"AI9", TYPE_INT32, QVariant(5)}; // no list: refused, never sent

        const QList<QList<SWriteInfo>> keys = m_drive.InductiveDrive_Write(kConnect, infos);
        QCOMPARE(m_drive.GetCannotInductiveDrive_Write(kConnect).size(), 1);
        QCOMPARE(m_drive.GetCannotInductiveDrive_Write(kConnect).first().tag, QStringLiteral("AI9"));
        // NAO x2, LW, SA, AO, DO, SI.
        QCOMPARE(keys.size(), 7);

        for (const QList<SWriteInfo> &key : keys) {
            const int before = m_sim.frameCount();
            const QMap<SWriteInfo, CLabelVariable> written = m_drive.BlockWriting(kConnect, key);
            QCOMPARE(m_sim.frameCount(), before + 1);
            QCOMPARE(written.size(), key.size());
            QCOMPARE(written.first().status, 0);
        }
        QVERIFY(m_drive.GetInductiveDrive_Write(kConnect).isEmpty());

        // Every tag reads back what was written. A planned string lands as its bare
        // text, with no length byte in front, so it is checked in memory.
        QCOMPARE(m_sim.memory(28, 2 * 256, 6), QByteArray("valve\0", 6));
        for (const SWriteInfo &info : infos) {
            if (info.tag == "AI9" || info.dataType == TYPE_STRING)
                continue;
            const CLabelVariable back = m_drive.ReadVariable(info.tag, DataType(info.dataType), 1);
            QCOMPARE(back.status, 0);
            COMPARE_VALUE(info.dataType, back.value, info.value);
        }
    }
    void pointReadingAndWritingOfStrings()
    {
        const CLabelVariable written =
            m_drive.PointWriting(kConnect, SWriteInfo{"SI005", TYPE_STRING, listOf<QString>({"abc"})});
        QCOMPARE(written.status, 0);
        QCOMPARE(written.tag, QStringLiteral("SI5"));
        QCOMPARE(m_sim.frames().last().left(11), hex("020101001c000004010000"));

        const QMap<SReadInfo, CLabelVariable> read =
            m_drive.PointReading(kConnect, {{"SI5", TYPE_STRING}, {"AI5", TYPE_STRING}, {"Custom5", TYPE_INT16}}, 0);
        QCOMPARE(read.value({"SI5", TYPE_STRING}).status, 0);
        const QList<char> bytes = SorvikValues::listFrom<char>(read.value({"SI5", TYPE_STRING}).value);
        // A block's first byte is stripped as its head: the string comes back without its first character.
        QCOMPARE(bytes.size(), 255);
        QCOMPARE(QByteArray(bytes.mid(0, 3).toVector().constData(), 3), QByteArray("bc\0", 3));
        QCOMPARE(read.value({"AI5", TYPE_STRING}).status, 4);
        QCOMPARE(read.value({"Custom5", TYPE_INT16}).status, 0); // the one-tag grammar is wider
    }
};

QTEST_GUILESS_MAIN(TestEngineEndToEnd)
#include "tst_engine_end_to_end.moc"
