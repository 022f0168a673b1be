// Tag analysis: the strict tag grammar, sizes, offsets, area names and planning limits.

#include "engine/CInductiveDrive.h"

#include "DataRows.h"

#include <QtTest>

namespace {

struct Analysed {
    const char *tag;
    int type, area;
    const char *areaText;
    int number, length;
};
struct Sized {
    const char *tag;
    int type, size;
};
struct Offset {
    const char *tag;
    int start, type, offset;
};
struct Limits {
    const char *name;
    int fun, type, value;
    QList<int> limits; // read points, read bytes, write points, write bytes
};

} // namespace

Q_DECLARE_METATYPE(Analysed)
Q_DECLARE_METATYPE(Sized)
Q_DECLARE_METATYPE(Offset)
Q_DECLARE_METATYPE(Limits)

class TestAnalysis : public QObject
{
    Q_OBJECT

private slots:
    void analyseTag_data()
    {
        const Analysed rows[] = {{"DI1", 1, 1, "DI", 1, 1},          {"DI00001", 6, 1, "DI", 1, 4},
                                 {"di32767", 11, 1, "di", 32767, 8}, {"DI_F5", 4, 2, "DI_F", 5, 2},
                                 {"SO7", 8, 26, "SO", 7, 4},         {"SI5", 12, 25, "SI", 5, 0},
                                 {"AI5", 41, 7, "AI", 5, 1},         {"AI5", 0, 7, "AI", 5, -1},
                                 {"AI5", 42, 7, "AI", 5, -1},        {"AI5", -3, 7, "AI", 5, -1}};
        TestSupport::addRows(rows, [](const Analysed &r) { return QStringLiteral("%1/%2").arg(r.tag).arg(r.type); });
    }
    void analyseTag()
    {
        QFETCH(Analysed, row);
        const STagAddress a = CInductiveDrive().analyseTag(QString::fromUtf8(row.tag), row.type);
        QCOMPARE((QList<int>{a.area, a.number, a.length, a.bit}), (QList<int>{row.area, row.number, row.length, -1}));
        QCOMPARE(a.areaText, QString::fromUtf8(row.areaText));
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

    // Each name and its key in both directions, upper and lower case only; any other name has
    // key 0 and any other key the name UNKNOW.
    void everyAreaInBothSpellings()
    {
        CInductiveDrive engine;
        QCOMPARE(engine.m_areaPatterns.size(), 26);
        QCOMPARE(
            (QList<int>{engine.areaCode("DI"), engine.areaCode("LW"), engine.areaCode("SI"), engine.areaCode("SO")}),
            (QList<int>{1, 24, 25, 26}));
        for (int code = 1; code <= 26; ++code) {
            const QString name = engine.areaName(code), lower = name.toLower();
            QCOMPARE(engine.areaCode(name), code);
            QCOMPARE(engine.analyseTag(name + "12", 6).area, code);
            QCOMPARE(engine.analyseTag(lower + "12", 6).area, code);
            QCOMPARE(engine.analyseTag(lower + "12", 6).areaText, lower);
            QVERIFY(engine.analyseTag(name.left(1) + name.mid(1).toLower() + "12", 6).isBlank() || name.size() == 1);
            for (const QString &other : {lower, name + "1", " " + name, QString(), QStringLiteral("UNKNOW")})
                QCOMPARE(engine.areaCode(other), 0);
            QCOMPARE(engine.areaName(code + 26), QStringLiteral("UNKNOW"));
            QCOMPARE(engine.areaName(-code), QStringLiteral("UNKNOW"));
        }
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
        const Sized rows[] = {{"SI5", 12, 256},
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
        TestSupport::addRows(rows, [](const Sized &r) { return QStringLiteral("%1/%2").arg(r.tag).arg(r.type); });
    }
    void tagSize()
    {
        QFETCH(Sized, row);
        CInductiveDrive engine;
        QCOMPARE(engine.tagSize(Induction::SReadInfo{row.tag, row.type}), row.size);
        QCOMPARE(engine.tagSize(Induction::SWriteInfo{row.tag, row.type, QVariant()}), row.size);
    }

    // A bool in a word area counts bits.
    void tagOffset_data()
    {
        const Offset rows[] = {{"AI9", 5, 1, 128}, {"AI9", 5, 6, 4},   {"DI9", 5, 1, 4},
                               {"SA3", 1, 1, 32},  {"ai9", 5, 1, 128}, {"XY9", 5, 1, 0},
                               {"AI3", 5, 6, -2},  {"XY9", 5, 6, -6},  {"SI32767", -2147483647, 1, 2147483647}};
        TestSupport::addRows(rows, [](const Offset &r) {
            return QStringLiteral("%1 from %2 as %3").arg(r.tag).arg(r.start).arg(r.type);
        });
    }
    void tagOffset()
    {
        QFETCH(Offset, row);
        QCOMPARE(CInductiveDrive().tagOffset(row.tag, row.start, row.type), row.offset);
    }

    void setInductionParam_data()
    {
        const Limits rows[] = {{"read bytes", 1, 1, 40, {1280, 40, 1280, 160}},
                               {"read points", 1, 2, 8, {8, 160, 1280, 160}},
                               {"write bytes 0", 2, 1, 0, {1280, 160, 1280, 0}},
                               {"write points large", 2, 2, 99999, {1280, 160, 99999, 160}},
                               {"negative gives 0", 1, 1, -5, {1280, 0, 1280, 160}},
                               {"unknown type", 1, 3, 7, {1280, 160, 1280, 160}},
                               {"unknown function", 0, 1, 7, {1280, 160, 1280, 160}}};
        TestSupport::addRows(rows);
    }
    void setInductionParam()
    {
        QFETCH(Limits, row);
        CInductiveDrive engine;
        engine.SetInductionParam(static_cast<Induction::EInductionFun>(row.fun),
                                 static_cast<Induction::EInductionType>(row.type), row.value);
        QCOMPARE((QList<int>{engine.m_readPointLimit, engine.m_readByteLimit, engine.m_writePointLimit,
                             engine.m_writeByteLimit}),
                 row.limits);
    }
};

QTEST_APPLESS_MAIN(TestAnalysis)
#include "tst_analysis.moc"
