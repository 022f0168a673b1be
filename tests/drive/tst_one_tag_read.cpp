// One tag read from text to record, through the link and the simulator.

#include "drive/LibSorvik.h"
#include "sim/SorvikSimulator.h"

#include "DriveTestSupport.h"
#include "TestSupport.h"

#include <QtTest>

using DriveTest::listOf;
using TestSupport::hex;

class TestOneTagRead : public QObject
{
    Q_OBJECT

    SorvikSimulator m_sim;
    quint16 m_port = 0;
    LibSorvik m_drive;

private slots:
    void initTestCase();
    void init();
    void requestOnTheWire_data();
    void requestOnTheWire();
    void everyType_data();
    void everyType();
    void blockHeadsOfArea28_data();
    void blockHeadsOfArea28();
    void refusedBeforeTheLink_data();
    void refusedBeforeTheLink();
    void twoArgumentFormReadsOne();
    void readDataLeavesNamingFields();
    void beforeAnyConnection();
    void lostReply();
    void wrongIdentity();
    void shortReply_data();
    void shortReply();
    void paddedAndOverlongReplies();
};

void TestOneTagRead::initTestCase()
{
    m_port = m_sim.startUdp(TestSupport::testHost());
    QVERIFY(m_port != 0);
    QCOMPARE(m_drive.ConnectDrive(DriveTest::udpText(m_port)), 0);
}

void TestOneTagRead::init()
{
    m_sim.setFaults(SimFaults());
    m_sim.clearMemory();
    m_sim.clearFrames();
}

void TestOneTagRead::requestOnTheWire_data()
{
    QTest::addColumn<QString>("tag");
    QTest::addColumn<int>("type");
    QTest::addColumn<int>("count");
    QTest::addColumn<QString>("preset");
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<QVariant>("value");

    QTest::newRow("Int32 AI_F3") << "AI_F3" << 6 << 1 << "AI_F3=int32:42" << hex("0101010008000800000400")
                                 << listOf<int>({42});
    QTest::newRow("Int32 NAO1000, two") << "NAO1000" << 6 << 2 << "NAO1000=int32:1,-1" << hex("0101010012009c0f000800")
                                        << listOf<int>({1, -1});
    QTest::newRow("bool DI5, three") << "DI5" << 1 << 3 << "DI5=bool:1,0,1" << hex("0101010001000400000300")
                                     << listOf<bool>({true, false, true});
    QTest::newRow("Int8 block of DO4") << "DO4" << 2 << 2 << "DO4=uint8:1,0x83" << hex("0101010004000300001000")
                                       << listOf<char>({1, char(0x83)});
    QTest::newRow("string SI2") << "SI2" << 12 << 1 << "SI2=string:abc" << hex("010101001c000001000001")
                                << listOf<QString>({"abc"});
    QTest::newRow("UInt16 SA3, pair factor")
        << "SA3" << 5 << 1 << "SA3=uint16:65535" << hex("010101000e000400000200") << listOf<ushort>({65535});
    QTest::newRow("double AO_F2, factor 1")
        << "AO_F2" << 11 << 1 << "AO_F2=double:0.5" << hex("010101000b000100000800") << listOf<double>({0.5});
    QTest::newRow("bool on a word area, index unchanged")
        << "AI3" << 1 << 1 << "AI1=uint8:0,0,1" << hex("0101010007000200000100") << listOf<bool>({true});
}

void TestOneTagRead::requestOnTheWire()
{
    QFETCH(QString, tag);
    QFETCH(int, type);
    QFETCH(int, count);
    QFETCH(QString, preset);
    QFETCH(QByteArray, request);
    QFETCH(QVariant, value);

    QString error;
    QVERIFY2(m_sim.presetTag(preset, &error), qPrintable(error));
    const CLabelVariable record = m_drive.ReadVariable(tag, DataType(type), count);
    QCOMPARE(record.status, 0);
    QCOMPARE(m_sim.frames(), QList<QByteArray>{request});
    COMPARE_VALUE(type, record.value, value);
}

