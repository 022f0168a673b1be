#pragma once

#include <QString>
#include <QTextStream>

// Data goes to stdout, diagnostics to stderr, each as one line.
namespace Console {
QTextStream &out();
QTextStream &err();
// Every log line on stderr as its bare text, the host's own (category
// "sorvik.cli") behind "sorvik-cli: ".
void installLogging();
// "sorvik-cli: <text>" on stderr.
void error(const QString &text);
bool stdoutIsTerminal();
// Lines of the terminal on stdout, 0 when unknown.
int terminalLines();
// Columns of the terminal on stdout, 0 when unknown.
int terminalColumns();
} // namespace Console
