// Tag analysis: the strict tag grammar, sizes, offsets, area names and planning limits.

#include "engine/CInductiveDrive.h"

#include <QtTest>

class TestAnalysis : public QObject
{
    Q_OBJECT

private slots:
    void analyseTag_data()
    {
        QTest::addColumn<QString>("tag");
        QTest::addColumn<int>("type");
        QTest::addColumn<int>("area");
        QTest::addColumn<QString>("areaText");
        QTest::addColumn<int>("number");
        QTest::addColumn<int>("length");
        const struct {
            const char *tag;
            int type, area;
            const char *areaText;
            int number, length;
        } rows[] = {{"DI1", 1, 1, "DI", 1, 1},     {"DI00001", 6, 1, "DI", 1, 4}, {"di32767", 11, 1, "di", 32767, 8},
                    {"DI_F5", 4, 2, "DI_F", 5, 2}, {"SO7", 8, 26, "SO", 7, 4},    {"SI5", 12, 25, "SI", 5, 0},
                    {"AI5", 41, 7, "AI", 5, 1},    {"AI5", 0, 7, "AI", 5, -1},    {"AI5", 42, 7, "AI", 5, -1},
                    {"AI5", -3, 7, "AI", 5, -1}};
        for (const auto &r : rows)
            QTest::addRow("%s/%d", r.tag, r.type) << QString::fromUtf8(r.tag) << r.type << r.area
                                                  << QString::fromUtf8(r.areaText) << r.number << r.length;
    }
    void analyseTag()
    {
        QFETCH(QString, tag);
        QFETCH(int, type);
        QFETCH(int, area);
        QFETCH(QString, areaText);
        QFETCH(int, number);
        QFETCH(int, length);
        const STagAddress a = CInductiveDrive().analyseTag(tag, type);
        QCOMPARE(a.area, area);
        QCOMPARE(a.areaText, areaText);
        QCOMPARE(a.number, number);
        QCOMPARE(a.length, length);
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

    // Any other name has code 0 and any other code the name UNKNOW.
    void everyAreaInBothSpellings_data()
    {
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("name");
        const char *names[] = {"DI",  "DI_F", "DI_S", "DO", "DO_F", "DO_S", "AI",  "AI_F", "AI_S",
                               "AO",  "AO_F", "AO_S", "SD", "SA",   "NDI",  "NDO", "NAI",  "NAO",
                               "HDS", "HDP",  "HAI",  "LD", "LA",   "LW",   "SI",  "SO"};
        for (int code = 1; code <= 26; ++code)
            QTest::newRow(names[code - 1]) << code << QString::fromLatin1(names[code - 1]);
    }
    void everyAreaInBothSpellings()
    {
        QFETCH(int, code);
        QFETCH(QString, name);
        const QString lower = name.toLower();
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

    void tagSize_data()
    {
        QTest::addColumn<QString>("tag");
        QTest::addColumn<int>("type");
        QTest::addColumn<int>("size");
        const struct {
            const char *tag;
            int type, size;
        } rows[] = {{"SI5", 12, 256},
                    {"SO5", 12, 256},
                    {"SIGNAL", 12, 256},
                    {"si5", 12, -1},
                    {"AI5", 12, -1},
                    {"AI5[20]", 12, 20},
                    {"SI5[3]", 12, 3},
                    {"AI5[7][9]", 12, 7},
                    {"AI5[0]", 12, 0},
                    {"SO5[]", 12, 256},
                    {"AI5[99999999999]", 12, -1},
                    {"AI5", 0, -1},
                    {"AI5", 41, 1},
                    {"AI5", 42, -1},
                    {"XY", 1, 1},
                    {"AI5", 14, 2},
                    {"AI5", 24, 4},
                    {"AI5", 40, 8}};
        for (const auto &r : rows)
            QTest::addRow("%s/%d", r.tag, r.type) << QString::fromLatin1(r.tag) << r.type << r.size;
    }
    void tagSize()
    {
        QFETCH(QString, tag);
        QFETCH(int, type);
        QFETCH(int, size);
        CInductiveDrive engine;
        QCOMPARE(engine.tagSize(Induction::SReadInfo{tag, type}), size);
        QCOMPARE(engine.tagSize(Induction::SWriteInfo{tag, type, QVariant()}), size);
    }

    // A bool in a word area counts bits.
    void tagOffset_data()
    {
        QTest::addColumn<QString>("tag");
        QTest::addColumn<int>("start");
        QTest::addColumn<int>("type");
        QTest::addColumn<int>("offset");
        const struct {
            const char *tag;
            int start, type, offset;
        } rows[] = {{"AI9", 5, 1, 128}, {"AI9", 5, 6, 4},   {"DI9", 5, 1, 4},
                    {"SA3", 1, 1, 32},  {"ai9", 5, 1, 128}, {"XY9", 5, 1, 0},
                    {"AI3", 5, 6, -2},  {"XY9", 5, 6, -6},  {"SI32767", -2147483647, 1, 2147483647}};
        for (const auto &r : rows)
            QTest::addRow("%s from %d as %d", r.tag, r.start, r.type)
                << QString::fromLatin1(r.tag) << r.start << r.type << r.offset;
    }
    void tagOffset()
    {
        QFETCH(QString, tag);
        QFETCH(int, start);
        QFETCH(int, type);
        QFETCH(int, offset);
        QCOMPARE(CInductiveDrive().tagOffset(tag, start, type), offset);
    }

    // The limits after one setting: read points, read bytes, write points, write bytes.
    void setInductionParam_data()
    {
        QTest::addColumn<int>("fun");
        QTest::addColumn<int>("type");
        QTest::addColumn<int>("value");
        QTest::addColumn<QList<int>>("limits");
        auto row = [](const char *name, int fun, int type, int value, const QList<int> &limits) {
            QTest::newRow(name) << fun << type << value << limits;
        };
        row("read bytes", 1, 1, 40, {1280, 40, 1280, 160});
        row("read points", 1, 2, 8, {8, 160, 1280, 160});
        row("write bytes 0", 2, 1, 0, {1280, 160, 1280, 0});
        row("write points large", 2, 2, 99999, {1280, 160, 99999, 160});
        row("negative gives 0", 1, 1, -5, {1280, 0, 1280, 160});
        row("unknown type", 1, 3, 7, {1280, 160, 1280, 160});
        row("unknown function", 0, 1, 7, {1280, 160, 1280, 160});
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
