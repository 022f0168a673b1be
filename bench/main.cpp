// sorvik-bench: the drive's figures, each beside the floor it is held
// against, measured in one run. Absolute times move from machine to machine;
// the ratios are what the goals are set on.

#include "BenchContext.h"
#include "Machine.h"
#include "ProgramOptions.h"
#include "rows/Rows.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDateTime>
#include <QFileInfo>
#include <QTextStream>

#include <cstdio>

namespace {

struct RowEntry {
    int number;
    const char *what;
    void (*measure)(BenchContext &);
};

const RowEntry kRows[] = {
    {1, "one-tag reads against raw UDP and the bare Qt path", Rows::oneTagReads},
    {2, "one-tag read against libmodbus", Rows::againstModbus},
    {3, "poll cycle against one-tag reads", Rows::pollCycle},
    {4, "planning", Rows::planning},
    {5, "cutting a block reply", Rows::blockCutting},
    {6, "host load", Rows::hostLoad},
    {7, "serial read over a pseudo-terminal", Rows::serialRead},
    {8, "drives on threads of their own", Rows::scale},
    {9, "the cost of a drive object", Rows::objectCost},
};

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("sorvik-bench"));
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Measures the Sorvik drive against its floors, in one run."));
    parser.addHelpOption();
    const QCommandLineOption quick(QStringLiteral("quick"), QStringLiteral("Few samples: the same table in seconds."));
    const QCommandLineOption rows(QStringLiteral("rows"), QStringLiteral("Only these rows, e.g. 1,3."),
                                  QStringLiteral("LIST"));
    const QCommandLineOption library(QStringLiteral("library"), QStringLiteral("The drive library to load."),
                                     QStringLiteral("FILE"), QStringLiteral(SORVIK_LIBRARY_FILE));
    const QCommandLineOption verbose(QStringLiteral("verbose"),
                                     QStringLiteral("Let the log lines of drive and simulator through."));
    parser.addOptions({quick, rows, library, verbose});
    parser.process(app);

    bool rowsOk = true;
    QList<int> chosen = ProgramOptions::numberList(parser.value(rows), 1, int(sizeof kRows / sizeof kRows[0]), &rowsOk);
    if (!rowsOk) {
        std::fprintf(stderr, "sorvik-bench: --rows takes numbers from 1 to %d, such as 1,3\n",
                     int(sizeof kRows / sizeof kRows[0]));
        return 2;
    }
    if (!parser.isSet(verbose))
        qInstallMessageHandler(ProgramOptions::quietMessages);

    BenchContext ctx;
    ctx.quick = parser.isSet(quick);
    QString why;
    if (!ctx.drives.load(parser.value(library), &why)) {
        std::fprintf(stderr, "sorvik-bench: %s\n", qUtf8Printable(why));
        return 1;
    }

    const QString loadBefore = Machine::loadAverage();
    for (const RowEntry &row : kRows) {
        if (!chosen.isEmpty() && !chosen.contains(row.number))
            continue;
        std::fprintf(stderr, "row %d: %s\n", row.number, row.what);
        row.measure(ctx);
    }

    ctx.table.setHeader({QStringLiteral("Sorvik drive against its floors, %1 run of %2")
                             .arg(ctx.quick ? QStringLiteral("quick") : QStringLiteral("full"),
                                  QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd hh:mm"))),
                         QStringLiteral("machine: %1 cores, %2; load %3 before, %4 after")
                             .arg(Machine::cores())
                             .arg(Machine::cpuModel(), loadBefore, Machine::loadAverage()),
                         // The file's name alone: the table goes into the README, where the
                         // folder of a build machine has no place.
                         QStringLiteral("library: %1").arg(QFileInfo(ctx.drives.fileName()).fileName()), QString()});
    QTextStream out(stdout);
    out.setCodec("UTF-8");
    ctx.table.print(out);
    return ctx.failed ? 1 : 0;
}
