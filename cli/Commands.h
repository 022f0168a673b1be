#pragma once

#include "CliOptions.h"
#include "TagItems.h"

#include <QList>
#include <QString>

class CDriveBaseClass;
class DriveLibrary;
class Output;

// What every command works with. `connectPar` keys the drive's plans; it is
// the connection text.
struct CommandContext {
    const CliOptions &options;
    const DriveLibrary &library;
    CDriveBaseClass *drive;
    QString connectPar;
    const QList<TagItem> &items;
    Output &output;
};

// Each gives the exit status of the program.
namespace Commands {
int info(const CommandContext &context);
int read(const CommandContext &context);
int write(const CommandContext &context);
int plan(const CommandContext &context);
int poll(const CommandContext &context);
int writePlan(const CommandContext &context);
} // namespace Commands
