// sorvik-sim: a Sorvik controller stand-in on UDP, a pseudo-terminal or a
// serial port, with preset memory and optional faults.

#include "SimLiveValues.h"
#include "SimPresets.h"
#include "SimSelfDescribing.h"
#include "SorvikSimulator.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <QLoggingCategory>
#include <QSocketNotifier>
#include <QTextStream>

#include <csignal>
#include <cstdio>
#include <sys/socket.h>
#include <unistd.h>

namespace {

int g_signalPipe[2] = {-1, -1};

void onSignal(int)
{
    const char byte = 1;
    [[maybe_unused]] const ssize_t ignored = ::write(g_signalPipe[0], &byte, 1);
}

// SIGINT and SIGTERM end the event loop through a socket pair, since a signal
// handler may do no more than write a byte.
bool quitOnSignals(QCoreApplication *app)
{
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, g_signalPipe) != 0)
        return false;
    auto *notifier = new QSocketNotifier(g_signalPipe[1], QSocketNotifier::Read, app);
    QObject::connect(notifier, &QSocketNotifier::activated, app, &QCoreApplication::quit);
    struct sigaction action {
    };
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    return ::sigaction(SIGINT, &action, nullptr) == 0 && ::sigaction(SIGTERM, &action, nullptr) == 0;
}

// Option errors end the program with one line on stderr and status 1.
class BadUsage
{
public:
    explicit BadUsage(QString text) : m_text(std::move(text)) {}
    const QString &text() const { return m_text; }

private:
    QString m_text;
};

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

qlonglong integerOption(const QCommandLineParser &parser, const QCommandLineOption &option, qlonglong low,
                        qlonglong high)
{
    const QString text = parser.value(option);
    bool ok = false;
    const qlonglong value = text.toLongLong(&ok);
    if (!ok || value < low || value > high)
        throw BadUsage(QStringLiteral("--%1 wants a whole number from %2 to %3, not \"%4\"")
                           .arg(option.names().first())
                           .arg(low)
                           .arg(high)
                           .arg(text));
    return value;
}

double shareOption(const QCommandLineParser &parser, const QCommandLineOption &option)
{
    const QString text = parser.value(option);
    bool ok = false;
    const double value = text.toDouble(&ok);
    if (!ok || !(value >= 0.0 && value <= 1.0))
        throw BadUsage(QStringLiteral("--%1 wants a share from 0 to 1, not \"%2\"").arg(option.names().first(), text));
    return value;
}

constexpr qlonglong kLongestHoldMs = 3600 * 1000;

// "N:MS" of --late, or "SHARE:MS" of --late-share: the part before the colon
// as `first` (a whole number or a share), the milliseconds after it.
void splitLate(const QString &option, const QString &text, bool shareFirst, double *first, int *ms)
{
    const QStringList parts = text.split(QLatin1Char(':'));
    bool ok = parts.size() == 2;
    if (ok && shareFirst) {
        *first = parts[0].toDouble(&ok);
        ok = ok && *first >= 0.0 && *first <= 1.0;
    } else if (ok) {
        *first = double(parts[0].toInt(&ok));
        ok = ok && *first >= 1;
    }
    const qlonglong wait = ok ? parts[1].toLongLong(&ok) : 0;
    if (!ok || wait < 0 || wait > kLongestHoldMs)
        throw BadUsage(QStringLiteral("--%1 wants %2:MS with MS from 0 to %3, not \"%4\"")
                           .arg(option, shareFirst ? QStringLiteral("SHARE (0 to 1)") : QStringLiteral("N (from 1)"))
                           .arg(kLongestHoldMs)
                           .arg(text));
    *ms = int(wait);
}

SimFaults faultsFrom(const QCommandLineParser &parser, const Options &o)
{
    SimFaults faults;
    faults.seed = quint32(integerOption(parser, o.seed, 0, 0xFFFFFFFFLL));
    if (parser.isSet(o.drop))
        faults.dropShare = shareOption(parser, o.drop);
    if (parser.isSet(o.delay))
        faults.delayMs = int(integerOption(parser, o.delay, 0, kLongestHoldMs));
    if (parser.isSet(o.wrongIdentity))
        faults.wrongIdentityShare = shareOption(parser, o.wrongIdentity);
    if (parser.isSet(o.truncate))
        faults.truncateTo = int(integerOption(parser, o.truncate, 0, 1 << 20));
    faults.padReplies = parser.isSet(o.pad);
    faults.overlongReplies = parser.isSet(o.overlong);
    faults.extraDatagram = parser.isSet(o.extraDatagram);
    faults.emptyDatagramFirst = parser.isSet(o.emptyFirst);
    faults.silent = parser.isSet(o.silent);
    for (const QString &text : parser.values(o.late)) {
        double request = 0;
        int ms = 0;
        splitLate(QStringLiteral("late"), text, false, &request, &ms);
        faults.lateReplies.insert(int(request), ms); // the last of several for one request counts
    }
    if (parser.isSet(o.lateShare))
        splitLate(QStringLiteral("late-share"), parser.value(o.lateShare), true, &faults.lateShare,
                  &faults.lateShareMs);
    return faults;
}

