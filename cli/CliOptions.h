#pragma once

#include "Output.h"

#include <QString>
#include <QStringList>

// What the command line asks for.
struct CliOptions {
    QString command;   // info, read, write, plan, poll, write-plan
    QStringList items; // the arguments after the command
    QString libraryFile;
    QString connectText; // empty: the embedded simulator
    QString simAddress = QStringLiteral("127.0.0.1");
    bool debug = false;
    OutputFormat format = OutputFormat::Table;
    QString tagFile;
    int cycles = 0; // 0: until Ctrl-C
    int intervalMs = 1000;
};

namespace CliOptionsParser {
// Reads the command line. Gives -1 when the command is to run, else the exit
// status to end with: 0 after --help or --version, 1 after a usage error
// (already reported on stderr).
int parse(const QStringList &arguments, CliOptions *options);
} // namespace CliOptionsParser
