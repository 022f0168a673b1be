// Tag analysis: the strict tag grammar, sizes, offsets, area names and planning limits.

#include "engine/CInductiveDrive.h"

#include "EngineTestSupport.h"

#include <QtTest>

class TestAnalysis : public QObject
{
    Q_OBJECT

private slots:
    // tag type: area areaText number length
    void analyseTag_data()
    {
        EngineTest::textRows({"DI1 1 1 DI 1 1", "DI00001 6 1 DI 1 4", "di32767 11 1 di 32767 8", "DI_F5 4 2 DI_F 5 2",
                              "SO7 8 26 SO 7 4", "SI5 12 25 SI 5 0", "AI5 41 7 AI 5 1", "AI5 0 7 AI 5 -1",
                              "AI5 42 7 AI 5 -1", "AI5 -3 7 AI 5 -1"});
    }
    void analyseTag()
    {
        QFETCH(QString, row);
        const QStringList f = row.split(' ');
        const STagAddress a = CInductiveDrive().analyseTag(f[0], f[1].toInt());
        QCOMPARE(QStringLiteral("%1 %2 %3 %4").arg(a.area).arg(a.areaText).arg(a.number).arg(a.length),
                 f.mid(2).join(' '));
        QCOMPARE(a.bit, -1);
        QVERIFY(!a.isBlank());
    }

    void refusedTextsGiveTheBlankRecord()
    {
        CInductiveDrive engine;
        for (const char *tag :
             {"DI0", "DI00000", "DI32768", "DI000001", "Di5",  "dI5",  "AI5.3",   "SD100[20]", "AI5[20]", "XY1",
              "",    "DI",      "1DI",     " DI1",     "DI1 ", "DI_1", "Custom1", "AI-5",      "ＡＩ5",   "AI١"})
            for (int type : {1, 6, 12, 42}) {
                const STagAddress a = engine.analyseTag(QString::fromUtf8(tag), type);
                const QString fields =
                    QStringLiteral("%1 %2 %3 %4 %5").arg(a.area).arg(a.areaText).arg(a.number).arg(a.bit).arg(a.length);
                QVERIFY2(fields == "0  -1 -1 0" && a.isBlank(), tag);
            }
    }

    // code name; any other name has code 0 and any other code the name UNKNOW
    void everyAreaInBothSpellings_data()
    {
        EngineTest::textRows({"1 DI",   "2 DI_F",  "3 DI_S",  "4 DO",  "5 DO_F", "6 DO_S", "7 AI",   "8 AI_F", "9 AI_S",
                              "10 AO",  "11 AO_F", "12 AO_S", "13 SD", "14 SA",  "15 NDI", "16 NDO", "17 NAI", "18 NAO",
                              "19 HDS", "20 HDP",  "21 HAI",  "22 LD", "23 LA",  "24 LW",  "25 SI",  "26 SO"});
    }
    void everyAreaInBothSpellings()
    {
        QFETCH(QString, row);
        const int code = row.section(' ', 0, 0).toInt();
        const QString name = row.section(' ', 1), lower = name.toLower();
        CInductiveDrive engine;
        QCOMPARE(engine.m_areaPatterns.size(), 26);
        QCOMPARE(engine.analyseTag(name + "12", 6).area, code);
        QCOMPARE(engine.analyseTag(lower + "12", 6).area, code);
        QCOMPARE(engine.analyseTag(lower + "12", 6).areaText, lower);
        QVERIFY(engine.analyseTag(name.left(1) + name.mid(1).toLower() + "12", 6).isBlank() || name.size() == 1);
        QCOMPARE(engine.areaName(code), name);
        QCOMPARE(engine.areaCode(name), code);
        for (const QString &other : {lower, name + "1", " " + name, QString(), QStringLiteral("UNKNOW")})
            QCOMPARE(engine.areaCode(other), 0);
        QCOMPARE(engine.areaName(code + 26), QStringLiteral("UNKNOW"));
        QCOMPARE(engine.areaName(-code), QStringLiteral("UNKNOW"));
    }

    // Analysis picks one pattern by the prefix; trying them all must agree for any text.
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

    // tag type size
    void tagSize_data()
    {
        EngineTest::textRows({"SI5 12 256", "SO5 12 256", "SIGNAL 12 256", "si5 12 -1", "AI5 12 -1", "AI5[20] 12 20",
                              "SI5[3] 12 3", "AI5[7][9] 12 7", "AI5[0] 12 0", "SO5[] 12 256", "AI5[99999999999] 12 -1",
                              "AI5 0 -1", "AI5 41 1", "AI5 42 -1", "XY 1 1", "AI5 14 2", "AI5 24 4", "AI5 40 8"});
    }
    void tagSize()
    {
        QFETCH(QString, row);
        const QStringList f = row.split(' ');
        CInductiveDrive engine;
        QCOMPARE(engine.tagSize(Induction::SReadInfo{f[0], f[1].toInt()}), f[2].toInt());
        QCOMPARE(engine.tagSize(Induction::SWriteInfo{f[0], f[1].toInt(), QVariant()}), f[2].toInt());
    }

    // tag start type offset; a bool in a word area counts bits
    void tagOffset_data()
    {
        EngineTest::textRows({"AI9 5 1 128", "AI9 5 6 4", "DI9 5 1 4", "SA3 1 1 32", "ai9 5 1 128", "XY9 5 1 0",
                              "AI3 5 6 -2", "XY9 5 6 -6", "SI32767 -2147483647 1 2147483647"});
    }
    void tagOffset()
    {
        QFETCH(QString, row);
        const QStringList f = row.split(' ');
        QCOMPARE(CInductiveDrive().tagOffset(f[0], f[1].toInt(), f[2].toInt()), f[3].toInt());
    }

    // fun type value: read points, read bytes, write points, write bytes
    void setInductionParam_data()
    {
        EngineTest::textRows({"1 1 40: 1280 40 1280 160", "1 2 8: 8 160 1280 160", "2 1 0: 1280 160 1280 0",
                              "2 2 99999: 1280 160 99999 160", "1 1 -5: 1280 0 1280 160", "1 3 7: 1280 160 1280 160",
                              "0 1 7: 1280 160 1280 160"});
    }
    void setInductionParam()
    {
        QFETCH(QString, row);
        const QStringList f = row.section(':', 0, 0).split(' ');
        CInductiveDrive engine;
        engine.SetInductionParam(static_cast<Induction::EInductionFun>(f[0].toInt()),
                                 static_cast<Induction::EInductionType>(f[1].toInt()), f[2].toInt());
        QCOMPARE(QStringLiteral(" %1 %2 %3 %4")
                     .arg(engine.m_readPointLimit)
                     .arg(engine.m_readByteLimit)
                     .arg(engine.m_writePointLimit)
                     .arg(engine.m_writeByteLimit),
                 row.section(':', 1));
    }
};

QTEST_APPLESS_MAIN(TestAnalysis)
#include "tst_analysis.moc"
