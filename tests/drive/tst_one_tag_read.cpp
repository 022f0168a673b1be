// One tag read from text to record, through the link and the simulator.

#include "drive/LibSorvik.h"

#include "DriveTestSupport.h"

#include <QtTest>

using DriveTest::listOf;
using TestSupport::hex;

namespace {

struct Read {
    const char *name, *tag;
    int type, count;
    const char *preset, *request; // request "": not checked
    QVariant value;
};
struct Heads {
    const char *name;
    int type, count, elements, second, at255; // second: element 1; at255: element 255, -1 when there is none
};
struct Refused {
    const char *name, *tag;
    int type, count, status;
    bool timed;
};

} // namespace

Q_DECLARE_METATYPE(Read)
Q_DECLARE_METATYPE(Heads)
Q_DECLARE_METATYPE(Refused)

class TestOneTagRead : public QObject
{
    Q_OBJECT

    SorvikSimulator m_sim;
    LibSorvik m_drive;

private slots:
    void initTestCase() { QVERIFY(DriveTest::connectTo(m_sim, m_drive) != 0); }
    void init() { DriveTest::reset(m_sim); }

    void readsOneTag_data()
    {
        const Read rows[] = {
            {"Int32 AI_F3", "AI_F3", 6, 1, "AI_F3=int32:42", "0101010008000800000400", listOf<int>({42})},
            {"Int32 NAO1000, two", "NAO1000", 6, 2, "NAO1000=int32:1,-1", "0101010012009c0f000800",
             listOf<int>({1, -1})},
            {"bool DI5, three", "DI5", 1, 3, "DI5=bool:1,0,1", "0101010001000400000300",
             listOf<bool>({true, false, true})},
            {"Int8 block of DO4", "DO4", 2, 2, "DO4=uint8:1,0x83", "0101010004000300001000",
             listOf<char>({1, char(0x83)})},
            {"string SI2", "SI2", 12, 1, "SI2=string:abc", "010101001c000001000001", listOf<QString>({"abc"})},
            {"UInt16 SA3, pair factor", "SA3", 5, 1, "SA3=uint16:65535", "010101000e000400000200",
             listOf<ushort>({65535})},
            {"double AO_F2, factor 1", "AO_F2", 11, 1, "AO_F2=double:0.5", "010101000b000100000800",
             listOf<double>({0.5})},
            {"bool on a word area, index unchanged", "AI3", 1, 1, "AI1=uint8:0,0,1", "0101010007000200000100",
             listOf<bool>({true})},
            {"Int8 on a word area", "AI1", 2, 5, "AI1=int8:1,2,3,-4", "", listOf<char>({1, 2, 3, -4})},
            {"UInt8 on a pair area", "Custom1", 3, 3, "Custom1=uint8:200,7", "", listOf<uchar>({200, 7})},
            {"UInt32", "NAI1", 7, 1, "NAI1=uint32:4000000000", "", listOf<uint>({4000000000u})},
            {"UInt64", "HAI3", 10, 2, "HAI3=uint64be:18000000000000000000,1", "",
             listOf<qulonglong>({18000000000000000000ull, 1})},
            {"double on AI_S", "AI_S1", 11, 1, "AI_S1=double:-0.125", "", listOf<double>({-0.125})},
            {"strings", "SI1", 12, 3, "SI1=string:abc,,hello", "", listOf<QString>({"abc", "", "hello"})}};
        TestSupport::addRows(rows);
    }
    void readsOneTag()
    {
        QFETCH(Read, row);
        QString error;
        QVERIFY2(m_sim.presetTag(row.preset, &error), qPrintable(error));
        const QDateTime before = QDateTime::currentDateTime();
        const CLabelVariable record = m_drive.ReadVariable(row.tag, DataType(row.type), row.count);
        QCOMPARE(record.status, 0);
        QCOMPARE(record.tag, QString(row.tag));
        QCOMPARE(record.dataType, row.type);
        QCOMPARE(record.length, row.count);
        QVERIFY(record.time >= before && record.time <= QDateTime::currentDateTime());
        QCOMPARE(m_sim.frameCount(), 1);
        if (*row.request)
            QCOMPARE(m_sim.frames().first().toHex(), QByteArray(row.request));
        COMPARE_VALUE(row.type, record.value, row.value);
    }

