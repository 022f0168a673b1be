// sorvik-sim: a Sorvik controller stand-in on UDP, a pseudo-terminal or a
// serial port, with preset memory and optional faults.

#include "SimLiveValues.h"
#include "SimPresets.h"
#include "SimSelfDescribing.h"
#include "SorvikSimulator.h"
#include "programs/ExitCode.h"
#include "programs/NumberText.h"
#include "programs/StopSignal.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <QLoggingCategory>
#include <QTextStream>

#include <cstdio>
#include <limits>

namespace {

struct Options {
    QCommandLineOption address{"address", "UDP address to serve on (default 127.0.0.1).", "address", "127.0.0.1"};
    QCommandLineOption port{"port", "UDP port to serve on; 0 lets the system choose (default).", "port", "0"};
    QCommandLineOption pty{"pty", "Serve on a new pseudo-terminal instead of UDP."};
    QCommandLineOption serial{"serial", "Serve on a serial port instead of UDP.", "name,baud,databits,stopbits,parity"};
    QCommandLineOption set{"set", "Preset memory, e.g. AI1=int32:42 (repeatable).", "TAG=TYPE:VALUE[,VALUE...]"};
    QCommandLineOption presetFile{"preset-file", "Preset memory from a file, one assignment a line, # comments.",
                                  "file"};
    QCommandLineOption seed{"seed", "Seed of the random fault draws (default 1).", "n", "1"};
    QCommandLineOption drop{"drop", "Share of replies not sent, 0 to 1.", "share"};
    QCommandLineOption delay{"delay", "Delay every reply by this many milliseconds.", "ms"};
    QCommandLineOption wrongIdentity{"wrong-identity", "Share of replies whose bytes 0 and 1 are wrong, 0 to 1.",
                                     "share"};
    QCommandLineOption truncate{"truncate", "Cut every reply to this many bytes.", "bytes"};
    QCommandLineOption pad{"pad", "Pad read replies to 1472 bytes."};
    QCommandLineOption overlong{"overlong", "Append garbage beyond 1472 bytes to every reply."};
    QCommandLineOption extraDatagram{"extra-datagram", "Send every reply twice."};
    QCommandLineOption emptyFirst{"empty-first", "Send an empty datagram before every reply."};
    QCommandLineOption silent{"silent", "Answer nothing at all."};
    QCommandLineOption late{"late",
                            "Hold the reply to the N-th read or write request (from 1, handshakes not counted) "
                            "for MS milliseconds while later requests are answered at once (repeatable).",
                            "N:MS"};
    QCommandLineOption lateShare{"late-share", "Hold a share (0 to 1, drawn by --seed) of replies MS milliseconds.",
                                 "SHARE:MS"};
    QCommandLineOption selfDescribing{"self-describing",
                                      "Fill the memory so that every value names controller ID (0 to 199), its area "
                                      "and its address; --set and --preset-file still win.",
                                      "ID"};
    QCommandLineOption live{"live", "Run a small demo process: inputs (AI, DI, SA, NAI, SI) that change over time."};
    QCommandLineOption logFrames{"log-frames", "Log every frame in and out as hexadecimal text on stderr."};

