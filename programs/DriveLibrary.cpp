#include "DriveLibrary.h"

#include "host/CDriveBaseClass.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QMutex>

namespace {

// Drive objects are kept reachable until the process ends, past the static
// destructors: the interface has no way to free them, and they are no leak.
// The gateway makes them on several threads.
void keepReachable(CDriveBaseClass *drive)
{
    static auto *mutex = new QMutex;
    static auto *drives = new QList<CDriveBaseClass *>;
    const QMutexLocker lock(mutex);
    drives->append(drive);
}

} // namespace

QStringList DriveLibrary::searchPath()
{
    const QString programDir = QCoreApplication::applicationDirPath();
    return {QDir(programDir).filePath(QStringLiteral("libSorvik.so")),
            QDir::cleanPath(programDir + QStringLiteral("/../lib/libSorvik.so")),
            QStringLiteral(SORVIK_DEFAULT_LIBRARY)};
}

bool DriveLibrary::tryLoad(const QString &file, QString *why)
{
    if (m_library.isLoaded())
        m_library.unload();
    m_library.setFileName(file);
    if (!m_library.load()) {
        *why = QStringLiteral("cannot load drive library %1: %2").arg(file, m_library.errorString());
        return false;
    }
    if (!m_library.resolve("getSharedLibrary")) {
        *why = QStringLiteral("%1 is no Sorvik drive: it exports no getSharedLibrary").arg(file);
        m_library.unload();
        return false;
    }
    return true;
}

bool DriveLibrary::load(const QString &file, QString *why)
{
    if (!file.isEmpty()) {
        if (!QFileInfo::exists(file)) {
            *why = QStringLiteral("drive library %1 not found").arg(file);
            return false;
        }
        return tryLoad(file, why);
    }
    const QStringList candidates = searchPath();
    for (const QString &candidate : candidates)
        if (QFileInfo::exists(candidate))
            return tryLoad(candidate, why);
    *why = QStringLiteral("no drive library found (looked for %1); name one with --library FILE")
               .arg(candidates.join(QStringLiteral(", ")));
    return false;
}

CDriveBaseClass *DriveLibrary::create()
{
    const auto make = reinterpret_cast<GetSharedLibraryFunction>(m_library.resolve("getSharedLibrary"));
    CDriveBaseClass *drive = make ? make() : nullptr;
    if (drive)
        keepReachable(drive);
    return drive;
}