void TestOneTagRead::everyType_data()
{
    QTest::addColumn<QString>("tag");
    QTest::addColumn<int>("type");
    QTest::addColumn<int>("count");
    QTest::addColumn<QString>("preset");
    QTest::addColumn<QVariant>("value");

    QTest::newRow("bool") << "HDS7" << 1 << 1 << "HDS7=bool:1" << listOf<bool>({true});
    QTest::newRow("Int8 on a bit area") << "NDO9" << 2 << 3 << "NDO9=int8:-1,0,127" << listOf<char>({char(-1), 0, 127});
    QTest::newRow("Int8 on a word area") << "AI1" << 2 << 5 << "AI1=int8:1,2,3,-4" << listOf<char>({1, 2, 3, -4});
    QTest::newRow("UInt8 on a pair area") << "Custom1" << 3 << 3 << "Custom1=uint8:200,7" << listOf<uchar>({200, 7});
    QTest::newRow("Int16") << "AI2" << 4 << 2 << "AI2=int16:-2,300" << listOf<short>({-2, 300});
    QTest::newRow("UInt16") << "SA1" << 5 << 3 << "SA1=uint16:1,2,65535" << listOf<ushort>({1, 2, 65535});
    QTest::newRow("Int32") << "LW5" << 6 << 2 << "LW5=int32:-42,7" << listOf<int>({-42, 7});
    QTest::newRow("UInt32") << "NAI1" << 7 << 1 << "NAI1=uint32:4000000000" << listOf<uint>({4000000000u});
    QTest::newRow("float") << "NAO2" << 8 << 2 << "NAO2=float:1.5,-2.25" << listOf<float>({1.5f, -2.25f});
    QTest::newRow("Int64") << "LA1" << 9 << 1 << "LA1=int64be:-5" << listOf<qlonglong>({-5});
    QTest::newRow("UInt64") << "HAI3" << 10 << 2 << "HAI3=uint64be:18000000000000000000,1"
                            << listOf<qulonglong>({18000000000000000000ull, 1});
    QTest::newRow("double") << "AI_S1" << 11 << 1 << "AI_S1=double:-0.125" << listOf<double>({-0.125});
    QTest::newRow("strings") << "SI1" << 12 << 3 << "SI1=string:abc,,hello" << listOf<QString>({"abc", "", "hello"});
}

void TestOneTagRead::everyType()
{
    QFETCH(QString, tag);
    QFETCH(int, type);
    QFETCH(int, count);
    QFETCH(QString, preset);
    QFETCH(QVariant, value);

    QString error;
    QVERIFY2(m_sim.presetTag(preset, &error), qPrintable(error));
    const QDateTime before = QDateTime::currentDateTime();
    const CLabelVariable record = m_drive.ReadVariable(tag, DataType(type), count);
    QCOMPARE(record.status, 0);
    QCOMPARE(record.tag, tag);
    QCOMPARE(record.dataType, type);
    QCOMPARE(record.length, count);
    QVERIFY(record.time >= before && record.time <= QDateTime::currentDateTime());
    COMPARE_VALUE(type, record.value, value);
}

void TestOneTagRead::blockHeadsOfArea28_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("elements");
    QTest::addColumn<int>("second"); // the value of element 1

    QTest::newRow("Int8, one block") << 2 << 300 << 255 << 2;
    QTest::newRow("Int8, two blocks") << 2 << 512 << 510 << 2;
    QTest::newRow("UInt8 keeps heads") << 3 << 256 << 256 << 1;
}

// Byte i of the area holds i mod 251, so every position is told apart.
void TestOneTagRead::blockHeadsOfArea28()
{
    QFETCH(int, type);
    QFETCH(int, count);
    QFETCH(int, elements);
    QFETCH(int, second);

    QByteArray memory;
    for (int i = 0; i < 512; ++i)
        memory.append(char(i % 251));
    m_sim.preset(28, 0, memory);
    const CLabelVariable record = m_drive.ReadVariable(QStringLiteral("SI1"), DataType(type), count);
    QCOMPARE(record.status, 0);
    QCOMPARE(record.length, count);
    const QList<uchar> bytes = type == TYPE_UINT8 ? SorvikValues::listFrom<uchar>(record.value) : QList<uchar>();
    const QList<char> chars = SorvikValues::listFrom<char>(record.value);
    QCOMPARE(type == TYPE_UINT8 ? bytes.size() : chars.size(), elements);
    QCOMPARE(type == TYPE_UINT8 ? int(bytes.at(1)) : int(uchar(chars.at(1))), second);
    if (elements == 510) // the second block starts after its head, byte 257
        QCOMPARE(int(uchar(chars.at(255))), 257 % 251);
}

void TestOneTagRead::refusedBeforeTheLink_data()
{
    QTest::addColumn<QString>("tag");
    QTest::addColumn<int>("type");
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("status");
    QTest::addColumn<bool>("timed");

    QTest::newRow("no area wins over count") << "XY1" << 0 << 0 << 3 << true;
    QTest::newRow("count wins over type") << "AI1" << 0 << 0 << 4 << true;
    QTest::newRow("negative count") << "AI1" << 6 << -1 << 4 << true;
    QTest::newRow("type 0") << "AI1" << 0 << 1 << 2 << true;
    QTest::newRow("type 13") << "AI1" << 13 << 1 << 4 << false;
    QTest::newRow("too long") << "AI1" << 6 << 367 << 4 << false;
    QTest::newRow("huge count") << "AI1" << 11 << 2147483647 << 4 << false;
    QTest::newRow("less than a block") << "SI1" << 2 << 255 << 4 << false;
}

