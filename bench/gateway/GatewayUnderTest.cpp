#include "GatewayUnderTest.h"

#include "FreePort.h"

#include <QElapsedTimer>
#include <QFile>
#include <QRegularExpression>
#include <QTcpSocket>
#include <QTextStream>
#include <QThread>

#include <unistd.h>

#include <cmath>
#include <limits>

namespace {

QByteArray readWhole(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QByteArray httpGet(quint16 port, const char *path)
{
    QTcpSocket socket;
    socket.connectToHost(QStringLiteral("127.0.0.1"), port);
    if (!socket.waitForConnected(2000))
        return QByteArray();
    socket.write(QByteArray("GET ") + path + " HTTP/1.0\r\nHost: 127.0.0.1\r\n\r\n");
    QByteArray reply;
    while (socket.waitForReadyRead(5000))
        reply += socket.readAll();
    reply += socket.readAll();
    const int body = reply.indexOf("\r\n\r\n");
    return body < 0 ? QByteArray() : reply.mid(body + 4);
}

// Series without their controller label, summed: the benchmark wants totals.
QMap<QString, double> parseMetrics(const QByteArray &text)
{
    static const QRegularExpression controller(QStringLiteral("controller=\"[^\"]*\",?"));
    QMap<QString, double> out;
    for (const QByteArray &line : text.split('\n')) {
        if (line.isEmpty() || line.startsWith('#'))
            continue;
        const int space = line.lastIndexOf(' ');
        if (space < 0)
            continue;
        QString name = QString::fromUtf8(line.left(space));
        name.remove(controller);
        name.replace(QLatin1String(",}"), QLatin1String("}")).replace(QLatin1String("{}"), QString());
        out[name] += line.mid(space + 1).toDouble();
    }
    return out;
}

struct Buckets {
    QList<double> bounds; // seconds, ascending; infinity last
    QList<double> atMost;
};

Buckets buckets(const GatewayReading &reading)
{
    static const QRegularExpression bucket(
        QStringLiteral("^sorvik_gateway_scan_lateness_seconds_bucket\\{le=\"([^\"]+)\"\\}$"));
    QMap<double, double> byBound;
    for (auto it = reading.metrics.cbegin(); it != reading.metrics.cend(); ++it) {
        const QRegularExpressionMatch match = bucket.match(it.key());
        if (!match.hasMatch())
            continue;
        const QString le = match.captured(1);
        const double bound = le == QLatin1String("+Inf") ? std::numeric_limits<double>::infinity() : le.toDouble();
        byBound.insert(bound, it.value());
    }
    return {byBound.keys(), byBound.values()};
}

} // namespace

GatewayUnderTest::~GatewayUnderTest()
{
    if (m_process.state() != QProcess::NotRunning) {
        m_process.kill();
        m_process.waitForFinished(5000);
    }
}

bool GatewayUnderTest::start(const QString &program, const QString &library, const QStringList &connections,
                             quint16 brokerPort, int poolThreads, QString *why)
{
    m_metricsPort = freePort();
    QFile file(m_dir.filePath(QStringLiteral("bench.toml")));
    if (!m_dir.isValid() || !file.open(QIODevice::WriteOnly)) {
        *why = QStringLiteral("cannot write the gateway's configuration");
        return false;
    }
    QTextStream out(&file);
    out << "name = \"" << name() << "\"\nheartbeat_ms = 1000\nlibrary = \"" << library << "\"\n"
        << "[metrics]\naddress = \"127.0.0.1:" << m_metricsPort << "\"\n"
        << "[broker]\nhost = \"127.0.0.1\"\nport = " << brokerPort << "\nqos = 1\n"
        << "[buffer]\npath = \"" << m_dir.filePath(QStringLiteral("queue.sqlite")) << "\"\n";
    for (int k = 0; k < connections.size(); ++k) {
        out << "[[controllers]]\nname = \"c" << k + 1 << "\"\nconnection = \"" << connections.at(k) << "\"\n"
            << "[[controllers.groups]]\nname = \"all\"\ninterval_ms = 1000\n";
        for (int i = 1; i <= 1000; ++i)
            out << "[[controllers.groups.tags]]\nname = \"v" << i << "\"\ntag = \"NAI" << i << "\"\ntype = \"float\"\n";
    }
    out.flush();
    file.close();

    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.remove(QStringLiteral("SORVIK_GATEWAY_POLL_THREADS"));
    if (poolThreads > 0)
        environment.insert(QStringLiteral("SORVIK_GATEWAY_POLL_THREADS"), QString::number(poolThreads));
    // Local time without a look at the zone file per conversion.
    if (!environment.contains(QStringLiteral("TZ")))
        environment.insert(QStringLiteral("TZ"), QStringLiteral(":/etc/localtime"));
    m_process.setProcessEnvironment(environment);
    m_process.setStandardOutputFile(m_dir.filePath(QStringLiteral("gateway.out")));
    m_process.setStandardErrorFile(m_dir.filePath(QStringLiteral("gateway.err")));
    m_process.start(program, {file.fileName()});
    if (!m_process.waitForStarted(5000)) {
        *why = QStringLiteral("the gateway did not start: ") + m_process.errorString();
        return false;
    }
    return true;
}

bool GatewayUnderTest::waitForCycles(int controllers, int cycles, int timeoutMs)
{
    QElapsedTimer waited;
    waited.start();
    while (waited.elapsed() < timeoutMs) {
        if (m_process.state() != QProcess::Running)
            return false;
        if (read().metrics.value(QStringLiteral("sorvik_gateway_cycles_total")) >= double(controllers) * cycles)
            return true;
        QThread::msleep(200);
    }
    return false;
}

GatewayReading GatewayUnderTest::read()
{
    GatewayReading reading;
    const qint64 pid = m_process.processId();
    // Fields after the command's closing parenthesis: utime and stime are 14 and 15.
    const QByteArray stat = readWhole(QStringLiteral("/proc/%1/stat").arg(pid));
    const QList<QByteArray> fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
    if (fields.size() > 12)
        reading.cpuSeconds = double(fields.at(11).toLongLong() + fields.at(12).toLongLong()) / sysconf(_SC_CLK_TCK);
    for (const QByteArray &line : readWhole(QStringLiteral("/proc/%1/status").arg(pid)).split('\n'))
        if (line.startsWith("VmRSS:"))
            reading.residentMb = line.mid(6).trimmed().split(' ').first().toDouble() / 1024;
    reading.metrics = parseMetrics(httpGet(m_metricsPort, "/metrics"));
    return reading;
}

bool GatewayUnderTest::stop()
{
    if (m_process.state() == QProcess::NotRunning)
        return false;
    m_process.terminate();
    if (!m_process.waitForFinished(30000)) {
        m_process.kill();
        m_process.waitForFinished(5000);
        return false;
    }
    return m_process.exitStatus() == QProcess::NormalExit && m_process.exitCode() == 0;
}

double latenessCycles(const GatewayReading &before, const GatewayReading &after)
{
    const QString count = QStringLiteral("sorvik_gateway_scan_lateness_seconds_count");
    return after.metrics.value(count) - before.metrics.value(count);
}

double latenessQuantileMs(const GatewayReading &before, const GatewayReading &after, double share)
{
    const Buckets from = buckets(before);
    const Buckets to = buckets(after);
    if (to.bounds.isEmpty() || from.bounds.size() != to.bounds.size())
        return 0;
    const double total = to.atMost.last() - from.atMost.last();
    if (total <= 0)
        return 0;
    const double rank = share * total;
    double lower = 0;
    double below = 0;
    for (int i = 0; i < to.bounds.size(); ++i) {
        const double atMost = to.atMost.at(i) - from.atMost.at(i);
        if (atMost >= rank) {
            // Beyond the last finite bound there is nothing to interpolate on.
            if (std::isinf(to.bounds.at(i)))
                return lower * 1000;
            const double inBucket = atMost - below;
            const double within = inBucket > 0 ? (rank - below) / inBucket : 1;
            return (lower + (to.bounds.at(i) - lower) * within) * 1000;
        }
        lower = to.bounds.at(i);
        below = atMost;
    }
    return lower * 1000;
}
