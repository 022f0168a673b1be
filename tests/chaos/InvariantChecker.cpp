#include "InvariantChecker.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>

#include <limits>

Q_LOGGING_CATEGORY(lcCheck, "sorvik.chaos.check")

namespace {
constexpr int kFailuresShown = 40;
}

InvariantChecker::InvariantChecker(const ChaosPlan &plan) : m_plan(plan)
{
    for (int i = 0; i < plan.controllers.size(); ++i)
        m_controllerByName.insert(plan.controllers.at(i).name, i);
}

void InvariantChecker::fail(const QString &what)
{
    if (++m_failures <= kFailuresShown)
        qCWarning(lcCheck, "INVARIANT FAILED: %s", qUtf8Printable(what));
}

void InvariantChecker::gatewayStarted(qint64 atMs, bool countedPhase)
{
    Run run;
    run.startMs = atMs;
    run.counted = countedPhase;
    m_runs << run;
}

void InvariantChecker::gatewayKilled(qint64 atMs, const QList<QueuedRow> &held)
{
    m_runs.last().killedMs = atMs;
    const QList<Held> rows = parseRows(held, atMs);
    qCInfo(lcCheck, "the queue held %d rows at the kill; each must arrive after the restart", int(rows.size()));
    m_held += rows;
}

void InvariantChecker::gatewayStopping(qint64 atMs)
{
    m_runs.last().stoppingMs = atMs;
}

void InvariantChecker::gatewayStopped(const QList<QueuedRow> &left)
{
    // Left for the next start: delivered then, if there is one.
    const QList<Held> rows = parseRows(left, m_runs.last().stoppingMs);
    if (!rows.isEmpty())
        qCInfo(lcCheck, "%d rows stay queued after the stop", int(rows.size()));
    m_held += rows;
}

QList<InvariantChecker::Held> InvariantChecker::parseRows(const QList<QueuedRow> &rows, qint64 sinceMs)
{
    QList<Held> out;
    for (const QueuedRow &row : rows) {
        const QJsonObject m = QJsonDocument::fromJson(row.payload).object();
        const qint64 boot = qint64(m.value(QLatin1String("boot")).toDouble());
        const qint64 seq = qint64(m.value(QLatin1String("seq")).toDouble());
        if (boot <= 0 || seq <= 0 || row.topic.count(QLatin1Char('/')) != 3) {
            fail(QStringLiteral("a queued row of %1 is damaged: %2")
                     .arg(row.topic, QString::fromUtf8(row.payload.left(80))));
            continue;
        }
        out << Held{row.topic, boot, seq, sinceMs};
    }
    return out;
}

int InvariantChecker::runOfBoot(qint64 boot) const
{
    // The boot is taken a moment after the process started.
    for (int i = m_runs.size() - 1; i >= 0; --i)
        if (m_runs.at(i).startMs <= boot + 50)
            return i;
    return -1;
}

int InvariantChecker::runAt(qint64 ms) const
{
    for (int i = m_runs.size() - 1; i >= 0; --i)
        if (m_runs.at(i).startMs <= ms)
            return i;
    return -1;
}

void InvariantChecker::take(const ChaosSubscriber::Message &message)
{
    const QStringList levels = message.topic.split(QLatin1Char('/'));
    if (levels.size() < 3 || levels.at(0) != QLatin1String("sorvik") || levels.at(1) != QLatin1String("chaos"))
        return fail(QStringLiteral("a message on a topic of no gateway: %1").arg(message.topic));
    if (levels.size() == 3 && levels.at(2) == QLatin1String("heartbeat")) {
        m_lastGatewayMessage = message.receivedMs;
        const int run = runAt(message.receivedMs);
        const QJsonObject beat = QJsonDocument::fromJson(message.payload).object();
        if (run >= 0) {
            m_runs[run].dropped = qMax(m_runs[run].dropped, qint64(beat.value(QLatin1String("dropped")).toDouble()));
            if (m_runs[run].stoppingMs && message.receivedMs >= m_runs[run].stoppingMs)
                m_runs[run].cycles = qint64(beat.value(QLatin1String("cycles")).toDouble());
        }
        return;
    }
    if (levels.size() == 3)
        return; // the gateway's own status
    const auto controller = m_controllerByName.constFind(levels.at(2));
    if (controller == m_controllerByName.constEnd())
        return fail(QStringLiteral("a message of no configured controller: %1").arg(message.topic));
    if (levels.size() == 4 && levels.at(3) == QLatin1String("status")) {
        const QString state =
            QJsonDocument::fromJson(message.payload).object().value(QLatin1String("state")).toString();
        m_statuses[*controller] << qMakePair(message.receivedMs, state);
        qCInfo(lcCheck, "%s is %s", qUtf8Printable(levels.at(2)), qUtf8Printable(state));
        return;
    }
    if (levels.size() == 4 && levels.at(3) != QLatin1String("write"))
        return takeData(levels.at(2), levels.at(3), message);
}

