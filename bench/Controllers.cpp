#include "Controllers.h"

#include "DriveLoader.h"
#include "Loopback.h"

#include "host/CDriveBaseClass.h"

#include <QtEndian>

QByteArray BenchTags::naiFloats()
{
    QByteArray bytes(kFloatCount * int(sizeof(float)), '\0');
    for (int i = 0; i < kFloatCount; ++i)
        qToLittleEndian(float(i + 1) / 4, bytes.data() + i * int(sizeof(float)));
    return bytes;
}

UdpController::UdpController(int hostIndex) : host(loopbackHost(hostIndex)) {}

bool UdpController::start(QString *why)
{
    port = sim.startUdp(host);
    if (port == 0) {
        *why = QStringLiteral("no simulator on %1").arg(host.toString());
        return false;
    }
    sim.preset(BenchTags::kNaiArea, 0, BenchTags::naiFloats());
    return true;
}

QString UdpController::connectText() const
{
    return QStringLiteral("%1:%2").arg(host.toString()).arg(port);
}

CDriveBaseClass *connectedDrive(const DriveLoader &loader, const QString &text, QString *why)
{
    CDriveBaseClass *drive = loader.create();
    if (!drive) {
        *why = QStringLiteral("the factory gave no drive");
        return nullptr;
    }
    const int result = drive->ConnectDrive(text);
    if (result != 0) {
        *why = QStringLiteral("ConnectDrive(%1) answered %2").arg(text).arg(result);
        releaseDrive(drive);
        return nullptr;
    }
    return drive;
}

void releaseDrive(CDriveBaseClass *drive)
{
    if (!drive)
        return;
    drive->DisConnectDrive();
    drive->DestroyFree();
}
