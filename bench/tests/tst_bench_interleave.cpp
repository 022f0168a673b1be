// Interleaving: chunks of every series in turn, warm-up dropped.

#include "Interleave.h"

#include <QtTest>

class BenchInterleaveTest : public QObject
{
    Q_OBJECT

private slots:
    void chunksTakeTurnsAfterAWarmUp()
    {
        QString order;
        Probe a(QStringLiteral("a"), [&] { order += QLatin1Char('a'); });
        Probe b(QStringLiteral("b"), [&] { order += QLatin1Char('b'); });
        int betweens = 0;
        runInterleaved({&a, &b}, {2, 3, 0}, [&] { ++betweens; });
        QCOMPARE(order, QStringLiteral("aaabbb"
                                       "aaabbb"
                                       "aaabbb")); // the first round warms up
        QCOMPARE(betweens, 6);
        QCOMPARE(a.wallNs.size(), size_t(6));
        QCOMPARE(b.wallNs.size(), size_t(6));
        QVERIFY(a.cpuNs.empty());
    }

    void warmUpLastsItsTime()
    {
        int calls = 0;
        Probe slow(QStringLiteral("slow"), [&] {
            ++calls;
            QThread::msleep(10);
        });
        runInterleaved({&slow}, {1, 1, 50});
        QVERIFY(calls >= 6); // five or more to warm up, one kept
        QCOMPARE(slow.wallNs.size(), size_t(1));
    }

    void processorTimeIsTakenOnlyWhenAsked()
    {
        volatile double sink = 0;
        Probe busy(
            QStringLiteral("busy"),
            [&] {
                for (int i = 0; i < 20000; ++i)
                    sink = sink + i;
            },
            true);
        runInterleaved({&busy}, {4, 2, 0});
        QCOMPARE(busy.cpuNs.size(), size_t(8));
        QCOMPARE(busy.wallNs.size(), size_t(8));
        for (double cpu : busy.cpuNs)
            QVERIFY(cpu >= 0);
    }

    void threadClockCountsWorkNotSleep()
    {
        const double before = threadCpuNs();
        QThread::msleep(30);
        QVERIFY(threadCpuNs() - before < 20e6);
    }
};

QTEST_APPLESS_MAIN(BenchInterleaveTest)
#include "tst_bench_interleave.moc"
