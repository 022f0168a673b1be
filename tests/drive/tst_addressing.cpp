// Tag text to area and index, area sizes and transfer lengths.

#include "drive/LibSorvik.h"
#include "protocol/SorvikAreas.h"

#include <QtTest>

constexpr int area(const char *prefix)
{
    return SorvikProtocol::codeOf(prefix);
}

class TestAddressing : public QObject
{
    Q_OBJECT

    LibSorvik m_drive;

private slots:
    void areaAndIndex_data()
    {
        QTest::addColumn<QString>("tag");
        QTest::addColumn<int>("area");
        QTest::addColumn<int>("index");

        QTest::newRow("bare prefix") << "DI" << area("DI") << -1;
        QTest::newRow("element 0") << "DI0" << area("DI") << -1;
        QTest::newRow("first element") << "DI1" << area("DI") << 0;
        QTest::newRow("leading zeros") << "DI007" << area("DI") << 6;
        QTest::newRow("DO_F before DO") << "DO_F3" << area("DO_F") << 2;
        QTest::newRow("DO_S before DO") << "DO_S3" << area("DO_S") << 2;
        QTest::newRow("DO") << "DO3" << area("DO") << 2;
        QTest::newRow("AI_F before AI") << "AI_F12" << area("AI_F") << 11;
        QTest::newRow("unknown suffix keeps AI") << "AI_X3" << area("AI") << 2;
        QTest::newRow("letters after prefix") << "AIR7" << area("AI") << 6;
        QTest::newRow("SI inside a word") << "SIGNAL9" << area("SI") << 8;
        QTest::newRow("Custom inside a word") << "Customer7" << area("Custom") << 6;
        QTest::newRow("SO has no code") << "SO1" << 0 << 0;
        QTest::newRow("lower case") << "di1" << 0 << 0;
        QTest::newRow("prefix not at start") << "1DI" << 0 << 0;
        QTest::newRow("empty") << "" << 0 << -1;
        QTest::newRow("digits joined") << "AI3_7" << area("AI") << 36;
        QTest::newRow("digits in brackets") << "SI1[20]" << area("SI") << 119;
        QTest::newRow("largest 32-bit number") << "LW4294967295" << area("LW") << -2;
        QTest::newRow("beyond 32 bits") << "LW4294967296" << area("LW") << -1;
        QTest::newRow("non-ASCII digit skipped") << QString::fromUtf8("AI\u06635") << area("AI") << 4;
    }
    void areaAndIndex()
    {
        QFETCH(QString, tag);
        QFETCH(int, area);
        QFETCH(int, index);
        QCOMPARE(m_drive.getArea(tag), area);
        QCOMPARE(m_drive.getAddr(tag), index);
    }
    void byteLength_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<int>("count");
        QTest::addColumn<int>("area");
        QTest::addColumn<int>("length");

        QTest::newRow("Int8 on DI") << 2 << 1 << area("DI") << 8;
        QTest::newRow("Int8 on DI, largest") << 2 << 183 << area("DI") << 1464;
        QTest::newRow("Int8 on DI, too long") << 2 << 184 << area("DI") << 0;
        QTest::newRow("Int8 on AI, below a word") << 2 << 3 << area("AI") << 0;
        QTest::newRow("Int8 on AI, cut to words") << 3 << 7 << area("AI") << 4;
        QTest::newRow("Int8 on SA, cut to pairs") << 2 << 5 << area("SA") << 4;
        QTest::newRow("Int8 on SA, below a pair") << 2 << 1 << area("SA") << 0;
        QTest::newRow("Int8 on Custom, pair group") << 3 << 5 << area("Custom") << 4;
        QTest::newRow("Int8 on AO_F") << 2 << 8 << area("AO_F") << 0;
        QTest::newRow("Int32 on AO_F") << 6 << 2 << area("AO_F") << 8;
        QTest::newRow("Int8 on SI, below a block") << 2 << 255 << area("SI") << 0;
        QTest::newRow("Int8 on SI, one block") << 2 << 256 << area("SI") << 256;
        QTest::newRow("Int8 on SI, cut to a block") << 2 << 300 << area("SI") << 256;
        QTest::newRow("Int8 on SI, six blocks") << 2 << 1536 << area("SI") << 0;
        QTest::newRow("string, largest") << 12 << 1467 << area("SI") << 1467;
        QTest::newRow("string, at the limit") << 12 << 1468 << area("AI") << 0;
        QTest::newRow("bool on a word area") << 1 << 5 << area("AI") << 5;
        QTest::newRow("Int16 on a bit area") << 4 << 3 << area("DI") << 6;
        QTest::newRow("double, largest") << 11 << 183 << area("AI") << 1464;
        QTest::newRow("double, too long") << 11 << 184 << area("AI") << 0;
        QTest::newRow("type 0") << 0 << 4 << area("AI") << 0;
        QTest::newRow("negative type") << -1 << 1 << area("AI") << 0;
        QTest::newRow("count 0") << 6 << 0 << area("LW") << 0;
        // Negative counts size negatively; the one-tag paths refuse them before.
        QTest::newRow("negative count") << 1 << -5 << area("AI") << -5;
        QTest::newRow("huge count would wrap in 32 bits") << 6 << 1073741825 << area("LW") << 0;
        QTest::newRow("smallest count") << 2 << (-2147483647 - 1) << area("DI") << 0;
    }
    void byteLength()
    {
        QFETCH(int, type);
        QFETCH(int, count);
        QFETCH(int, area);
        QFETCH(int, length);
        QCOMPARE(m_drive.getBytelen(DataType(type), count, area), length);
    }
    void maximumLength_data()
    {
        QTest::addColumn<int>("area");
        QTest::addColumn<int>("size");

        QTest::newRow("Custom, beyond 16 bits") << area("Custom") << 2097152;
        QTest::newRow("a code without a prefix") << 32 << 7200;
        QTest::newRow("past the last code") << 47 << 0;
        QTest::newRow("negative code") << -1 << 0;
    }
    void maximumLength()
    {
        QFETCH(int, area);
        QFETCH(int, size);
        QCOMPARE(m_drive.getmaximum_length(area), size);
    }
};

QTEST_GUILESS_MAIN(TestAddressing)
#include "tst_addressing.moc"
