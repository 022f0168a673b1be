// Tag text to area and index, area sizes and transfer lengths.

#include "drive/LibSorvik.h"

#include <QtTest>

class TestAddressing : public QObject
{
    Q_OBJECT

    LibSorvik m_drive;

private slots:
    void areaAndIndex_data();
    void areaAndIndex();
    void byteLength_data();
    void byteLength();
    void maximumLength_data();
    void maximumLength();
};

void TestAddressing::areaAndIndex_data()
{
    QTest::addColumn<QString>("tag");
    QTest::addColumn<int>("area");
    QTest::addColumn<int>("index");

    QTest::newRow("bare prefix") << "DI" << 1 << -1;
    QTest::newRow("element 0") << "DI0" << 1 << -1;
    QTest::newRow("first element") << "DI1" << 1 << 0;
    QTest::newRow("leading zeros") << "DI007" << 1 << 6;
    QTest::newRow("DO_F before DO") << "DO_F3" << 5 << 2;
    QTest::newRow("DO_S before DO") << "DO_S3" << 6 << 2;
    QTest::newRow("DO") << "DO3" << 4 << 2;
    QTest::newRow("AI_F before AI") << "AI_F12" << 8 << 11;
    QTest::newRow("unknown suffix keeps AI") << "AI_X3" << 7 << 2;
    QTest::newRow("letters after prefix") << "AIR7" << 7 << 6;
    QTest::newRow("SI inside a word") << "SIGNAL9" << 28 << 8;
    QTest::newRow("Custom inside a word") << "Customer7" << 29 << 6;
    QTest::newRow("SO has no code") << "SO1" << 0 << 0;
    QTest::newRow("lower case") << "di1" << 0 << 0;
    QTest::newRow("prefix not at start") << "1DI" << 0 << 0;
    QTest::newRow("empty") << "" << 0 << -1;
    QTest::newRow("digits joined") << "AI3_7" << 7 << 36;
    QTest::newRow("digits in brackets") << "SI1[20]" << 28 << 119;
    QTest::newRow("largest 32-bit number") << "LW4294967295" << 24 << -2;
    QTest::newRow("beyond 32 bits") << "LW4294967296" << 24 << -1;
    QTest::newRow("non-ASCII digit skipped") << QString::fromUtf8("AI\u06635") << 7 << 4;
}

void TestAddressing::areaAndIndex()
{
    QFETCH(QString, tag);
    QFETCH(int, area);
    QFETCH(int, index);
    QCOMPARE(m_drive.getArea(tag), area);
    QCOMPARE(m_drive.getAddr(tag), index);
}

void TestAddressing::byteLength_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("area");
    QTest::addColumn<int>("length");

    QTest::newRow("Int8 on DI") << 2 << 1 << 1 << 8;
    QTest::newRow("Int8 on DI, largest") << 2 << 183 << 1 << 1464;
    QTest::newRow("Int8 on DI, too long") << 2 << 184 << 1 << 0;
    QTest::newRow("Int8 on AI, below a word") << 2 << 3 << 7 << 0;
    QTest::newRow("Int8 on AI, cut to words") << 3 << 7 << 7 << 4;
    QTest::newRow("Int8 on SA, cut to pairs") << 2 << 5 << 14 << 4;
    QTest::newRow("Int8 on SA, below a pair") << 2 << 1 << 14 << 0;
    QTest::newRow("Int8 on Custom, pair group") << 3 << 5 << 29 << 4;
    QTest::newRow("Int8 on AO_F") << 2 << 8 << 11 << 0;
    QTest::newRow("Int32 on AO_F") << 6 << 2 << 11 << 8;
    QTest::newRow("Int8 on SI, below a block") << 2 << 255 << 28 << 0;
    QTest::newRow("Int8 on SI, one block") << 2 << 256 << 28 << 256;
    QTest::newRow("Int8 on SI, cut to a block") << 2 << 300 << 28 << 256;
    QTest::newRow("Int8 on SI, six blocks") << 2 << 1536 << 28 << 0;
    QTest::newRow("string, largest") << 12 << 1467 << 28 << 1467;
    QTest::newRow("string, at the limit") << 12 << 1468 << 7 << 0;
    QTest::newRow("bool on a word area") << 1 << 5 << 7 << 5;
    QTest::newRow("Int16 on a bit area") << 4 << 3 << 1 << 6;
    QTest::newRow("double, largest") << 11 << 183 << 7 << 1464;
    QTest::newRow("double, too long") << 11 << 184 << 7 << 0;
    QTest::newRow("type 0") << 0 << 4 << 7 << 0;
    QTest::newRow("negative type") << -1 << 1 << 7 << 0;
    QTest::newRow("count 0") << 6 << 0 << 24 << 0;
    // Negative counts size negatively; the one-tag paths refuse them before.
    QTest::newRow("negative count") << 1 << -5 << 7 << -5;
    QTest::newRow("huge count would wrap in 32 bits") << 6 << 1073741825 << 24 << 0;
    QTest::newRow("smallest count") << 2 << (-2147483647 - 1) << 1 << 0;
}

void TestAddressing::byteLength()
{
    QFETCH(int, type);
    QFETCH(int, count);
    QFETCH(int, area);
    QFETCH(int, length);
    QCOMPARE(m_drive.getBytelen(DataType(type), count, area), length);
}

void TestAddressing::maximumLength_data()
{
    QTest::addColumn<int>("area");
    QTest::addColumn<int>("size");

    QTest::newRow("DI") << 1 << 240;
    QTest::newRow("LW") << 24 << 8000;
    QTest::newRow("25") << 25 << 1;
    QTest::newRow("SI") << 28 << 1280;
    QTest::newRow("Custom") << 29 << 2097152;
    QTest::newRow("32") << 32 << 7200;
    QTest::newRow("47") << 47 << 0;
    QTest::newRow("-1") << -1 << 0;
}

void TestAddressing::maximumLength()
{
    QFETCH(int, area);
    QFETCH(int, size);
    QCOMPARE(m_drive.getmaximum_length(area), size);
}

QTEST_GUILESS_MAIN(TestAddressing)
#include "tst_addressing.moc"