void InvariantChecker::takeData(const QString &name, const QString &group, const ChaosSubscriber::Message &message)
{
    ++messages;
    m_lastGatewayMessage = message.receivedMs;
    m_lastData[message.topic] = message.receivedMs;
    const QJsonObject m = QJsonDocument::fromJson(message.payload).object();
    const qint64 boot = qint64(m.value(QLatin1String("boot")).toDouble());
    const qint64 seq = qint64(m.value(QLatin1String("seq")).toDouble());
    const int run = runOfBoot(boot);
    if (m.value(QLatin1String("gateway")).toString() != QLatin1String("chaos") ||
        m.value(QLatin1String("controller")).toString() != name ||
        m.value(QLatin1String("group")).toString() != group || seq <= 0 || run < 0)
        return fail(QStringLiteral("a data message not of its topic %1, or of no run: %2")
                        .arg(message.topic, QString::fromUtf8(message.payload.left(160))));

    Stream &stream = m_streams[message.topic];
    QMap<qint64, Arrival> &arrivals = stream.arrivals[boot];
    if (arrivals.contains(seq)) {
        ++duplicates; // QoS 1 may repeat; the number tells it
        arrivals[seq].last = message.receivedMs;
        return;
    }
    if (boot < stream.lastBoot || (boot == stream.lastBoot && seq < stream.lastSeq))
        fail(QStringLiteral("%1: (boot %2, seq %3) arrived after (boot %4, seq %5)")
                 .arg(message.topic)
                 .arg(boot)
                 .arg(seq)
                 .arg(stream.lastBoot)
                 .arg(stream.lastSeq));
    else
        stream.lastBoot = boot, stream.lastSeq = seq;
    arrivals.insert(seq, Arrival{message.receivedMs, message.receivedMs});

    const ChaosController &controller = m_plan.controllers.at(m_controllerByName.value(name));
    const bool counted = m_runs.at(run).counted && !controller.counted.isEmpty();
    const bool cut = counted && controller.counted.contains(QLatin1String("--truncate"));
    const QJsonObject goods = m.value(QLatin1String("values")).toObject();
    const QJsonObject errors = m.value(QLatin1String("errors")).toObject();
    for (auto it = goods.begin(); it != goods.end(); ++it) {
        const ChaosTag *tag = controller.tag(group, it.key());
        if (!tag) {
            fail(QStringLiteral("%1 seq %2 carries a value under a name never configured: %3")
                     .arg(message.topic)
                     .arg(seq)
                     .arg(it.key()));
            continue;
        }
        QString why;
        const bool good = tag->matches(controller.id, it.value(), &why);
        if (counted) {
            ++(cut ? cutValues : doubledValues);
            mismatches += !good;
        } else {
            ++values;
            if (!good)
                fail(QStringLiteral("%1 (boot %2, seq %3): %4").arg(message.topic).arg(boot).arg(seq).arg(why));
        }
    }
    for (auto it = errors.begin(); it != errors.end(); ++it) {
        const QJsonObject error = it.value().toObject();
        if (error.contains(QLatin1String("value")) || (!counted && error.value(QLatin1String("status")).toInt() == 0))
            fail(QStringLiteral("%1 seq %2: the bad tag %3 says %4")
                     .arg(message.topic)
                     .arg(seq)
                     .arg(it.key(), QString::fromUtf8(QJsonDocument(error).toJson(QJsonDocument::Compact))));
    }
    for (const ChaosGroup &g : controller.groups)
        if (g.name == group)
            for (const ChaosTag &tag : g.tags)
                if (!goods.contains(tag.name) && !errors.contains(tag.name))
                    fail(QStringLiteral("%1 seq %2 left out the tag %3").arg(message.topic).arg(seq).arg(tag.name));
}

void InvariantChecker::expectLost(int controller, qint64 afterMs, qint64 byMs)
{
    m_expectations << Expectation{controller, false, afterMs, byMs, QString()};
}

void InvariantChecker::expectOnline(int controller, qint64 afterMs, qint64 byMs, const QString &because,
                                    qint64 unlessSinceMs)
{
    m_expectations << Expectation{controller, true, afterMs, byMs, because, unlessSinceMs};
}

