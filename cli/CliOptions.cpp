#include "CliOptions.h"

#include "Console.h"
#include "programs/ExitCode.h"
#include "programs/NumberText.h"
#include "programs/TypeNames.h"

#include <QCommandLineParser>
#include <QHostAddress>

namespace {

const char kDescription[] = "A command-line host for Sorvik controllers: loads the drive library and reads,\n"
                            "writes, plans and polls tags. Without --connect it talks to an embedded\n"
                            "simulator with a live demo process.\n"
                            "\n"
                            "Commands:\n"
                            "  info                               drive name, version and build text\n"
                            "  read TAG:TYPE[xCOUNT]...           read tags one at a time\n"
                            "  write TAG:TYPE[xCOUNT]=VALUE[,...] write tags one at a time; several values\n"
                            "                                     only with a count that matches them\n"
                            "  plan TAG:TYPE...                   show the blocks the drive makes of a tag list\n"
                            "  poll TAG:TYPE...                   read a tag list block by block, cycle after cycle\n"
                            "  write-plan TAG:TYPE=VALUE...       write a tag list block by block\n"
                            "\n"
                            "Types: %1\n"
                            "Tags: an area prefix and an element number from 1, e.g. AI1, DI_F12, SI2.\n"
                            "Tag files (--file): CSV, one tag a line, tag,type[,value...]; # starts a comment;\n"
                            "a header row (tag,type,...,value) names the columns, as the CSV output does.\n"
                            "\n"
                            "Exit status: 0 ok; 1 usage: bad option, tag, type or value, unreadable file,\n"
                            "or no drive library; 2 no connection or no reply; 3 every tag failed;\n"
                            "4 some tags failed.";

const QStringList kCommands = {QStringLiteral("info"), QStringLiteral("read"), QStringLiteral("write"),
                               QStringLiteral("plan"), QStringLiteral("poll"), QStringLiteral("write-plan")};

int usageError(const QString &text)
{
    Console::error(text);
    return ExitUsage;
}

bool wholeNumber(const QString &text, int low, int high, int *value)
{
    qlonglong number = 0;
    if (!NumberText::parseWhole(text, low, high, &number))
        return false;
    *value = int(number);
    return true;
}

} // namespace

