#include "Console.h"

#include <QLoggingCategory>

#include <cstdio>
#include <sys/ioctl.h>
#include <unistd.h>

QTextStream &Console::out()
{
    static QTextStream stream(stdout);
    return stream;
}

QTextStream &Console::err()
{
    static QTextStream stream(stderr);
    return stream;
}

// The host's own diagnostics, apart from the drive's lines (category
// "default"), so QT_LOGGING_RULES can filter either.
Q_LOGGING_CATEGORY(lcCli, "sorvik.cli")

namespace {

void printMessage(QtMsgType, const QMessageLogContext &context, const QString &text)
{
    const bool own = context.category && qstrcmp(context.category, "sorvik.cli") == 0;
    QTextStream &stream = Console::err();
    stream << (own ? "sorvik-cli: " : "") << text << '\n';
    stream.flush();
}

} // namespace

void Console::installLogging()
{
    qInstallMessageHandler(printMessage);
}

void Console::error(const QString &text)
{
    qCWarning(lcCli, "%s", qUtf8Printable(text));
}

bool Console::stdoutIsTerminal()
{
    return ::isatty(STDOUT_FILENO) == 1;
}

int Console::terminalLines()
{
    winsize size{};
    return ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? int(size.ws_row) : 0;
}

int Console::terminalColumns()
{
    winsize size{};
    return ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? int(size.ws_col) : 0;
}
