#include "Commands.h"
#include "Console.h"
#include "LinkKeeper.h"
#include "Outcome.h"
#include "Output.h"
#include "Plural.h"
#include "Presence.h"
#include "ReadPlan.h"
#include "RecordRows.h"
#include "host/CDriveBaseClass.h"
#include "host/RecordStatus.h"
#include "programs/StopSignal.h"

#include <QElapsedTimer>
#include <QThread>

#include <algorithm>

namespace {

// What a cycle gave each tag: its record, or why it has none.
struct Reading {
    CLabelVariable record;
    bool read = false;
    QString note; // beside the meaning, or the reason when not read
};
using Readings = QMap<Induction::SReadInfo, Reading>;

QString blockName(const SReadGroup &group)
{
    return QStringLiteral("%1%2+%3").arg(group.areaText, group.start.toString()).arg(group.length);
}

// One cycle: every block in one request each, then the point tags one by
// one. A lost reply resynchronises the link before the next request; while
// the link is down nothing is sent. Gives false when a stop was asked for in
// between; the cycle is then dropped.
bool readCycle(const CommandContext &context, const ReadPlan &plan, LinkKeeper &link, Readings *readings)
{
    for (int b = 0; b < plan.keys.size(); ++b) {
        const QList<Induction::SReadInfo> &key = plan.keys.at(b);
        if (!link.ready()) {
            for (const Induction::SReadInfo &info : key)
                readings->insert(info, {CLabelVariable(), false, link.unreadReason()});
            continue;
        }
        const QMap<Induction::SReadInfo, CLabelVariable> block = context.drive->BlockReading(context.connectPar, key);
        // A block read either succeeds for all its tags or fails for all:
        // a failed bit block gives its tags no record at all.
        bool failed = block.isEmpty();
        for (const CLabelVariable &record : block)
            failed = failed || record.status != RecordStatus::Ok;
        if (failed)
            link.noteLost();
        const QString note = failed ? QStringLiteral("block %1 failed").arg(blockName(plan.groups.at(b))) : QString();
        for (const Induction::SReadInfo &info : key)
            readings->insert(info, {block.value(info), true, note});
        if (StopSignal::requested())
            return false;
    }
    for (const Induction::SReadInfo &info : plan.pointTags) {
        if (!link.ready()) {
            readings->insert(info, {CLabelVariable(), false, link.unreadReason()});
            continue;
        }
        const CLabelVariable record = context.drive->PointReading(context.connectPar, info);
        link.noteStatus(record.status);
        readings->insert(info, {record, true, QString()});
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
    // it fits: the cursor cannot climb back above the top of the screen, nor
    // over lines that wrapped.
    const bool redraw = output.format() == OutputFormat::Table && Console::stdoutIsTerminal() &&
                        plan.tags.size() + 3 < Console::terminalLines();
    if (redraw)
        output.setTerminalColumns(Console::terminalColumns());
    QStringList columns = RecordRows::columns();
    if (output.format() != OutputFormat::Table)
        columns.prepend(QStringLiteral("cycle"));
    output.setColumns(columns);

    Outcome outcome;
    LinkKeeper link(context.drive, context.connectPar);
    Presence presence;
    QElapsedTimer clock;
    clock.start();
    double fastest = 0, slowest = 0, total = 0;
    int cycle = 0;
    while (!StopSignal::requested() && (context.options.cycles == 0 || cycle < context.options.cycles)) {
        const qint64 cycleStart = clock.elapsed();
        QElapsedTimer roundTrip;
        roundTrip.start();
        Readings readings;
        if (!readCycle(context, plan, link, &readings))
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
        bool anyGood = false;
        for (const Induction::SReadInfo &info : plan.tags) {
            const Reading reading = readings.value(info);
            QVector<Cell> cells;
            if (reading.read) {
                cells = RecordRows::cells(info.tag, info.dataType, 1, reading.record, reading.note);
                outcome.addStatus(reading.record.status);
                anyGood = anyGood || reading.record.status == RecordStatus::Ok;
            } else {
                cells = RecordRows::withoutRecord(info.tag, info.dataType, 1, reading.note);
                outcome.addUnread();
            }
            if (output.format() != OutputFormat::Table)
                cells.prepend(Cells::number(qlonglong(cycle)));
            output.addRow(cells);
        }
        output.endTable();
        presence.cycle(anyGood);
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
