// Links the drive library, connects to a controller, writes one value and
// reads it back.
//   sorvik-linked-host ADDRESS:PORT

#include <host/CDriveBaseClass.h>

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (argc != 2)
        return 1;
    CDriveBaseClass *drive = getSharedLibrary();
    std::printf("%s\n", qPrintable(drive->getDriveName()));
    if (drive->ConnectDrive(QString::fromLocal8Bit(argv[1])) != 0)
        return 2;
    CLabelVariable label;
    label.value = SorvikValues::toVariant(QList<int>{1234});
    if (drive->WriteVariable(QStringLiteral("LW3"), TYPE_INT32, label).status != 0)
        return 3;
    const CLabelVariable read = drive->ReadVariable(QStringLiteral("LW3"), TYPE_INT32);
    const QList<int> values = SorvikValues::listFrom<int>(read.value);
    std::printf("LW3 %d %d\n", read.status, values.value(0, -1));
    drive->DestroyFree();
    return 0;
}