void TestOneTagRead::refusedBeforeTheLink()
{
    QFETCH(QString, tag);
    QFETCH(int, type);
    QFETCH(int, count);
    QFETCH(int, status);
    QFETCH(bool, timed);

    const CLabelVariable record = m_drive.ReadVariable(tag, DataType(type), count);
    QCOMPARE(record.status, status);
    QCOMPARE(record.time.isNull(), !timed);
    QVERIFY(!record.value.isValid());
    QCOMPARE(record.tag, tag);
    QCOMPARE(record.dataType, type);
    QCOMPARE(record.length, count);
    QCOMPARE(m_sim.frameCount(), 0);
}

void TestOneTagRead::twoArgumentFormReadsOne()
{
    QVERIFY(m_sim.presetTag(QStringLiteral("DO3=bool:1,1")));
    const CLabelVariable record = m_drive.ReadVariable(QStringLiteral("DO3"), TYPE_BOOL);
    QCOMPARE(record.length, 1);
    COMPARE_VALUE(TYPE_BOOL, record.value, listOf<bool>({true}));
}

void TestOneTagRead::readDataLeavesNamingFields()
{
    QVERIFY(m_sim.presetTag(QStringLiteral("LW1=int32:9")));
    const CLabelVariable record = m_drive.Read_data(24, 0, TYPE_INT32, 1, QStringLiteral("LW1"));
    QCOMPARE(record.status, 0);
    QVERIFY(record.tag.isEmpty());
    QCOMPARE(record.dataType, CLabelVariable().dataType);
    QCOMPARE(record.length, CLabelVariable().length);
    COMPARE_VALUE(TYPE_INT32, record.value, listOf<int>({9}));
    QCOMPARE(m_drive.Read_data(24, 0, TYPE_INT32, 0, QString()).status, 4);
}

void TestOneTagRead::beforeAnyConnection()
{
    LibSorvik fresh;
    const CLabelVariable record = fresh.ReadVariable(QStringLiteral("AI1"), TYPE_INT32, 1);
    QCOMPARE(record.status, 9);
    QVERIFY(record.time.isNull());
    QVERIFY(!record.value.isValid());
}

void TestOneTagRead::lostReply()
{
    SimFaults faults;
    faults.silent = true;
    m_sim.setFaults(faults);
    TestSupport::LogCapture log;
    const CLabelVariable record = m_drive.ReadVariable(QStringLiteral("AI1"), TYPE_INT32, 1);
    QCOMPARE(record.status, 8);
    QVERIFY(record.time.isNull());
    QVERIFY(!record.value.isValid());
    QCOMPARE(
        log.texts(QtWarningMsg),
        QStringList{
            QStringLiteral("lib[Sorvik]返回的报文长度为0 %1  AI1 len = 4 msg : ").arg(DriveTest::udpText(m_port))});
}

void TestOneTagRead::wrongIdentity()
{
    m_sim.queueReply(hex("01022a000000"));
    TestSupport::LogCapture log;
    const CLabelVariable record = m_drive.ReadVariable(QStringLiteral("AI1"), TYPE_INT32, 1);
    QCOMPARE(record.status, 8);
    QVERIFY(record.time.isNull());
    const QStringList expected{
        QStringLiteral("lib[Sorvik]返回的序号错误 %1  AI1 len = 4 msg : 01022a000000").arg(DriveTest::udpText(m_port)),
        QStringLiteral("lib[Sorvik]返回的报文长度为0 %1  AI1 len = 4 msg : 01022a000000")
            .arg(DriveTest::udpText(m_port))};
    QCOMPARE(log.texts(QtWarningMsg), expected);
}

void TestOneTagRead::shortReply_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<QVariant>("value");

    QTest::newRow("identity only") << hex("0101") << listOf<int>({0, 0});
    QTest::newRow("one element and a half") << hex("0101ffff2a0000000100") << listOf<int>({42, 1});
}

void TestOneTagRead::shortReply()
{
    QFETCH(QByteArray, reply);
    QFETCH(QVariant, value);
    m_sim.queueReply(reply);
    const CLabelVariable record = m_drive.ReadVariable(QStringLiteral("LW1"), TYPE_INT32, 2);
    QCOMPARE(record.status, 0);
    COMPARE_VALUE(TYPE_INT32, record.value, value);
}

void TestOneTagRead::paddedAndOverlongReplies()
{
    QVERIFY(m_sim.presetTag(QStringLiteral("LW1=int32:42,43")));
    SimFaults faults;
    faults.padReplies = true;
    m_sim.setFaults(faults);
    CLabelVariable record = m_drive.ReadVariable(QStringLiteral("LW1"), TYPE_INT32, 1);
    QCOMPARE(record.status, 0);
    COMPARE_VALUE(TYPE_INT32, record.value, listOf<int>({42}));

    faults.padReplies = false;
    faults.overlongReplies = true;
    m_sim.setFaults(faults);
    record = m_drive.ReadVariable(QStringLiteral("LW1"), TYPE_INT32, 1);
    QCOMPARE(record.status, 0);
    COMPARE_VALUE(TYPE_INT32, record.value, listOf<int>({42}));
}

QTEST_GUILESS_MAIN(TestOneTagRead)
#include "tst_one_tag_read.moc"
