// Numbers as the programs take them: a text that is no number of the type,
// or lies outside its range, is refused, never cut down to fit.

#include "programs/NumberText.h"

#include <QtTest>

class NumberTextTest : public QObject
{
    Q_OBJECT

private slots:
    void integers_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("asInt8");
        QTest::addColumn<int>("int8");
        QTest::addColumn<bool>("asUint8");

        QTest::newRow("decimal") << "17" << true << 17 << true;
        QTest::newRow("plus sign") << "+17" << true << 17 << true;
        QTest::newRow("hexadecimal") << "0x7F" << true << 127 << true;
        QTest::newRow("past the signed top") << "0x80" << false << 0 << true;
        QTest::newRow("signed minimum") << "-128" << true << -128 << false;
        QTest::newRow("below the minimum") << "-129" << false << 0 << false;
        QTest::newRow("negative hexadecimal") << "-0x80" << true << -128 << false;
        QTest::newRow("minus zero is signed") << "-0" << true << 0 << false;
        QTest::newRow("past the unsigned top") << "256" << false << 0 << false;
        QTest::newRow("blank before") << " 5" << false << 0 << false;
        QTest::newRow("blank inside") << "- 5" << false << 0 << false;
        QTest::newRow("two signs") << "+-5" << false << 0 << false;
        QTest::newRow("bare 0x") << "0x" << false << 0 << false;
        QTest::newRow("empty") << "" << false << 0 << false;
        QTest::newRow("fraction") << "1.0" << false << 0 << false;
    }

    void integers()
    {
        QFETCH(QString, text);
        QFETCH(bool, asInt8);
        QFETCH(int, int8);
        QFETCH(bool, asUint8);
        qint8 signedValue = 99;
        QCOMPARE(NumberText::parseInteger(text, &signedValue), asInt8);
        if (asInt8)
            QCOMPARE(int(signedValue), int8);
        quint8 unsignedValue = 99;
        QCOMPARE(NumberText::parseInteger(text, &unsignedValue), asUint8);
    }

    // The widest types reach their ends; a whole number keeps its range, and a refused text leaves the value alone.
    void rangesReachTheirEnds()
    {
        qint64 low = 0;
        QVERIFY(NumberText::parseInteger(QStringLiteral("-9223372036854775808"), &low));
        QCOMPARE(low, std::numeric_limits<qint64>::min());
        quint64 high = 0;
        QVERIFY(NumberText::parseInteger(QStringLiteral("0xFFFFFFFFFFFFFFFF"), &high));
        QCOMPARE(high, std::numeric_limits<quint64>::max());
        QVERIFY(!NumberText::parseInteger(QStringLiteral("9223372036854775808"), &low));
        QVERIFY(!NumberText::parseInteger(QStringLiteral("18446744073709551616"), &high));
        qlonglong whole = 7;
        QVERIFY(NumberText::parseWhole(QStringLiteral("65535"), 0, 65535, &whole));
        QVERIFY(!NumberText::parseWhole(QStringLiteral("65536"), 0, 65535, &whole));
        QCOMPARE(whole, 65535);
        double share = 0.5;
        QVERIFY(NumberText::parseShare(QStringLiteral("1"), &share));
        for (const char *refused : {"1.5", "-0.1", "nan", "half"})
            QVERIFY2(!NumberText::parseShare(QLatin1String(refused), &share), refused);
        QCOMPARE(share, 1.0);
    }
};

QTEST_APPLESS_MAIN(NumberTextTest)
#include "tst_number_text.moc"
