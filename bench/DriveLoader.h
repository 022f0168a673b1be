#pragma once

// Loads the drive library as a host does, through QLibrary and its one
// exported factory, and hands out drive objects behind their interface.

#include <QLibrary>
#include <QString>

class CDriveBaseClass;

class DriveLoader
{
public:
    // False with a reason in *why when the file does not load or is no drive.
    bool load(const QString &file, QString *why);
    // A new drive object, made on the calling thread. The interface has no way
    // to free one, so it stays reachable until the process ends.
    CDriveBaseClass *create() const;
    QString fileName() const { return m_library.fileName(); }

private:
    QLibrary m_library;
    CDriveBaseClass *(*m_make)() = nullptr;
};
