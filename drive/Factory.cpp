// The one exported entry of the library.

#include "LibSorvik.h"

// The host holds the drive by its interface, so the pointer is adjusted to
// the CDriveBaseClass part of the object, not its start.
extern "C" SORVIK_DRIVE_EXPORT CDriveBaseClass *getSharedLibrary()
{
    return static_cast<CDriveBaseClass *>(new LibSorvik);
}

LibSorvik::~LibSorvik() = default;
