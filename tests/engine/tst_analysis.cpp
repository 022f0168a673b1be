// Tag analysis of the engine: the strict tag grammar, sizes, offsets, area
// names and the planning limits.

#include "engine/CInductiveDrive.h"

#include <QtTest>

class TestAnalysis : public QObject
{
    Q_OBJECT

private slots:
    void analyseTag_data()
    {
        QTest::addColumn<QString>("tag");
        QTest::addColumn<int>("dataType");
        QTest::addColumn<QString>("address"); // area areaText number length
        QTest::newRow("DI1") << "DI1" << 1 << "1 DI 1 1";
        QTest::newRow("leading zeros") << "DI00001" << 6 << "1 DI 1 4";
        QTest::newRow("largest, lower case") << "di32767" << 11 << "1 di 32767 8";
        QTest::newRow("longer prefix wins") << "DI_F5" << 4 << "2 DI_F 5 2";
        QTest::newRow("SO") << "SO7" << 8 << "26 SO 7 4";
        QTest::newRow("string has no length") << "SI5" << 12 << "25 SI 5 0";
        QTest::newRow("no element") << "AI5" << 41 << "7 AI 5 1";
        QTest::newRow("type 0") << "AI5" << 0 << "7 AI 5 -1";
        QTest::newRow("unknown type") << "AI5" << 42 << "7 AI 5 -1";
        QTest::newRow("negative type") << "AI5" << -3 << "7 AI 5 -1";
        // Refused texts: every field blank, whatever the type.
        for (const char *tag :
             {"DI0", "DI00000", "DI32768", "DI000001", "Di5",  "dI5",  "AI5.3",   "SD100[20]", "AI5[20]", "XY1",
              "",    "DI",      "1DI",     " DI1",     "DI1 ", "DI_1", "Custom1", "AI-5",      "ＡＩ5",   "AI١"})
            QTest::newRow(qPrintable(QStringLiteral("refused '%1'").arg(QString::fromUtf8(tag))))
                << QString::fromUtf8(tag) << 6 << "0  -1 0";
    }
    void analyseTag()
    {
        QFETCH(QString, tag);
        QFETCH(int, dataType);
        QFETCH(QString, address);
        const STagAddress a = CInductiveDrive().analyseTag(tag, dataType);
        QCOMPARE(QStringLiteral("%1 %2 %3 %4").arg(a.area).arg(a.areaText).arg(a.number).arg(a.length), address);
        QCOMPARE(a.bit, -1);
        QCOMPARE(a.isBlank(), a.area == 0);
    }

