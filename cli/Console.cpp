#include "Console.h"

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

void Console::error(const QString &text)
{
    err() << "sorvik-cli: " << text << '\n';
    err().flush();
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
