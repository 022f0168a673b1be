#include "Commands.h"
#include "programs/DriveLibrary.h"
#include "Output.h"
#include "host/CDriveBaseClass.h"
#include "programs/ExitCode.h"

// Asks the drive who it is; no controller is needed for that.
int Commands::info(const CommandContext &context)
{
    CDriveBaseClass *drive = context.drive;
    context.output.setColumns(
        {QStringLiteral("drive"), QStringLiteral("version"), QStringLiteral("build"), QStringLiteral("library")});
    context.output.addRow({Cells::text(drive->getDriveName()), Cells::text(drive->getversion_number()),
                           Cells::text(drive->DebugCmd(DEBUG_VERSION)), Cells::text(context.library.fileName())});
    context.output.endTable();
    return ExitOk;
}
