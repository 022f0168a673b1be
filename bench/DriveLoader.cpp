#include "DriveLoader.h"

#include "host/CDriveBaseClass.h"

#include <QMutex>
#include <QMutexLocker>

namespace {

// Past the static destructors too: drives made on other threads end up here.
QList<CDriveBaseClass *> &liveDrives()
{
    static auto *drives = new QList<CDriveBaseClass *>;
    return *drives;
}

QMutex &liveDrivesLock()
{
    static QMutex lock;
    return lock;
}

} // namespace

bool DriveLoader::load(const QString &file, QString *why)
{
    m_library.setFileName(file);
    if (!m_library.load()) {
        *why = QStringLiteral("cannot load %1: %2").arg(file, m_library.errorString());
        return false;
    }
    m_make = reinterpret_cast<GetSharedLibraryFunction>(m_library.resolve("getSharedLibrary"));
    if (!m_make) {
        *why = QStringLiteral("%1 exports no getSharedLibrary").arg(file);
        return false;
    }
    return true;
}

CDriveBaseClass *DriveLoader::create() const
{
    CDriveBaseClass *drive = m_make ? m_make() : nullptr;
    if (drive) {
        QMutexLocker lock(&liveDrivesLock());
        liveDrives().append(drive);
    }
    return drive;
}
