// Runs the README's host code once: reads one Int32 tag of a controller.
//   sorvik-loading-host ADDRESS:PORT TAG
// Exit status 0 when the tag was read, 3 when its record failed.

#include <QCoreApplication>
#include <QString>

int readTag(const QString &connection, const QString &tag);

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (argc != 3)
        return 1;
    return readTag(QString::fromLocal8Bit(argv[1]), QString::fromLocal8Bit(argv[2])) == 0 ? 0 : 3;
}
