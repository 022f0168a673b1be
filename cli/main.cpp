// sorvik-cli: a command-line host for Sorvik controllers.

#include "CliOptions.h"
#include "Commands.h"
#include "Connection.h"
#include "Console.h"
#include "TagFile.h"
#include "host/CDriveBaseClass.h"
#include "programs/ConnectionText.h"
#include "programs/DriveLibrary.h"
#include "programs/ExitCode.h"
#include "programs/TypeNames.h"

#include <QCoreApplication>
#include <QLoggingCategory>
#include <QSet>

namespace {

struct CommandSpec {
    const char *name;
    TagSyntax syntax;
    bool takesTags;
    bool connects; // info and plan need no controller
    int (*run)(const CommandContext &);
};

const CommandSpec kCommands[] = {
    {"info", TagSyntax::Read, false, false, Commands::info},
    {"read", TagSyntax::Read, true, true, Commands::read},
    {"write", TagSyntax::Write, true, true, Commands::write},
    {"plan", TagSyntax::Plan, true, false, Commands::plan},
    {"poll", TagSyntax::Plan, true, true, Commands::poll},
    {"write-plan", TagSyntax::WritePlan, true, true, Commands::writePlan},
};

const CommandSpec *findCommand(const QString &name)
{
    for (const CommandSpec &command : kCommands)
        if (name == QLatin1String(command.name))
            return &command;
    return nullptr;
}

// The tags of the file, then those of the arguments.
bool gatherTags(const CliOptions &options, const CommandSpec &command, QList<TagItem> *items, QString *why)
{
    if (!command.takesTags) {
        if (!options.items.isEmpty() || !options.tagFile.isEmpty()) {
            *why = QStringLiteral("%1 takes no tags").arg(options.command);
            return false;
        }
        return true;
    }
    if (!options.tagFile.isEmpty() && !TagFile::read(options.tagFile, command.syntax, items, why))
        return false;
    for (const QString &argument : options.items) {
        TagItem item;
        if (!TagItems::fromArgument(argument, command.syntax, &item, why)) {
            *why = QStringLiteral("%1: %2").arg(argument, *why);
            return false;
        }
        items->append(item);
    }
    if (items->isEmpty()) {
        *why = QStringLiteral("%1 needs tags, as arguments or with --file (see --help)").arg(options.command);
        return false;
    }
    // Two values for one tag in one plan would be merged in an order of the
    // planner's choosing; which one lands would be left to chance.
    if (command.syntax == TagSyntax::WritePlan) {
        QSet<QPair<QString, int>> seen;
        for (const TagItem &item : qAsConst(*items)) {
            if (seen.contains({item.tag, item.dataType})) {
                *why = QStringLiteral("%1: %2:%3 is given twice")
                           .arg(item.origin, item.tag, TypeNames::name(item.dataType));
                return false;
            }
            seen.insert({item.tag, item.dataType});
        }
    }
    return true;
}

bool checkConnection(const QString &text, QString *why)
{
    if (ConnectionText::check(text, why))
        return true;
    *why = QStringLiteral("bad connection text \"%1\": %2").arg(text, *why);
    return false;
}

int run(const CliOptions &options)
{
    const CommandSpec *command = findCommand(options.command);
    QList<TagItem> items;
    QString why;
    if (!gatherTags(options, *command, &items, &why) ||
        (!options.connectText.isEmpty() && !checkConnection(options.connectText, &why))) {
        Console::error(why);
        return ExitUsage;
    }

    DriveLibrary library;
    if (!library.load(options.libraryFile, &why)) {
        Console::error(why);
        return ExitUsage;
    }
    CDriveBaseClass *drive = library.create();
    if (!drive) {
        Console::error(QStringLiteral("the factory of %1 gave no drive").arg(library.fileName()));
        return ExitUsage;
    }
    // The drive logs failed reads on its own; every record's status is shown
    // here anyway, so its lines are kept for --debug, beside the frames.
    if (options.debug)
        drive->DebugCmd(DEBUG_START);
    else
        QLoggingCategory::setFilterRules(QStringLiteral("default.warning=false"));

    Connection connection(drive);
    if (command->connects && !connection.open(options.connectText, options.simAddress, &why)) {
        Console::error(why);
        return ExitNoConnection;
    }
    Output output(options.format, Console::out(), Console::err());
    const QString connectPar = command->connects ? connection.text() : options.connectText;
    return command->run({options, library, drive, connectPar, items, output});
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    Console::installLogging();
    QCoreApplication::setApplicationName(QStringLiteral("sorvik-cli"));
    QCoreApplication::setApplicationVersion(QStringLiteral(SORVIK_CLI_VERSION));

    CliOptions options;
    const int early = CliOptionsParser::parse(QCoreApplication::arguments(), &options);
    if (early >= 0)
        return early;
    return run(options);
}
