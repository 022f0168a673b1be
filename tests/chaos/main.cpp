// sorvik-chaos: the gateway's chaos soak. Prints one summary line on stdout
// and what it does, with times, on stderr.
#include "ChaosPlan.h"
#include "ChaosSoak.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <cstdio>

namespace {

int usage(const QString &text)
{
    fprintf(stderr, "sorvik-chaos: %s (see --help)\n", qUtf8Printable(text));
    return 1;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("sorvik-chaos"));
    QCoreApplication::setApplicationVersion(QStringLiteral(SORVIK_CHAOS_VERSION));
    qSetMessagePattern(QStringLiteral("%{time hh:mm:ss.zzz} %{category}: %{message}"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Runs sorvik-gateway against simulated controllers with seeded faults and a real broker, kills and restarts\n"
        "simulators, the broker and the gateway at times drawn from the seed, and checks every message the gateway\n"
        "publishes. Exit status: 0 no invariant failed, 1 usage, 2 a part did not start, 4 invariants failed."));
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption seconds(QStringLiteral("seconds"), QStringLiteral("Length of the run, 30 to 86400 (60)."),
                                     QStringLiteral("n"), QStringLiteral("60"));
    const QCommandLineOption seed(QStringLiteral("seed"), QStringLiteral("Seed of every draw (1)."),
                                  QStringLiteral("n"), QStringLiteral("1"));
    const QCommandLineOption controllers(QStringLiteral("controllers"),
                                         QStringLiteral("Simulated controllers, 4 to 200 (20)."), QStringLiteral("n"),
                                         QStringLiteral("20"));
    const QCommandLineOption gateway(QStringLiteral("gateway"), QStringLiteral("The gateway program."),
                                     QStringLiteral("file"), QStringLiteral(SORVIK_GATEWAY_FILE));
    const QCommandLineOption simulator(QStringLiteral("simulator"), QStringLiteral("The simulator program."),
                                       QStringLiteral("file"), QStringLiteral(SORVIK_SIM_FILE));
    const QCommandLineOption mosquitto(QStringLiteral("mosquitto"), QStringLiteral("The broker program."),
                                       QStringLiteral("file"), QStringLiteral("/usr/sbin/mosquitto"));
    parser.addOptions({seconds, seed, controllers, gateway, simulator, mosquitto});
    if (!parser.parse(app.arguments()))
        return usage(parser.errorText());
    if (parser.isSet(QStringLiteral("help")))
        parser.showHelp(0);
    if (parser.isSet(QStringLiteral("version")))
        parser.showVersion();
    if (!parser.positionalArguments().isEmpty())
        return usage(QStringLiteral("no arguments beside the options"));

    bool ok[3] = {false, false, false};
    const int length = parser.value(seconds).toInt(&ok[0]);
    const quint32 draw = parser.value(seed).toUInt(&ok[1]);
    const int count = parser.value(controllers).toInt(&ok[2]);
    if (!ok[0] || length < 30 || length > 86400)
        return usage(QStringLiteral("--seconds takes 30 to 86400"));
    if (!ok[1])
        return usage(QStringLiteral("--seed takes a whole number from 0 to 4294967295"));
    if (!ok[2] || count < 4 || count > 200)
        return usage(QStringLiteral("--controllers takes 4 to 200"));

    ChaosSoak soak(ChaosPlan::make(draw, length, count),
                   {parser.value(gateway), parser.value(simulator), parser.value(mosquitto)});
    return soak.run();
}
