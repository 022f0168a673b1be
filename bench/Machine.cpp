#include "Machine.h"

#include <QFile>
#include <QThread>

namespace {

QByteArray readProcFile(const char *path)
{
    QFile file(QString::fromLatin1(path));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray(); // /proc files have no size to seek by
}

} // namespace

QString Machine::cpuModel()
{
    for (const QByteArray &line : readProcFile("/proc/cpuinfo").split('\n'))
        if (line.startsWith("model name"))
            return QString::fromLatin1(line.mid(line.indexOf(':') + 1).trimmed());
    return QStringLiteral("unknown processor");
}

int Machine::cores()
{
    return QThread::idealThreadCount();
}

QString Machine::loadAverage()
{
    const QByteArray load = readProcFile("/proc/loadavg");
    return load.isEmpty() ? QStringLiteral("?") : QString::fromLatin1(load.split(' ').first());
}

Machine::CoreTicks Machine::coreTicks()
{
    // "cpu  user nice system idle iowait irq softirq steal ..."
    const QByteArray first = readProcFile("/proc/stat").split('\n').first();
    const QList<QByteArray> fields = first.simplified().split(' ');
    CoreTicks ticks;
    for (int i = 1; i < fields.size() && i <= 8; ++i) {
        const qint64 value = fields.at(i).toLongLong();
        ticks.total += value;
        if (i != 4 && i != 5) // idle and iowait
            ticks.busy += value;
    }
    return ticks;
}