    void addTo(QCommandLineParser *parser) const
    {
        for (const QCommandLineOption *option :
             {&address,        &port,     &pty,      &serial,   &set,           &presetFile, &seed,   &drop, &delay,
              &wrongIdentity,  &truncate, &pad,      &overlong, &extraDatagram, &emptyFirst, &silent, &late, &lateShare,
              &selfDescribing, &live,     &logFrames})
            parser->addOption(*option);
    }
};

// Each step below gives false and a one-line reason in `*why` when the
// options ask for what cannot be done; main() reports it and ends with 1.

bool integerOption(const QCommandLineParser &parser, const QCommandLineOption &option, qlonglong low, qlonglong high,
                   qlonglong *value, QString *why)
{
    const QString text = parser.value(option);
    if (NumberText::parseWhole(text, low, high, value))
        return true;
    *why = QStringLiteral("--%1 wants a whole number from %2 to %3, not \"%4\"")
               .arg(option.names().first())
               .arg(low)
               .arg(high)
               .arg(text);
    return false;
}

bool shareOption(const QCommandLineParser &parser, const QCommandLineOption &option, double *value, QString *why)
{
    const QString text = parser.value(option);
    if (NumberText::parseShare(text, value))
        return true;
    *why = QStringLiteral("--%1 wants a share from 0 to 1, not \"%2\"").arg(option.names().first(), text);
    return false;
}

constexpr qlonglong kLongestHoldMs = 3600 * 1000;

// "N:MS" of --late, or "SHARE:MS" of --late-share: the part before the colon
// as `first` (a whole number or a share), the milliseconds after it.
bool splitLate(const QString &option, const QString &text, bool shareFirst, double *first, int *ms, QString *why)
{
    const QStringList parts = text.split(QLatin1Char(':'));
    qlonglong request = 0;
    qlonglong wait = 0;
    const bool ok = parts.size() == 2 &&
                    (shareFirst ? NumberText::parseShare(parts[0], first)
                                : NumberText::parseWhole(parts[0], 1, std::numeric_limits<int>::max(), &request)) &&
                    NumberText::parseWhole(parts[1], 0, kLongestHoldMs, &wait);
    if (!ok) {
        *why = QStringLiteral("--%1 wants %2:MS with MS from 0 to %3, not \"%4\"")
                   .arg(option, shareFirst ? QStringLiteral("SHARE (0 to 1)") : QStringLiteral("N (from 1)"))
                   .arg(kLongestHoldMs)
                   .arg(text);
        return false;
    }
    if (!shareFirst)
        *first = double(request);
    *ms = int(wait);
    return true;
}

bool faultsFrom(const QCommandLineParser &parser, const Options &o, SimFaults *faults, QString *why)
{
    qlonglong number = 0;
    if (!integerOption(parser, o.seed, 0, 0xFFFFFFFFLL, &number, why))
        return false;
    faults->seed = quint32(number);
    if (parser.isSet(o.drop) && !shareOption(parser, o.drop, &faults->dropShare, why))
        return false;
    if (parser.isSet(o.delay)) {
        if (!integerOption(parser, o.delay, 0, kLongestHoldMs, &number, why))
            return false;
        faults->delayMs = int(number);
    }
    if (parser.isSet(o.wrongIdentity) && !shareOption(parser, o.wrongIdentity, &faults->wrongIdentityShare, why))
        return false;
    if (parser.isSet(o.truncate)) {
        if (!integerOption(parser, o.truncate, 0, 1 << 20, &number, why))
            return false;
        faults->truncateTo = int(number);
    }
    faults->padReplies = parser.isSet(o.pad);
    faults->overlongReplies = parser.isSet(o.overlong);
    faults->extraDatagram = parser.isSet(o.extraDatagram);
    faults->emptyDatagramFirst = parser.isSet(o.emptyFirst);
    faults->silent = parser.isSet(o.silent);
    for (const QString &text : parser.values(o.late)) {
        double request = 0;
        int ms = 0;
        if (!splitLate(QStringLiteral("late"), text, false, &request, &ms, why))
            return false;
        faults->lateReplies.insert(int(request), ms); // the last of several for one request counts
    }
    return !parser.isSet(o.lateShare) || splitLate(QStringLiteral("late-share"), parser.value(o.lateShare), true,
                                                   &faults->lateShare, &faults->lateShareMs, why);
}

// Stores one assignment and keeps the demo of --live off its bytes.
bool presetOne(const QString &assignment, SorvikSimulator *sim, SimLiveValues *live, QString *why)
{
    SimPreset value;
    if (!SimPresets::parse(assignment, &value, why))
        return false;
    sim->preset(value.area, value.address, value.bytes);
    live->keep(value.area, value.address, value.bytes.size());
    return true;
}

bool presetFrom(const QCommandLineParser &parser, const Options &o, SorvikSimulator *sim, SimLiveValues *live,
                QString *why)
{
    // The fill comes first, so that presets are written over it.
    if (parser.isSet(o.selfDescribing)) {
        qlonglong controller = 0;
        if (!integerOption(parser, o.selfDescribing, 0, SimSelfDescribing::kLastController, &controller, why))
            return false;
        sim->fillSelfDescribing(int(controller));
    }
    if (parser.isSet(o.presetFile)) {
        const QString path = parser.value(o.presetFile);
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
            *why = QStringLiteral("cannot read %1: %2").arg(path, file.errorString());
            return false;
        }
        QTextStream in(&file);
        for (int number = 1; !in.atEnd(); ++number) {
            const QString line = in.readLine().trimmed();
            if (line.isEmpty() || line.startsWith(QLatin1Char('#')))
                continue;
            if (!presetOne(line, sim, live, why)) {
                *why = QStringLiteral("%1:%2: %3").arg(path).arg(number).arg(*why);
                return false;
            }
        }
    }
    for (const QString &assignment : parser.values(o.set))
        if (!presetOne(assignment, sim, live, why))
            return false;
    return true;
}

