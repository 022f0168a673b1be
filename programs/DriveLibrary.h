#pragma once

#include <QLibrary>
#include <QString>
#include <QStringList>

class CDriveBaseClass;

// Loads the drive library at run time and makes drive objects through its
// exported factory, as every host does.
class DriveLibrary
{
public:
    // Loads `file`, or when it is empty the first library found: beside the
    // program, in ../lib, then the one of the build tree. On failure gives
    // false and one line in *why.
    bool load(const QString &file, QString *why);
    // A new drive object. The interface offers no way to free one, so it lives
    // as long as the process; null when the factory gave none. Safe to call
    // from any thread: the object belongs to the thread that made it.
    CDriveBaseClass *create();
    QString fileName() const { return m_library.fileName(); }

    static QStringList searchPath();

private:
    bool tryLoad(const QString &file, QString *why);

    QLibrary m_library;
};
