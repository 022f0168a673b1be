// sorvik-gateway-bench: the gateway at plant scale. N simulated controllers
// of 1000 float tags each, read at 1 s by a real sorvik-gateway that publishes
// to a local mosquitto, with a subscriber counting at the far end; beside each
// N the floor of the same drives reading the same blocks with no north side.
// N grows until a goal breaks (the knee); then the ways of carrying the
// pollers on threads are compared. Timings decide nothing about the exit
// status: 0 when the tables came out, 2 when the plant or broker did not start.

#include "BenchBroker.h"
#include "DriveLoader.h"
#include "Machine.h"
#include "PlantRun.h"
#include "PlantSimulators.h"
#include "PollFloor.h"
#include "ProgramOptions.h"
#include "Samples.h"
#include "Table.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDateTime>
#include <QTextStream>

#include <cstdio>

namespace {

// Plant sizes: a list of 1 to 2000 controllers, never empty.
QList<int> plantSizes(const QString &text, bool *ok)
{
    const QList<int> sizes = ProgramOptions::numberList(text, 1, 2000, ok);
    *ok = *ok && !sizes.isEmpty();
    return sizes;
}

QString ms(double value)
{
    return QStringLiteral("%1 ms").arg(value, 0, 'f', value < 10 ? 2 : 1);
}

QString threadsName(int pool)
{
    if (pool == 0)
        return QStringLiteral("one per controller");
    return pool == 1 ? QStringLiteral("one for all") : QStringLiteral("pool of %1").arg(pool);
}

QStringList plantRow(const PlantFigures &f, const QString &label)
{
    if (!f.failure.isEmpty())
        return {label, QStringLiteral("failed: ") + f.failure};
    const QStringList missed = f.missedGoals();
    return {label,
            QString::number(f.tagsPerSecond, 'f', 0),
            ms(f.lateMedianMs),
            ms(f.lateP99Ms),
            ms(f.lateMaxMs),
            QString::number(f.overruns),
            QString::number(f.cpuPerSecond, 'f', 3),
            QStringLiteral("%1 MB").arg(f.residentMb, 0, 'f', 0),
            ms(f.receiptMedianMs),
            ms(f.receiptP99Ms),
            QString::number(f.missing),
            missed.isEmpty() ? QStringLiteral("met") : QStringLiteral("MISSED: ") + missed.join(QStringLiteral(", "))};
}

const QStringList kPlantHeader{QStringLiteral("N"),           QStringLiteral("TAGS/S"),   QStringLiteral("LATE MED"),
                               QStringLiteral("LATE P99"),    QStringLiteral("LATE MAX"), QStringLiteral("OVERRUNS"),
                               QStringLiteral("CORES"),       QStringLiteral("RESIDENT"), QStringLiteral("RECEIPT MED"),
                               QStringLiteral("RECEIPT P99"), QStringLiteral("MISSING"),  QStringLiteral("GOALS")};

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("sorvik-gateway-bench"));
    QCoreApplication::setApplicationVersion(QStringLiteral(SORVIK_VERSION));
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Measures sorvik-gateway at plant scale against the floor of its drives alone."));
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption quick(QStringLiteral("quick"), QStringLiteral("A few controllers for a few seconds."));
    const QCommandLineOption controllers(QStringLiteral("controllers"),
                                         QStringLiteral("Plant sizes in turn until a goal breaks (200,300,...)."),
                                         QStringLiteral("LIST"));
    const QCommandLineOption threadsAt(QStringLiteral("threads-at"),
                                       QStringLiteral("Plant sizes of the thread comparison (50,200)."),
                                       QStringLiteral("LIST"));
    const QCommandLineOption window(QStringLiteral("seconds"), QStringLiteral("Measured seconds per run (12)."),
                                    QStringLiteral("S"));
    const QCommandLineOption hosts(QStringLiteral("hosts"),
                                   QStringLiteral("Loopback prefix of the controllers' addresses (127.2)."),
                                   QStringLiteral("A.B"), QStringLiteral("127.2"));
    const QCommandLineOption gateway(QStringLiteral("gateway"), QStringLiteral("The sorvik-gateway program."),
                                     QStringLiteral("FILE"), QStringLiteral(SORVIK_GATEWAY_FILE));
    const QCommandLineOption library(QStringLiteral("library"), QStringLiteral("The drive library."),
                                     QStringLiteral("FILE"), QStringLiteral(SORVIK_LIBRARY_FILE));
    const QCommandLineOption verbose(QStringLiteral("verbose"), QStringLiteral("Let the drive's log lines through."));
    parser.addOptions({quick, controllers, threadsAt, window, hosts, gateway, library, verbose});
    parser.process(app);

    const bool isQuick = parser.isSet(quick);
    bool ok = true;
    const QList<int> sizes = plantSizes(parser.isSet(controllers) ? parser.value(controllers)
                                        : isQuick                 ? QStringLiteral("3")
                                                                  : QStringLiteral("200,300,400,500,700"),
                                        &ok);
    bool threadsOk = true;
    const QList<int> threadSizes = plantSizes(parser.isSet(threadsAt) ? parser.value(threadsAt)
                                              : isQuick               ? QStringLiteral("3")
                                                                      : QStringLiteral("50,200"),
                                              &threadsOk);
    const int seconds = parser.isSet(window) ? parser.value(window).toInt() : isQuick ? 2 : 12;
    const QStringList prefix = parser.value(hosts).split(QLatin1Char('.'));
    if (!ok || !threadsOk || seconds < 1 || seconds > 600 || prefix.size() != 2 ||
        prefix.first() != QLatin1String("127")) {
        std::fprintf(stderr, "sorvik-gateway-bench: plant sizes are lists of 1 to 2000, --seconds 1 to 600, "
                             "--hosts a loopback prefix such as 127.2\n");
        return 1;
    }
    if (!parser.isSet(verbose))
        qInstallMessageHandler(ProgramOptions::quietMessages);

    PlantSetup setup;
    setup.gatewayProgram = parser.value(gateway);
    setup.library = parser.value(library);
    setup.windowSeconds = seconds;
    setup.warmCycles = isQuick ? 0 : 2;
    DriveLoader loader;
    QString why;
    BenchBroker broker;
    if (!loader.load(setup.library, &why) || !broker.start(&why)) {
        std::fprintf(stderr, "sorvik-gateway-bench: %s\n", qUtf8Printable(why));
        return 2;
    }
    PlantSimulators sims(parser.value(hosts));

    const QString loadBefore = Machine::loadAverage();
    const Machine::CoreTicks ticksBefore = Machine::coreTicks();
    QList<QStringList> plant{kPlantHeader};
    QList<QStringList> floors{{QStringLiteral("N"), QStringLiteral("TAGS/S"), QStringLiteral("LATE MED"),
                               QStringLiteral("LATE P99"), QStringLiteral("LATE MAX"), QStringLiteral("OVERRUNS"),
                               QStringLiteral("CORES"), QStringLiteral("GATEWAY / FLOOR")}};
    QList<PlantFigures> byThreads;
    QString knee;
    int lastMet = 0;
    for (int n : sizes) {
        std::fprintf(stderr, "plant of %d controllers\n", n);
        const PlantFigures figures = runPlant(setup, sims, broker, n, 0);
        plant << plantRow(figures, QString::number(n));
        if (threadSizes.contains(n))
            byThreads << figures;
        if (!figures.failure.isEmpty()) {
            std::fprintf(stderr, "sorvik-gateway-bench: %s\n", qUtf8Printable(figures.failure));
            // A plant that cannot even be run is past the knee; with nothing
            // measured before it there is no table to give.
            if (lastMet == 0)
                return 2;
            knee = QStringLiteral("knee: between %1 controllers (%2 tags/s, every goal met) and %3 (the run failed)")
                       .arg(lastMet)
                       .arg(lastMet * 1000)
                       .arg(n);
            break;
        }
        QStringList connections;
        for (int k = 0; k < n; ++k)
            connections << sims.connectText(k);
        std::fprintf(stderr, "floor of %d controllers\n", n);
        const FloorFigures floor = measureFloor(loader, connections, setup.warmCycles, qMin(seconds, 8));
        const Summary late = summarize(floor.latenessMs);
        double largest = 0;
        for (double value : floor.latenessMs)
            largest = qMax(largest, value);
        floors << (floor.failure.isEmpty()
                       ? QStringList{QString::number(n), QString::number(floor.tagsPerSecond, 'f', 0), ms(late.median),
                                     ms(late.p99), ms(largest), QString::number(floor.overruns),
                                     QString::number(floor.cpuPerSecond, 'f', 3),
                                     floor.cpuPerSecond > 0
                                         ? QString::number(figures.cpuPerSecond / floor.cpuPerSecond, 'f', 2)
                                         : QStringLiteral("-")}
                       : QStringList{QString::number(n), QStringLiteral("failed: ") + floor.failure});
        const QStringList missed = figures.missedGoals();
        if (!missed.isEmpty()) {
            knee = lastMet > 0 ? QStringLiteral("knee: between %1 controllers (%2 tags/s, every goal met) and %3 (%4)")
                                     .arg(lastMet)
                                     .arg(lastMet * 1000)
                                     .arg(n)
                                     .arg(missed.join(QStringLiteral(", ")))
                               : QStringLiteral("knee: below %1 controllers (%2)").arg(n).arg(missed.join(", "));
            break;
        }
        lastMet = n;
    }
    if (knee.isEmpty())
        knee = QStringLiteral("knee: not reached; every goal met up to %1 controllers (%2 tags/s)")
                   .arg(lastMet)
                   .arg(lastMet * 1000);

    QList<QStringList> threads{kPlantHeader};
    threads.first()[0] = QStringLiteral("N, THREADS");
    // The smallest plant once more with two controllers that never answer:
    // what their mates on a shared thread pay for them.
    QList<QPair<int, int>> threadRuns; // (controllers, of them dead)
    for (int n : threadSizes)
        threadRuns.append({n, 0});
    if (!isQuick && !threadSizes.isEmpty())
        threadRuns.append({threadSizes.first(), 2});
    for (const auto &[n, dead] : threadRuns)
        for (int pool : {0, 4, 1}) {
            PlantFigures figures;
            bool measured = false;
            for (const PlantFigures &earlier : qAsConst(byThreads))
                if (earlier.controllers == n && earlier.poolThreads == pool && dead == 0) {
                    figures = earlier;
                    measured = true;
                }
            const QString label = dead == 0
                                      ? QStringLiteral("%1, %2").arg(n).arg(threadsName(pool))
                                      : QStringLiteral("%1 (%2 dead), %3").arg(n).arg(dead).arg(threadsName(pool));
            if (!measured) {
                std::fprintf(stderr, "plant of %s\n", qUtf8Printable(label));
                figures = runPlant(setup, sims, broker, n, pool, dead);
            }
            threads << plantRow(figures, label);
        }

    const Machine::CoreTicks ticksAfter = Machine::coreTicks();
    const double busy = ticksAfter.total > ticksBefore.total
                            ? double(ticksAfter.busy - ticksBefore.busy) / double(ticksAfter.total - ticksBefore.total)
                            : 0;
    QTextStream out(stdout);
    out.setCodec("UTF-8");
    out << QStringLiteral("Sorvik gateway at plant scale, %1 run of %2\n")
               .arg(isQuick ? QStringLiteral("quick") : QStringLiteral("full"),
                    QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd hh:mm")))
        << QStringLiteral("machine: %1 cores, %2; load %3 before, %4 after; cores busy %5 % on average, "
                          "simulators, broker and subscriber included\n")
               .arg(Machine::cores())
               .arg(Machine::cpuModel(), loadBefore, Machine::loadAverage())
               .arg(busy * 100, 0, 'f', 0)
        << QStringLiteral("plant: each controller 1000 float tags (NAI1..NAI1000, 25 blocks) in one scan group at "
                          "1 s; %1 s measured per run from cycle %2 on\n")
               .arg(seconds)
               .arg(setup.warmCycles + 2)
        << QStringLiteral(
               "goals at 200 controllers, beyond it processor and memory in proportion to N: lateness p99 ≤ 50 ms, "
               "0 overruns, 0 missing, ≤ 0.5 core, ≤ 200 MB resident, receipt p99 ≤ 50 ms\n\n")
        << "gateway, one thread per controller (CORES: processor time per second; LATE MAX since start-up)\n";
    printRows(out, plant);
    out << knee << "\n\nfloor: the same drives and blocks, a thread each, no JSON and no MQTT\n";
    printRows(out, floors);
    out << "\nthreads carrying the pollers (a dead controller: a silent simulator; its tags count as none)\n";
    printRows(out, threads);
    return 0;
}