// Starts the chosen transport and gives in `*where` the line that tells where it serves.
bool startTransport(const QCommandLineParser &parser, const Options &o, SorvikSimulator *sim, QString *where,
                    QString *why)
{
    const bool udpOptions = parser.isSet(o.address) || parser.isSet(o.port);
    if (parser.isSet(o.pty) + parser.isSet(o.serial) + udpOptions > 1) {
        *why = QStringLiteral("choose one of --pty, --serial and UDP (--address, --port)");
        return false;
    }

    if (parser.isSet(o.pty)) {
        const QString path = sim->startPty();
        if (path.isEmpty()) {
            *why = QStringLiteral("cannot make a pseudo-terminal");
            return false;
        }
        *where = QStringLiteral("pty ") + path;
        return true;
    }
    if (parser.isSet(o.serial)) {
        const QStringList fields = parser.value(o.serial).split(QLatin1Char(','));
        qlonglong baud = 0;
        qlonglong dataBits = 0;
        qlonglong stopBits = 0;
        constexpr qlonglong kMost = std::numeric_limits<int>::max();
        if (fields.size() != 5 || !NumberText::parseWhole(fields[1], 0, kMost, &baud) ||
            !NumberText::parseWhole(fields[2], 0, kMost, &dataBits) ||
            !NumberText::parseWhole(fields[3], 0, kMost, &stopBits)) {
            *why = QStringLiteral("--serial wants name,baud,databits,stopbits,parity, not \"%1\"")
                       .arg(parser.value(o.serial));
            return false;
        }
        if (!sim->startSerial(fields[0], int(baud), int(dataBits), int(stopBits), fields[4])) {
            *why = QStringLiteral("cannot serve on serial port %1").arg(fields[0]);
            return false;
        }
        *where = QStringLiteral("serial ") + fields[0];
        return true;
    }
    const QHostAddress address(parser.value(o.address));
    if (address.isNull()) {
        *why = QStringLiteral("--address wants an IP address, not \"%1\"").arg(parser.value(o.address));
        return false;
    }
    qlonglong wanted = 0;
    if (!integerOption(parser, o.port, 0, 65535, &wanted, why))
        return false;
    const quint16 port = sim->startUdp(address, quint16(wanted));
    if (port == 0) {
        *why = QStringLiteral("cannot serve UDP on %1:%2").arg(address.toString()).arg(wanted);
        return false;
    }
    *where = QStringLiteral("udp %1:%2").arg(address.toString()).arg(port);
    return true;
}

// Reads the options and starts serving. False with the reason in `*why`.
bool start(const QCommandLineParser &parser, const Options &options, SorvikSimulator *sim, SimLiveValues *live,
           QString *why)
{
    if (!parser.positionalArguments().isEmpty()) {
        *why = QStringLiteral("unexpected argument \"%1\"").arg(parser.positionalArguments().first());
        return false;
    }
    if (parser.isSet(options.logFrames))
        QLoggingCategory::setFilterRules(QStringLiteral("sorvik.sim.frames.debug=true"));
    SimFaults faults;
    if (!faultsFrom(parser, options, &faults, why))
        return false;
    sim->setFaults(faults);
    if (!presetFrom(parser, options, sim, live, why))
        return false;
    if (parser.isSet(options.live))
        live->start();
    if (!StopSignal::install(QCoreApplication::instance(), &QCoreApplication::quit)) {
        *why = QStringLiteral("cannot watch for signals");
        return false;
    }
    QString where;
    if (!startTransport(parser, options, sim, &where, why))
        return false;
    std::fprintf(stdout, "%s\n", qUtf8Printable(where));
    std::fflush(stdout);
    return true;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("sorvik-sim"));
    QCoreApplication::setApplicationVersion(QStringLiteral(SORVIK_SIM_VERSION));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Sorvik controller simulator: answers the handshake, reads and writes from its own memory "
                       "over UDP, a pseudo-terminal or a serial port, until SIGINT or SIGTERM.\n"
                       "Prints where it serves on stdout (\"udp ADDRESS:PORT\", \"pty PATH\" or \"serial NAME\"), "
                       "and its counters on stderr when it ends."));
    const QCommandLineOption help = parser.addHelpOption();
    const QCommandLineOption version = parser.addVersionOption();
    const Options options;
    options.addTo(&parser);

    SorvikSimulator sim;
    SimLiveValues live(&sim);
    QString why;
    bool started = parser.parse(QCoreApplication::arguments());
    if (!started) {
        why = parser.errorText();
    } else {
        if (parser.isSet(help))
            parser.showHelp(ExitOk);
        if (parser.isSet(version))
            parser.showVersion();
        started = start(parser, options, &sim, &live, &why);
    }
    if (!started) {
        std::fprintf(stderr, "sorvik-sim: %s\n", qUtf8Printable(why));
        return ExitUsage;
    }

    const int status = app.exec();
    live.stop();
    sim.stop();
    const SimCounters c = sim.counters();
    std::fprintf(stderr, "frames %d handshakes %d reads %d writes %d invalid %d faults %d\n", c.frames, c.handshakes,
                 c.reads, c.writes, c.invalid, c.faults);
    return status;
}