int CliOptionsParser::parse(const QStringList &arguments, CliOptions *options)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QString::fromLatin1(kDescription).arg(TypeNames::all().join(QLatin1Char(' '))));
    const QCommandLineOption help(QStringList{QStringLiteral("h"), QStringLiteral("help")},
                                  QStringLiteral("Show this help and exit."));
    const QCommandLineOption version(QStringList{QStringLiteral("v"), QStringLiteral("version")},
                                     QStringLiteral("Show the version and exit."));
    const QCommandLineOption library(QStringLiteral("library"),
                                     QStringLiteral("Drive library to load (default: libSorvik.so beside the program, "
                                                    "in ../lib, or in the build tree)."),
                                     QStringLiteral("file"));
    const QCommandLineOption connect(QStringLiteral("connect"),
                                     QStringLiteral("Controller to talk to: ADDRESS:PORT over UDP, or "
                                                    "PORT,BAUD,DATABITS,STOPBITS,PARITY over a serial line. "
                                                    "Without it: the built-in demo controller (an empty text is "
                                                    "refused)."),
                                     QStringLiteral("text"));
    const QCommandLineOption simAddress(QStringLiteral("sim-address"),
                                        QStringLiteral("Loopback address of the embedded simulator (default "
                                                       "127.0.0.1)."),
                                        QStringLiteral("address"));
    const QCommandLineOption debug(QStringLiteral("debug"), QStringLiteral("Log every frame on stderr."));
    const QCommandLineOption format(QStringLiteral("format"),
                                    QStringLiteral("Output: table (default on a terminal), csv (default otherwise) "
                                                   "or json (one object per line)."),
                                    QStringLiteral("table|csv|json"));
    const QCommandLineOption file(QStringLiteral("file"), QStringLiteral("Read the tags from a CSV file."),
                                  QStringLiteral("file"));
    const QCommandLineOption cycles(QStringLiteral("cycles"),
                                    QStringLiteral("poll: number of cycles (default: until Ctrl-C)."),
                                    QStringLiteral("n"));
    const QCommandLineOption interval(QStringLiteral("interval"),
                                      QStringLiteral("poll: time from one cycle to the next (default 1000)."),
                                      QStringLiteral("ms"));
    parser.addOptions({help, version, library, connect, simAddress, debug, format, file, cycles, interval});
    parser.addPositionalArgument(QStringLiteral("command"), QStringLiteral("info, read, write, plan, poll or "
                                                                           "write-plan."));
    parser.addPositionalArgument(QStringLiteral("tags"), QStringLiteral("Tags of the command."),
                                 QStringLiteral("[TAG...]"));

    if (!parser.parse(arguments))
        return usageError(parser.errorText() + QStringLiteral(" (see --help)"));
    if (parser.isSet(help)) {
        Console::out() << parser.helpText();
        Console::out().flush();
        return ExitOk;
    }
    if (parser.isSet(version)) {
        Console::out() << "sorvik-cli " << SORVIK_CLI_VERSION << '\n';
        Console::out().flush();
        return ExitOk;
    }

    const QStringList positional = parser.positionalArguments();
    if (positional.isEmpty())
        return usageError(QStringLiteral("no command given (see --help)"));
    options->command = positional.first();
    if (!kCommands.contains(options->command))
        return usageError(QStringLiteral("unknown command \"%1\" (commands: %2)")
                              .arg(options->command, kCommands.join(QStringLiteral(", "))));
    options->items = positional.mid(1);

    // An option that means nothing for the command is refused rather than
    // quietly ignored: the user meant something by it.
    const bool polls = options->command == QLatin1String("poll");
    const bool connects = options->command != QLatin1String("info") && options->command != QLatin1String("plan");
    const struct {
        const QCommandLineOption &option;
        bool meaningful;
        const char *where;
    } scoped[] = {
        {cycles, polls, "poll only"},
        {interval, polls, "poll only"},
        {connect, connects, "commands that talk to a controller"},
        {simAddress, connects && !parser.isSet(connect), "the built-in demo controller, without --connect"},
        {debug, connects, "commands that talk to a controller"},
    };
    for (const auto &entry : scoped)
        if (parser.isSet(entry.option) && !entry.meaningful)
            return usageError(QStringLiteral("--%1 means nothing for %2: it is for %3")
                                  .arg(entry.option.names().constLast(), options->command, QLatin1String(entry.where)));

    options->libraryFile = parser.value(library);
    options->connectText = parser.value(connect);
    // An empty text, as from --connect "$PLC" with the variable unset, would
    // otherwise fall back to the demo controller without a word.
    if (parser.isSet(connect) && options->connectText.trimmed().isEmpty())
        return usageError(QStringLiteral("--connect is given an empty text: name a controller, as ADDRESS:PORT or "
                                         "PORT,BAUD,DATABITS,STOPBITS,PARITY (leave --connect out for the demo)"));
    options->debug = parser.isSet(debug);
    options->tagFile = parser.value(file);

    if (parser.isSet(simAddress)) {
        options->simAddress = parser.value(simAddress);
        const QHostAddress address(options->simAddress);
        if (address.protocol() != QAbstractSocket::IPv4Protocol || !address.isLoopback())
            return usageError(QStringLiteral("--sim-address wants a loopback address such as 127.0.0.2, not \"%1\"")
                                  .arg(options->simAddress));
    }

    options->format = Console::stdoutIsTerminal() ? OutputFormat::Table : OutputFormat::Csv;
    if (parser.isSet(format)) {
        const QString name = parser.value(format);
        if (name == QLatin1String("table"))
            options->format = OutputFormat::Table;
        else if (name == QLatin1String("csv"))
            options->format = OutputFormat::Csv;
        else if (name == QLatin1String("json"))
            options->format = OutputFormat::Json;
        else
            return usageError(QStringLiteral("--format wants table, csv or json, not \"%1\"").arg(name));
    }
    if (parser.isSet(cycles) && !wholeNumber(parser.value(cycles), 1, 2147483647, &options->cycles))
        return usageError(QStringLiteral("--cycles wants a whole number from 1, not \"%1\"").arg(parser.value(cycles)));
    if (parser.isSet(interval) && !wholeNumber(parser.value(interval), 0, 3600000, &options->intervalMs))
        return usageError(
            QStringLiteral("--interval wants milliseconds from 0 to 3600000, not \"%1\"").arg(parser.value(interval)));
    return -1;
}
