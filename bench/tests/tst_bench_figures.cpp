// What makes a ratio of the table honest: both sides are measured in turns in
// the same run, compared by their medians, and judged against the right goal.

#include "Interleave.h"
#include "Table.h"

#include <QThread>
#include <QtTest>

#include <limits>

class BenchFiguresTest : public QObject
{
    Q_OBJECT

private:
    static Summary figure(double median) { return summarize({median}); }

private slots:
    void seriesTakeTurnsAfterAWarmUp()
    {
        QString order;
        Probe drive(QStringLiteral("drive"), [&] { order += QLatin1Char('d'); });
        Probe floor(QStringLiteral("floor"), [&] { order += QLatin1Char('f'); });
        int betweens = 0;
        runInterleaved({&drive, &floor}, {2, 3, 0}, [&] { ++betweens; });
        QCOMPARE(order, QStringLiteral("dddfff"
                                       "dddfff"
                                       "dddfff")); // the first round warms up and is not kept
        QCOMPARE(betweens, 6);
        QCOMPARE(drive.wallNs.size(), size_t(6));
        QCOMPARE(floor.wallNs.size(), size_t(6));
    }

    void processorTimeCountsWorkNotSleep()
    {
        const double before = threadCpuNs();
        QThread::msleep(30);
        QVERIFY(threadCpuNs() - before < 20e6);
    }

    void medianAndPercentile()
    {
        std::vector<double> samples;
        for (int i = 100; i >= 1; --i)
            samples.push_back(i);
        const Summary summary = summarize(samples);
        QCOMPARE(summary.median, 50.5);
        QCOMPARE(summary.p99, 99.0);
        QCOMPARE(summarize({3, 1, 2}).median, 2.0);
        QCOMPARE(summarize({5, 9, 7}).p99, 9.0); // few samples: their largest
    }

    void ratioIsTakenFromTheMediansOfOneLine()
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
};

QTEST_APPLESS_MAIN(BenchFiguresTest)
#include "tst_bench_figures.moc"
