// The figures of the table: percentiles, ratios, goals and the closing line.

#include "Table.h"

#include <QTextStream>
#include <QtTest>

class BenchTableTest : public QObject
{
    Q_OBJECT

private:
    static Summary figure(double median) { return summarize({median}); }

private slots:
    void medianAndPercentile()
    {
        std::vector<double> samples;
        for (int i = 100; i >= 1; --i)
            samples.push_back(i);
        const Summary summary = summarize(samples);
        QCOMPARE(summary.count, 100);
        QCOMPARE(summary.median, 50.5);
        QCOMPARE(summary.p99, 99.0);
        QCOMPARE(percentile(samples, 0.01), 1.0);
        QCOMPARE(percentile(samples, 1.0), 100.0);
        QCOMPARE(summarize({3, 1, 2}).median, 2.0);
    }

    void fewSamplesGiveTheirLargestAsP99()
    {
        QCOMPARE(summarize({5, 9, 7}).p99, 9.0);
        const Summary none = summarize({});
        QCOMPARE(none.count, 0);
        QCOMPARE(none.median, 0.0);
    }

    void ratioIsTakenFromTheMedians()
    {
        Table table;
        table.add(Line(1, QStringLiteral("drive"), Unit::Time, figure(30), QStringLiteral("floor"), figure(20)));
        QCOMPARE(table.lines().first().ratio, 1.5);
        table.add(Line(1, QStringLiteral("alone"), Unit::Time, figure(30)));
        QVERIFY(!table.lines().last().hasRatio());
    }

    void goalsOnRatioAndValue_data()
    {
        QTest::addColumn<double>("ratio");
        QTest::addColumn<double>("value");
        QTest::addColumn<int>("goal");
        QTest::addColumn<bool>("met");
        // goal: 0 ratio at most 1.5, 1 ratio below 1, 2 ratio equal to 1, 3 value at most 100
        QTest::newRow("at most, under") << 1.4 << 0.0 << 0 << true;
        QTest::newRow("at most, on the limit") << 1.5 << 0.0 << 0 << true;
        QTest::newRow("at most, over") << 1.6 << 0.0 << 0 << false;
        QTest::newRow("below, on the limit") << 1.0 << 0.0 << 1 << false;
        QTest::newRow("below, under") << 0.9 << 0.0 << 1 << true;
        QTest::newRow("equal") << 1.0 << 0.0 << 2 << true;
        QTest::newRow("not equal") << 1.04 << 0.0 << 2 << false;
        QTest::newRow("value under") << 1.0 << 99.0 << 3 << true;
        QTest::newRow("value over") << 1.0 << 101.0 << 3 << false;
        QTest::newRow("no ratio at all") << std::numeric_limits<double>::quiet_NaN() << 0.0 << 0 << false;
    }

    void goalsOnRatioAndValue()
    {
        QFETCH(double, ratio);
        QFETCH(double, value);
        QFETCH(int, goal);
        QFETCH(bool, met);
        const Goal goals[] = {Goal::ratioAtMost(1.5), Goal::ratioBelow(1.0), Goal::ratioEquals(1.0),
                              Goal::valueAtMost(100)};
        Line line(1, QStringLiteral("x"), Unit::Time, figure(value));
        line.ratio = ratio;
        QCOMPARE(goalMet(line, goals[goal]), met);
    }

    void summaryCountsGoalsAndNamesTheWorst()
    {
        Table table;
        Line near(1, QStringLiteral("drive read 160 B"), Unit::Time, figure(14), QStringLiteral("raw UDP"), figure(10));
        near.goals = {Goal::ratioAtMost(1.5)};
        table.add(near);
        Line missed(2, QStringLiteral("drive read 160 B"), Unit::Time, figure(12), QStringLiteral("libmodbus"),
                    figure(10));
        missed.goals = {Goal::ratioBelow(1.0)};
        table.add(missed);
        Line quick(4, QStringLiteral("plan"), Unit::Time, figure(0.1e9));
        quick.goals = {Goal::valueAtMost(0.25e9)};
        table.add(quick);
        QCOMPARE(
            table.summaryLine(),
            QStringLiteral("goals met 2 of 3, worst ratio 1.200 against < 1.00 (row 2, drive read 160 B / libmodbus)"));
    }

    void skippedRowsAreCountedInTheSummary()
    {
        Table table;
        table.skip(2, QStringLiteral("against libmodbus"), QStringLiteral("libmodbus missing"));
        QCOMPARE(table.skipped(), QStringList{QStringLiteral("row 2 (against libmodbus) skipped: libmodbus missing")});
        QCOMPARE(table.summaryLine(), QStringLiteral("goals met 0 of 0, 1 row skipped"));
        table.skip(4, QStringLiteral("planning"), QStringLiteral("no Google Benchmark"));
        QVERIFY(table.summaryLine().endsWith(QLatin1String(", 2 rows skipped")));
    }

    void figuresCarryTheirUnit_data()
    {
        QTest::addColumn<double>("value");
        QTest::addColumn<int>("unit");
        QTest::addColumn<QString>("text");
        QTest::newRow("nanoseconds") << 850.0 << int(Unit::Time) << QStringLiteral("850 ns");
        QTest::newRow("microseconds") << 31250.0 << int(Unit::Time) << QStringLiteral("31.25 µs");
        QTest::newRow("milliseconds") << 412.3e6 << int(Unit::Time) << QStringLiteral("412.3 ms");
        QTest::newRow("seconds") << 1.5e9 << int(Unit::Time) << QStringLiteral("1.500 s");
        QTest::newRow("rate") << 15049.0 << int(Unit::Rate) << QStringLiteral("15.0 k/s");
        QTest::newRow("count") << 25.0 << int(Unit::Count) << QStringLiteral("25");
    }

    void figuresCarryTheirUnit()
    {
        QFETCH(double, value);
        QFETCH(int, unit);
        QFETCH(QString, text);
        QCOMPARE(formatFigure(value, Unit(unit)), text);
    }

    void printedTableEndsWithTheSummary()
    {
        Table table;
        table.setHeader({QStringLiteral("machine: test")});
        Line line(1, QStringLiteral("drive read 4 B"), Unit::Time, figure(20000), QStringLiteral("raw UDP"),
                  figure(10000));
        line.goals = {Goal::ratioAtMost(1.5)};
        line.note = QStringLiteral("a note");
        table.add(line);
        QString text;
        QTextStream out(&text);
        table.print(out);
        const QStringList lines = text.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        QCOMPARE(lines.size(), 4);
        QCOMPARE(lines.at(0), QStringLiteral("machine: test"));
        QVERIFY(lines.at(1).startsWith(QLatin1String("ROW  MEASUREMENT")));
        QVERIFY2(lines.at(2).contains(QStringLiteral("2.000  ≤ 1.50 MISSED by 33.3 %  a note")),
                 qPrintable(lines.at(2)));
        QCOMPARE(lines.at(3), table.summaryLine());
    }
};

QTEST_APPLESS_MAIN(BenchTableTest)
#include "tst_bench_table.moc"