// Stores one assignment and keeps the demo of --live off its bytes.
bool presetOne(const QString &assignment, SorvikSimulator *sim, SimLiveValues *live, QString *error)
{
    SimPreset value;
    if (!SimPresets::parse(assignment, &value, error))
        return false;
    sim->preset(value.area, value.address, value.bytes);
    live->keep(value.area, value.address, value.bytes.size());
    return true;
}

void presetFrom(const QCommandLineParser &parser, const Options &o, SorvikSimulator *sim, SimLiveValues *live)
{
    // The fill comes first, so that presets are written over it.
    if (parser.isSet(o.selfDescribing))
        sim->fillSelfDescribing(int(integerOption(parser, o.selfDescribing, 0, SimSelfDescribing::kLastController)));
    QString error;
    if (parser.isSet(o.presetFile)) {
        const QString path = parser.value(o.presetFile);
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
            throw BadUsage(QStringLiteral("cannot read %1: %2").arg(path, file.errorString()));
        QTextStream in(&file);
        for (int number = 1; !in.atEnd(); ++number) {
            const QString line = in.readLine().trimmed();
            if (line.isEmpty() || line.startsWith(QLatin1Char('#')))
                continue;
            if (!presetOne(line, sim, live, &error))
                throw BadUsage(QStringLiteral("%1:%2: %3").arg(path).arg(number).arg(error));
        }
    }
    for (const QString &assignment : parser.values(o.set))
        if (!presetOne(assignment, sim, live, &error))
            throw BadUsage(error);
}

// Starts the chosen transport and gives the line that tells where it serves.
QString startTransport(const QCommandLineParser &parser, const Options &o, SorvikSimulator *sim)
{
    const bool udpOptions = parser.isSet(o.address) || parser.isSet(o.port);
    if (parser.isSet(o.pty) + parser.isSet(o.serial) + udpOptions > 1)
        throw BadUsage(QStringLiteral("choose one of --pty, --serial and UDP (--address, --port)"));

    if (parser.isSet(o.pty)) {
        const QString path = sim->startPty();
        if (path.isEmpty())
            throw BadUsage(QStringLiteral("cannot make a pseudo-terminal"));
        return QStringLiteral("pty ") + path;
    }
    if (parser.isSet(o.serial)) {
        const QStringList fields = parser.value(o.serial).split(QLatin1Char(','));
        bool ok = fields.size() == 5;
        const int baud = ok ? fields[1].toInt(&ok) : 0;
        const int dataBits = ok ? fields[2].toInt(&ok) : 0;
        const int stopBits = ok ? fields[3].toInt(&ok) : 0;
        if (!ok)
            throw BadUsage(QStringLiteral("--serial wants name,baud,databits,stopbits,parity, not \"%1\"")
                               .arg(parser.value(o.serial)));
        if (!sim->startSerial(fields[0], baud, dataBits, stopBits, fields[4]))
            throw BadUsage(QStringLiteral("cannot serve on serial port %1").arg(fields[0]));
        return QStringLiteral("serial ") + fields[0];
    }
    const QHostAddress address(parser.value(o.address));
    if (address.isNull())
        throw BadUsage(QStringLiteral("--address wants an IP address, not \"%1\"").arg(parser.value(o.address)));
    const quint16 wanted = quint16(integerOption(parser, o.port, 0, 65535));
    const quint16 port = sim->startUdp(address, wanted);
    if (port == 0)
        throw BadUsage(QStringLiteral("cannot serve UDP on %1:%2").arg(address.toString()).arg(wanted));
    return QStringLiteral("udp %1:%2").arg(address.toString()).arg(port);
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("sorvik-sim"));
    QCoreApplication::setApplicationVersion(QStringLiteral("1.8.4"));

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
    try {
        if (!parser.parse(QCoreApplication::arguments()))
            throw BadUsage(parser.errorText());
        if (parser.isSet(help))
            parser.showHelp(0);
        if (parser.isSet(version))
            parser.showVersion();
        if (!parser.positionalArguments().isEmpty())
            throw BadUsage(QStringLiteral("unexpected argument \"%1\"").arg(parser.positionalArguments().first()));
        if (parser.isSet(options.logFrames))
            QLoggingCategory::setFilterRules(QStringLiteral("sorvik.sim.frames.debug=true"));
        sim.setFaults(faultsFrom(parser, options));
        presetFrom(parser, options, &sim, &live);
        if (parser.isSet(options.live))
            live.start();
        if (!quitOnSignals(&app))
            throw BadUsage(QStringLiteral("cannot watch for signals"));
        const QString where = startTransport(parser, options, &sim);
        std::fprintf(stdout, "%s\n", qUtf8Printable(where));
        std::fflush(stdout);
    } catch (const BadUsage &bad) {
        std::fprintf(stderr, "sorvik-sim: %s\n", qUtf8Printable(bad.text()));
        return 1;
    }

    const int status = app.exec();
    live.stop();
    sim.stop();
    const SimCounters c = sim.counters();
    std::fprintf(stderr, "frames %d handshakes %d reads %d writes %d invalid %d faults %d\n", c.frames, c.handshakes,
                 c.reads, c.writes, c.invalid, c.faults);
    return status;
}
