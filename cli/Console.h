#pragma once

#include <QString>
#include <QTextStream>

// Data goes to stdout, diagnostics to stderr, each as one line.
namespace Console {
QTextStream &out();
QTextStream &err();
// "sorvik-cli: <text>" on stderr.
void error(const QString &text);
bool stdoutIsTerminal();
// Lines of the terminal on stdout, 0 when unknown.
int terminalLines();
} // namespace Console