    void everyAreaInBothSpellings_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<int>("code");
        const char *names[] = {"DI",  "DI_F", "DI_S", "DO", "DO_F", "DO_S", "AI",  "AI_F", "AI_S",
                               "AO",  "AO_F", "AO_S", "SD", "SA",   "NDI",  "NDO", "NAI",  "NAO",
                               "HDS", "HDP",  "HAI",  "LD", "LA",   "LW",   "SI",  "SO"};
        for (int code = 1; code <= 26; ++code)
            QTest::newRow(names[code - 1]) << QString::fromLatin1(names[code - 1]) << code;
    }
    void everyAreaInBothSpellings()
    {
        QFETCH(QString, name);
        QFETCH(int, code);
        CInductiveDrive engine;
        QCOMPARE(engine.m_areaPatterns.size(), 26);
        QCOMPARE(engine.analyseTag(name + "12", 6).area, code);
        QCOMPARE(engine.analyseTag(name.toLower() + "12", 6).area, code);
        QCOMPARE(engine.analyseTag(name.toLower() + "12", 6).areaText, name.toLower());
        QVERIFY(engine.analyseTag(name.left(1) + name.mid(1).toLower() + "12", 6).isBlank() || name.size() == 1);
        QCOMPARE(engine.areaCode(name), code);
        QCOMPARE(engine.areaCode(name.toLower()), 0);
        QCOMPARE(engine.areaName(code), name);
    }

    void areaCodeAndNameOfAnythingElse()
    {
        CInductiveDrive engine;
        for (const QString &name : QStringList{"", "Di", "DI1", "Custom", " DI", "UNKNOW"})
            QCOMPARE(engine.areaCode(name), 0);
        for (int code : {0, -1, 27, 1000})
            QCOMPARE(engine.areaName(code), QStringLiteral("UNKNOW"));
    }

    // Analysis picks one pattern by the prefix; trying every pattern in code
    // order must give the same answer for any text.
    void prefixShortcutAgreesWithAllPatterns()
    {
        CInductiveDrive engine;
        for (const QString &prefix : QStringList{"DI", "di", "DI_F", "di_f", "Di_F", "DI_f", "DI_", "D", "NDI", "ndI",
                                                 "SI", "so", "Custom", "AIX", "XY", "", "_", "AI_S_", "LWW"})
            for (const QString &number : QStringList{"1", "01", "0", "00007", "000007", "32767", "32768", "99999",
                                                     "5.3", "5[2]", "5x", "1\n", "١"}) {
                const QString tag = prefix + number;
                int expected = 0;
                QString text;
                for (auto pattern = engine.m_areaPatterns.cbegin(); pattern != engine.m_areaPatterns.cend();
                     ++pattern) {
                    const QRegularExpressionMatch match = pattern.value().match(tag);
                    if (match.hasMatch()) {
                        expected = pattern.key();
                        text = match.captured(1);
                        break;
                    }
                }
                const STagAddress address = engine.analyseTag(tag, 4);
                QVERIFY2(address.area == expected && address.areaText == text, qPrintable(tag));
            }
    }

    void tagSize_data()
    {
        QTest::addColumn<QString>("tag");
        QTest::addColumn<int>("dataType");
        QTest::addColumn<int>("size");
        QTest::newRow("SI string") << "SI5" << 12 << 256;
        QTest::newRow("SO string") << "SO5" << 12 << 256;
        QTest::newRow("SI without number") << "SIGNAL" << 12 << 256;
        QTest::newRow("lower-case si") << "si5" << 12 << -1;
        QTest::newRow("string outside SI") << "AI5" << 12 << -1;
        QTest::newRow("suffix") << "AI5[20]" << 12 << 20;
        QTest::newRow("suffix wins over SI") << "SI5[3]" << 12 << 3;
        QTest::newRow("first suffix") << "AI5[7][9]" << 12 << 7;
        QTest::newRow("zero suffix") << "AI5[0]" << 12 << 0;
        QTest::newRow("suffix beyond 32 bits") << "AI5[99999999999]" << 12 << -1;
        QTest::newRow("empty suffix") << "SO5[]" << 12 << 256;
        QTest::newRow("type 0") << "AI5" << 0 << -1;
        QTest::newRow("type 41") << "AI5" << 41 << 1;
        QTest::newRow("type 42") << "AI5" << 42 << -1;
        QTest::newRow("bool, any text") << "XY" << 1 << 1;
        QTest::newRow("int16 form") << "AI5" << 14 << 2;
        QTest::newRow("uint32 form") << "AI5" << 24 << 4;
        QTest::newRow("double form") << "AI5" << 40 << 8;
    }
    void tagSize()
    {
        QFETCH(QString, tag);
        QFETCH(int, dataType);
        QFETCH(int, size);
        CInductiveDrive engine;
        QCOMPARE(engine.tagSize(Induction::SReadInfo{tag, dataType}), size);
        QCOMPARE(engine.tagSize(Induction::SWriteInfo{tag, dataType, QVariant()}), size);
    }

    void tagOffset_data()
    {
        QTest::addColumn<QString>("tag");
        QTest::addColumn<int>("start");
        QTest::addColumn<int>("dataType");
        QTest::addColumn<int>("offset");
        QTest::newRow("bool in word area counts bits") << "AI9" << 5 << 1 << 128;
        QTest::newRow("int in word area") << "AI9" << 5 << 6 << 4;
        QTest::newRow("bool in bit area") << "DI9" << 5 << 1 << 4;
        QTest::newRow("bool in SA") << "SA3" << 1 << 1 << 32;
        QTest::newRow("bool in lower-case word area") << "ai9" << 5 << 1 << 128;
        QTest::newRow("bool without area") << "XY9" << 5 << 1 << 0;
        QTest::newRow("before the start") << "AI3" << 5 << 6 << -2;
        QTest::newRow("refused, not bool") << "XY9" << 5 << 6 << -6;
        QTest::newRow("far start saturates") << "SI32767" << -2147483647 << 1 << 2147483647;
    }
    void tagOffset()
    {
        QFETCH(QString, tag);
        QFETCH(int, start);
        QFETCH(int, dataType);
        QFETCH(int, offset);
        QCOMPARE(CInductiveDrive().tagOffset(tag, start, dataType), offset);
    }

    void setInductionParam_data()
    {
        QTest::addColumn<int>("fun");
        QTest::addColumn<int>("type");
        QTest::addColumn<int>("value");
        QTest::addColumn<QList<int>>("limits"); // read points, read bytes, write points, write bytes
        QTest::newRow("read bytes") << 1 << 1 << 40 << QList<int>{1280, 40, 1280, 160};
        QTest::newRow("read points") << 1 << 2 << 8 << QList<int>{8, 160, 1280, 160};
        QTest::newRow("write bytes") << 2 << 1 << 0 << QList<int>{1280, 160, 1280, 0};
        QTest::newRow("write points") << 2 << 2 << 99999 << QList<int>{1280, 160, 99999, 160};
        QTest::newRow("negative stored as 0") << 1 << 1 << -5 << QList<int>{1280, 0, 1280, 160};
        QTest::newRow("unknown type") << 1 << 3 << 7 << QList<int>{1280, 160, 1280, 160};
        QTest::newRow("unknown fun") << 0 << 1 << 7 << QList<int>{1280, 160, 1280, 160};
    }
    void setInductionParam()
    {
        QFETCH(int, fun);
        QFETCH(int, type);
        QFETCH(int, value);
        QFETCH(QList<int>, limits);
        CInductiveDrive engine;
        engine.SetInductionParam(static_cast<Induction::EInductionFun>(fun),
                                 static_cast<Induction::EInductionType>(type), value);
        QCOMPARE((QList<int>{engine.m_readPointLimit, engine.m_readByteLimit, engine.m_writePointLimit,
                             engine.m_writeByteLimit}),
                 limits);
    }
};

QTEST_APPLESS_MAIN(TestAnalysis)
#include "tst_analysis.moc"
