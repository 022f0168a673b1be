#include "Commands.h"
#include "Console.h"
#include "Outcome.h"
#include "Output.h"
#include "Plural.h"
#include "ReadPlan.h"
#include "RecordRows.h"
#include "StopSignal.h"
#include "host/CDriveBaseClass.h"

#include <QElapsedTimer>
#include <QThread>

#include <algorithm>

namespace {

using Results = QMap<Induction::SReadInfo, CLabelVariable>;

// One cycle: every block in one request each, then the point tags one by one.
// Gives false when a stop was asked for in between; the cycle is then dropped.
bool readCycle(const CommandContext &context, const ReadPlan &plan, Results *results)
{
    for (const QList<Induction::SReadInfo> &key : plan.keys) {
        const Results block = context.drive->BlockReading(context.connectPar, key);
        for (auto it = block.cbegin(); it != block.cend(); ++it)
            results->insert(it.key(), it.value());
        if (StopSignal::requested())
            return false;
    }
    for (const Induction::SReadInfo &info : plan.pointTags) {
        results->insert(info, context.drive->PointReading(context.connectPar, info));
        if (StopSignal::requested())
            return false;
    }
    return true;
}

// Sleeps in short slices so that Ctrl-C is answered at once.
void waitUntil(const QElapsedTimer &clock, qint64 deadlineMs)
{
    while (!StopSignal::requested()) {
        const qint64 left = deadlineMs - clock.elapsed();
        if (left <= 0)
            return;
        QThread::msleep(ulong(std::min<qint64>(left, 20)));
    }
}

QString milliseconds(double ms)
{
    return QString::number(ms, 'f', 1);
}

} // namespace

int Commands::poll(const CommandContext &context)
{
    StopSignal::install();
    const ReadPlan plan = ReadPlan::make(context.drive, context.connectPar, context.items);
    Output &output = context.output;
    // On a terminal the table is redrawn in place, like a live display, when
    // it fits: the cursor cannot climb back above the top of the screen.
    const bool redraw = output.format() == OutputFormat::Table && Console::stdoutIsTerminal() &&
                        plan.tags.size() + 3 < Console::terminalLines();
    QStringList columns = RecordRows::columns();
    if (output.format() != OutputFormat::Table)
        columns.prepend(QStringLiteral("cycle"));
    output.setColumns(columns);

    Outcome outcome;
    QElapsedTimer clock;
    clock.start();
    double fastest = 0, slowest = 0, total = 0;
    int cycle = 0;
    while (!StopSignal::requested() && (context.options.cycles == 0 || cycle < context.options.cycles)) {
        const qint64 cycleStart = clock.elapsed();
        QElapsedTimer roundTrip;
        roundTrip.start();
        Results results;
        if (!readCycle(context, plan, &results))
            break;
        const double ms = double(roundTrip.nsecsElapsed()) / 1e6;
        ++cycle;
        fastest = cycle == 1 ? ms : std::min(fastest, ms);
        slowest = std::max(slowest, ms);
        total += ms;

        if (redraw)
            output.rewind();
        output.addNote(QStringLiteral("timing"),
                       QStringLiteral("cycle %1: %2 in %3 ms")
                           .arg(cycle)
                           .arg(plural(plan.requestsPerCycle(), "request", "requests"), milliseconds(ms)),
                       {{QStringLiteral("cycle"), Cells::number(qlonglong(cycle))},
                        {QStringLiteral("requests"), Cells::number(qlonglong(plan.requestsPerCycle()))},
                        {QStringLiteral("ms"), Cells::number(ms)}});
        for (const Induction::SReadInfo &info : plan.tags) {
            // A bit block whose read failed gives its tags no record: they show as not done.
            CLabelVariable record = results.value(info);
            QVector<Cell> cells = RecordRows::cells(info.tag, info.dataType, 1, record);
            if (output.format() != OutputFormat::Table)
                cells.prepend(Cells::number(qlonglong(cycle)));
            output.addRow(cells);
            outcome.addStatus(record.status);
        }
        output.endTable();
        if (cycle != context.options.cycles)
            waitUntil(clock, cycleStart + context.options.intervalMs);
    }
    if (redraw && StopSignal::requested())
        Console::out() << '\n'; // past the ^C that the terminal echoed

    if (cycle > 0)
        output.addNote(QStringLiteral("summary"),
                       QStringLiteral("%1 of %2 for %3; round trip %4/%5/%6 ms (min/avg/max)")
                           .arg(plural(cycle, "cycle", "cycles"),
                                plural(plan.requestsPerCycle(), "request", "requests"),
                                plural(plan.tags.size(), "tag", "tags"), milliseconds(fastest),
                                milliseconds(total / cycle), milliseconds(slowest)),
                       {{QStringLiteral("cycles"), Cells::number(qlonglong(cycle))},
                        {QStringLiteral("requests"), Cells::number(qlonglong(plan.requestsPerCycle()))},
                        {QStringLiteral("tags"), Cells::number(qlonglong(plan.tags.size()))},
                        {QStringLiteral("min_ms"), Cells::number(fastest)},
                        {QStringLiteral("avg_ms"), Cells::number(total / cycle)},
                        {QStringLiteral("max_ms"), Cells::number(slowest)}});
    return outcome.finish();
}
