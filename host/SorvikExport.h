#pragma once

#include <QtGlobal>

// What leaves the drive library: the factory and the drive object's own
// members. Everything else in it is built with hidden visibility. The drive
// is built with SORVIK_BUILDING_DRIVE; a host sees the same names as imports.
#if defined(SORVIK_BUILDING_DRIVE)
#define SORVIK_DRIVE_EXPORT Q_DECL_EXPORT
#else
#define SORVIK_DRIVE_EXPORT Q_DECL_IMPORT
#endif