bool InvariantChecker::evaluate(const Expectation &e)
{
    const QList<QPair<qint64, QString>> statuses = m_statuses.value(e.controller);
    const QString &name = m_plan.controllers.at(e.controller).name;
    if (!e.online) {
        for (const auto &status : statuses)
            if (status.first > e.afterMs && status.first <= e.byMs && status.second != QLatin1String("online"))
                return true;
        fail(QStringLiteral("%1 was not said lost within %2 ms of its simulator's kill")
                 .arg(name)
                 .arg(e.byMs - e.afterMs));
        return false;
    }
    QString latest = QStringLiteral("none");
    bool left = e.unlessSinceMs == 0;
    for (const auto &status : statuses)
        left = left || (status.first > e.unlessSinceMs && status.second != QLatin1String("online"));
    if (!left)
        return true;
    for (const auto &status : statuses) {
        if (status.first > e.afterMs && status.first <= e.byMs && status.second == QLatin1String("online"))
            return true;
        if (status.first <= e.byMs)
            latest = status.second;
    }
    fail(QStringLiteral("%1 was not online again within %2 ms of %3 (latest status: %4)")
             .arg(name)
             .arg(e.byMs - e.afterMs)
             .arg(e.because, latest));
    return false;
}

void InvariantChecker::postpone(qint64 ms)
{
    for (Expectation &e : m_expectations)
        e.byMs += ms;
}

void InvariantChecker::tick(qint64 nowMs)
{
    for (int i = 0; i < m_expectations.size();) {
        if (m_expectations.at(i).byMs <= nowMs) {
            evaluate(m_expectations.at(i));
            m_expectations.removeAt(i);
        } else {
            ++i;
        }
    }
}

void InvariantChecker::finish()
{
    tick(std::numeric_limits<qint64>::max());
    // Rows the queue held: each arrives after the kill (or stop) that left it.
    QHash<QString, QHash<qint64, QSet<qint64>>> held; // topic -> boot -> seq
    for (const Held &row : qAsConst(m_held)) {
        held[row.topic][row.boot].insert(row.seq);
        const Arrival arrived = m_streams.value(row.topic).arrivals.value(row.boot).value(row.seq);
        if (row.sinceMs == m_runs.last().stoppingMs)
            continue; // queued for a start that this run does not make
        // A copy that arrived before the kill does not count: the restarted
        // gateway must send the row again.
        if (arrived.last <= row.sinceMs)
            fail(QStringLiteral("%1 (boot %2, seq %3) stood in the queue at the kill or stop and did not arrive "
                                "after the restart")
                     .arg(row.topic)
                     .arg(row.boot)
                     .arg(row.seq));
    }

    QHash<int, qint64> unexplained; // by run
    QHash<int, qint64> highest;     // by run: the sum of the streams' highest numbers
    QHash<int, QStringList> examples;
    for (auto s = m_streams.cbegin(); s != m_streams.cend(); ++s) {
        for (auto b = s->arrivals.cbegin(); b != s->arrivals.cend(); ++b) {
            const int run = runOfBoot(b.key());
            const QSet<qint64> queued = held.value(s.key()).value(b.key());
            qint64 top = b->isEmpty() ? 0 : b->lastKey();
            for (qint64 q : queued)
                top = qMax(top, q);
            highest[run] += top;
            const qint64 killed = m_runs.at(run).killedMs;
            // The latest arrival before the kill of a number above each one.
            for (qint64 seq = 1; seq <= top; ++seq) {
                if (b->contains(seq) || queued.contains(seq))
                    continue;
                bool laterBeforeKill = !killed;
                for (auto later = b->upperBound(seq); killed && later != b->cend() && !laterBeforeKill; ++later)
                    laterBeforeKill = later.value().first < killed;
                if (laterBeforeKill) {
                    if (++unexplained[run] <= 3)
                        examples[run] << QStringLiteral("%1 (boot %2, seq %3)").arg(s.key()).arg(b.key()).arg(seq);
                } else {
                    ++uncommitted; // on its way when the gateway was killed
                }
            }
        }
    }
    for (int run = 0; run < m_runs.size(); ++run) {
        const Run &r = m_runs.at(run);
        dropped += r.dropped;
        if (unexplained.value(run) > 0)
            qCInfo(lcCheck, "run %d of the gateway: %lld messages missing, %lld counted dropped", run + 1,
                   unexplained.value(run), r.dropped);
        if (unexplained.value(run) > r.dropped)
            fail(QStringLiteral("run %1 of the gateway: %2 messages neither arrived nor were counted dropped (%3), "
                                "such as %4")
                     .arg(run + 1)
                     .arg(unexplained.value(run))
                     .arg(r.dropped)
                     .arg(examples.value(run).join(QStringLiteral(", "))));
        if (r.stoppingMs && r.cycles >= 0 && highest.value(run) != r.cycles)
            fail(QStringLiteral("run %1 of the gateway made %2 messages; the streams account for %3")
                     .arg(run + 1)
                     .arg(r.cycles)
                     .arg(highest.value(run)));
        if (r.stoppingMs && r.cycles < 0)
            qCWarning(lcCheck, "run %d: no heartbeat after the stop; its tail is not counted", run + 1);
    }
}
