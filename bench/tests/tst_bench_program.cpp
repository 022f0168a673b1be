// sorvik-bench as a program: the rows it is asked for, the poll cycle's
// request count, and its refusals. Timings are never looked at.

#include <QProcess>
#include <QtTest>

namespace {

struct Run {
    int exitCode = -1;
    QStringList lines;
    QString errors;
};

Run runBench(const QStringList &arguments)
{
    QProcess process;
    process.start(QStringLiteral(SORVIK_BENCH_FILE), arguments);
    Run run;
    if (!process.waitForFinished(120000))
        return run;
    run.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    run.lines = QString::fromUtf8(process.readAllStandardOutput()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    run.errors = QString::fromUtf8(process.readAllStandardError());
    return run;
}

QStringList linesOfRow(const Run &run, int row)
{
    const QString start = QStringLiteral("%1 ").arg(row);
    QStringList out;
    for (const QString &line : run.lines)
        if (line.startsWith(start))
            out.append(line);
    return out;
}

} // namespace

class BenchProgramTest : public QObject
{
    Q_OBJECT

private slots:
    void pollCycleAsksOnceABlock()
    {
        const Run run = runBench({QStringLiteral("--quick"), QStringLiteral("--rows"), QStringLiteral("3")});
        QVERIFY2(run.exitCode == 0, qPrintable(run.errors));
        const QStringList lines = linesOfRow(run, 3);
        QCOMPARE(lines.size(), 2);
        QVERIFY2(lines.at(0).contains(QStringLiteral("requests per poll cycle")), qPrintable(lines.at(0)));
        QVERIFY2(lines.at(0).contains(QStringLiteral("= 1.00 met")), qPrintable(lines.at(0)));
        QVERIFY2(lines.at(0).endsWith(QStringLiteral("1000 tags in 25 blocks")), qPrintable(lines.at(0)));
        QVERIFY(lines.at(1).contains(QStringLiteral("1000 one-tag reads")));
    }

    void onlyTheChosenRowsAreMeasured()
    {
        const Run run = runBench({QStringLiteral("--quick"), QStringLiteral("--rows"), QStringLiteral("5,7")});
        QVERIFY2(run.exitCode == 0, qPrintable(run.errors));
        for (int row : {1, 2, 3, 4, 6, 8})
            QVERIFY2(linesOfRow(run, row).isEmpty(), qPrintable(QString::number(row)));
        QCOMPARE(linesOfRow(run, 7).size(), 2);
        const bool cut = linesOfRow(run, 5).size() == 1;
        const bool skipped = run.lines.contains(QStringLiteral(
            "row 5 (block cutting) skipped: Google Benchmark (libbenchmark-dev) was not found when this was built"));
        QVERIFY(cut != skipped);
        QVERIFY(run.lines.first().startsWith(QStringLiteral("Sorvik drive against its floors, quick run of ")));
        QVERIFY(run.lines.last().startsWith(QStringLiteral("goals met ")));
        QCOMPARE(run.errors,
                 QStringLiteral("row 5: cutting a block reply\nrow 7: serial read over a pseudo-terminal\n"));
    }

    void unknownRowsAreRefused()
    {
        const Run run = runBench({QStringLiteral("--rows"), QStringLiteral("2,10")});
        QCOMPARE(run.exitCode, 2);
        QVERIFY(run.lines.isEmpty());
        QCOMPARE(run.errors, QStringLiteral("sorvik-bench: --rows takes numbers from 1 to 9, such as 1,3\n"));
    }

    void aLibraryThatDoesNotLoadIsRefused()
    {
        const Run run = runBench({QStringLiteral("--library"), QStringLiteral("/nonexistent/libSorvik.so")});
        QCOMPARE(run.exitCode, 1);
        QVERIFY(run.lines.isEmpty());
        QVERIFY2(run.errors.startsWith(QStringLiteral("sorvik-bench: cannot load /nonexistent/libSorvik.so")),
                 qPrintable(run.errors));
    }
};

QTEST_GUILESS_MAIN(BenchProgramTest)
#include "tst_bench_program.moc"