    void blockHeadsOfArea28_data()
    {
        const Heads rows[] = {{"Int8, one block", 2, 300, 255, 2, -1},
                              {"Int8, two blocks", 2, 512, 510, 2, 257 % 251},
                              {"UInt8 keeps heads", 3, 256, 256, 1, 255 % 251}};
        TestSupport::addRows(rows);
    }
    // Byte i of the area holds i mod 251, so every position is told apart.
    void blockHeadsOfArea28()
    {
        QFETCH(Heads, row);
        QByteArray memory;
        for (int i = 0; i < 512; ++i)
            memory.append(char(i % 251));
        m_sim.preset(28, 0, memory);
        const CLabelVariable record = m_drive.ReadVariable(QStringLiteral("SI1"), DataType(row.type), row.count);
        QCOMPARE(record.status, 0);
        QCOMPARE(record.length, row.count);
        QList<int> bytes;
        QCOMPARE(record.value.userType(),
                 row.type == TYPE_UINT8 ? qMetaTypeId<QList<uchar>>() : qMetaTypeId<QList<char>>());
        for (uchar byte : SorvikValues::listFrom<uchar>(record.value))
            bytes << byte;
        for (char byte : SorvikValues::listFrom<char>(record.value))
            bytes << uchar(byte);
        QCOMPARE(bytes.size(), row.elements);
        QCOMPARE(bytes.at(1), row.second);
        QCOMPARE(bytes.value(255, -1), row.at255);
    }

    void refusedBeforeTheLink_data()
    {
        const Refused rows[] = {{"no area wins over count", "XY1", 0, 0, 3, true},
                                {"count wins over type", "AI1", 0, 0, 4, true},
                                {"negative count", "AI1", 6, -1, 4, true},
                                {"type 0", "AI1", 0, 1, 2, true},
                                {"type 13", "AI1", 13, 1, 4, false},
                                {"too long", "AI1", 6, 367, 4, false},
                                {"huge count", "AI1", 11, 2147483647, 4, false},
                                {"less than a block", "SI1", 2, 255, 4, false}};
        TestSupport::addRows(rows);
    }
    void refusedBeforeTheLink()
    {
        QFETCH(Refused, row);
        const CLabelVariable record = m_drive.ReadVariable(row.tag, DataType(row.type), row.count);
        QCOMPARE(record.status, row.status);
        QCOMPARE(record.time.isNull(), !row.timed);
        QVERIFY(!record.value.isValid());
        QVERIFY(record.tag == row.tag && record.dataType == row.type && record.length == row.count);
        QCOMPARE(m_sim.frameCount(), 0);
    }

    // The two-argument form reads one element; Read_data leaves the naming fields to its caller.
    void shorterForms()
    {
        QVERIFY(m_sim.presetTag(QStringLiteral("DO3=bool:1,1")));
        CLabelVariable record = m_drive.ReadVariable(QStringLiteral("DO3"), TYPE_BOOL);
        QCOMPARE(record.length, 1);
        COMPARE_VALUE(TYPE_BOOL, record.value, listOf<bool>({true}));

        QVERIFY(m_sim.presetTag(QStringLiteral("LW1=int32:9")));
        record = m_drive.Read_data(24, 0, TYPE_INT32, 1, QStringLiteral("LW1"));
        QCOMPARE(record.status, 0);
        QVERIFY(record.tag.isEmpty());
        QCOMPARE(record.dataType, CLabelVariable().dataType);
        QCOMPARE(record.length, CLabelVariable().length);
        COMPARE_VALUE(TYPE_INT32, record.value, listOf<int>({9}));
        QCOMPARE(m_drive.Read_data(24, 0, TYPE_INT32, 0, QString()).status, 4);
    }
};

QTEST_GUILESS_MAIN(TestOneTagRead)
#include "tst_one_tag_read.moc"
