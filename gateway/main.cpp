// sorvik-gateway: polls Sorvik controllers through the drive library and
// publishes their values to an MQTT broker, unattended.

#include "CheckReport.h"
#include "ConfigLoader.h"
#include "GatewayRunner.h"
#include "GroupPlan.h"
#include "programs/DriveLibrary.h"
#include "programs/ExitCode.h"
#include "programs/StopSignal.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QLoggingCategory>
#include <QTextStream>

#include <cstdio>
#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace {

Q_LOGGING_CATEGORY(lcMain, "sorvik.gateway.main", QtInfoMsg)

// Time to publish what waits in the offline queue on a stop, before the
// gateway says offline; what is left stays queued for the next start.
constexpr int kFlushTimeoutMs = 5000;

const char kDescription[] = "Polls Sorvik controllers through the drive library and publishes their values\n"
                            "to an MQTT broker: one JSON message per scan group and cycle on\n"
                            "sorvik/<gateway>/<controller>/<group>, statuses, a heartbeat, and write commands\n"
                            "on sorvik/<gateway>/<controller>/write. One TOML file configures it all.\n"
                            "\n"
                            "SIGINT or SIGTERM: the running cycles finish, the offline queue is flushed, the\n"
                            "gateway says offline and exits 0; a second signal ends it at once.\n"
                            "\n"
                            "Exit status: 0 ok (a good --check, or a stop by signal); 1 usage: a bad option,\n"
                            "a configuration error, no drive library, or a part that could not start.";

QTextStream &out()
{
    static QTextStream stream(stdout);
    return stream;
}

QTextStream &err()
{
    static QTextStream stream(stderr);
    return stream;
}

int usageError(const QString &text)
{
    err() << "sorvik-gateway: " << text << '\n';
    err().flush();
    return ExitUsage;
}

struct Options {
    QString file;
    QString library;
    bool check = false;
    bool startAfresh = false;
};

// -1 to go on, or the exit status of an early end (help, version, usage).
int parse(const QStringList &arguments, Options *options)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QString::fromLatin1(kDescription));
    const QCommandLineOption help(QStringList{QStringLiteral("h"), QStringLiteral("help")},
                                  QStringLiteral("Show this help and exit."));
    const QCommandLineOption version(QStringList{QStringLiteral("v"), QStringLiteral("version")},
                                     QStringLiteral("Show the version and exit."));
    const QCommandLineOption config(QStringLiteral("config"), QStringLiteral("The configuration file (TOML)."),
                                    QStringLiteral("file"));
    const QCommandLineOption check(QStringLiteral("check"),
                                   QStringLiteral("Check the configuration, print the blocks the drive plans per "
                                                  "controller and group, and exit: 0 good, 1 errors."));
    const QCommandLineOption startAfresh(QStringLiteral("start-afresh"),
                                         QStringLiteral("Start even when the offline queue's file is unusable: it is "
                                                        "moved aside and a new one begun."));
    const QCommandLineOption library(QStringLiteral("library"),
                                     QStringLiteral("Drive library to load, instead of the configuration's "
                                                    "\"library\" or libSorvik.so beside the program, in ../lib, or "
                                                    "in the build tree."),
                                     QStringLiteral("file"));
    parser.addOptions({help, version, config, check, startAfresh, library});
    parser.addPositionalArgument(QStringLiteral("file"), QStringLiteral("The configuration file, or --config."),
                                 QStringLiteral("[FILE]"));

    if (!parser.parse(arguments))
        return usageError(parser.errorText() + QStringLiteral(" (see --help)"));
    if (parser.isSet(help)) {
        out() << parser.helpText();
        out().flush();
        return ExitOk;
    }
    if (parser.isSet(version)) {
        out() << "sorvik-gateway " << SORVIK_GATEWAY_VERSION << '\n';
        out().flush();
        return ExitOk;
    }
    const QStringList positional = parser.positionalArguments();
    if (positional.size() > 1)
        return usageError(
            QStringLiteral("one configuration file only, not %1 (see --help)").arg(positional.join(QLatin1Char(' '))));
    if (!positional.isEmpty() && parser.isSet(config))
        return usageError(QStringLiteral("give the configuration file once: as FILE or with --config"));
    options->file = parser.isSet(config) ? parser.value(config) : positional.value(0);
    if (options->file.isEmpty())
        return usageError(QStringLiteral("no configuration file given (see --help)"));
    options->check = parser.isSet(check);
    options->startAfresh = parser.isSet(startAfresh);
    if (options->check && options->startAfresh)
        return usageError(QStringLiteral("--start-afresh starts the gateway; --check only checks"));
    options->library = parser.value(library);
    return -1;
}

int check(const GatewayConfig &config, DriveLibrary &library)
{
    // The drive only plans here: it is never connected.
    CDriveBaseClass *drive = library.create();
    if (!drive)
        return usageError(QStringLiteral("the factory of %1 gave no drive").arg(library.fileName()));
    const QStringList lines = CheckReport::lines(config, planControllers(drive, config));
    for (const QString &line : lines)
        out() << line << '\n';
    out().flush();
    return ExitOk;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("sorvik-gateway"));
    QCoreApplication::setApplicationVersion(QStringLiteral(SORVIK_GATEWAY_VERSION));
    // Logs go to stderr, where the journal takes them; QT_MESSAGE_PATTERN
    // overrides this form.
    qSetMessagePattern(QStringLiteral("%{time yyyy-MM-ddThh:mm:ss.zzz} %{if-debug}debug%{endif}%{if-info}info%{endif}"
                                      "%{if-warning}warning%{endif}%{if-critical}error%{endif}%{if-fatal}fatal"
                                      "%{endif} %{category}: %{message}"));

    Options options;
    const int early = parse(QCoreApplication::arguments(), &options);
    if (early >= 0)
        return early;

    GatewayConfig config;
    QStringList errors;
    if (!ConfigLoader::load(options.file, &config, &errors)) {
        for (const QString &error : qAsConst(errors))
            err() << error << '\n';
        err() << "sorvik-gateway: " << errors.size() << (errors.size() == 1 ? " error" : " errors") << " in "
              << options.file << '\n';
        err().flush();
        return ExitUsage;
    }
#ifdef __GLIBC__
    // The parse tree of a plant's thousands of tags is gone, but the
    // allocator would keep its pages for the whole run: give them back.
    malloc_trim(0);
#endif

    // Loaded once here and kept for the whole run; each poller makes its
    // drive from it on its own thread.
    DriveLibrary library;
    QString why;
    if (!library.load(options.library.isEmpty() ? config.library : options.library, &why))
        return usageError(why);
    if (options.check)
        return check(config, library);

    // The handler only wakes the event loop; the stop itself runs there, on
    // the thread that owns the pollers and the MQTT side. Caught before the
    // start, so that a signal during it is not lost.
    GatewayRunner runner(config, library.fileName());
    StopSignal::install(&app, [&runner] {
        qCInfo(lcMain, "stop requested: finishing the running cycles");
        runner.stop(kFlushTimeoutMs);
        QCoreApplication::quit();
    });
    if (!runner.start(options.startAfresh, &why))
        return usageError(why);
    return QCoreApplication::exec();
}
