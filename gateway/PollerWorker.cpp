#include "PollerWorker.h"

#include "GatewayMetrics.h"
#include "GatewaySink.h"
#include "Topics.h"
#include "WriteCommand.h"
#include "host/CDriveBaseClass.h"
#include "host/RecordStatus.h"
#include "programs/DriveLibrary.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QMutexLocker>
#include <QPointer>

#include <limits>
#include <utility>

Q_LOGGING_CATEGORY(lcPoller, "sorvik.gateway.poller")

namespace {

// What the tags of a cycle report when the link could not be trusted for them.
const QString kNotTrusted = QStringLiteral("not read: link resynchronising after a lost reply");
const QString kNoBlockRecord = QStringLiteral("no reply: the block read gave no record");
// The drive gives up on a reply about this long after sending its request.
constexpr int kDriveGivesUpMs = 550;

// Workers that share a thread: while one of them is inside step, the drive's
// nested waits may fire another's timer. That one must not start a cycle on
// its own drive inside the first one's exchange, so it is put off until the
// running step is over.
thread_local bool t_stepping = false;
thread_local QList<QPointer<PollerWorker>> t_putOff;

QString connectText(int result)
{
    switch (result) {
    case -1: return QStringLiteral("cannot open");
    case -2: return QStringLiteral("no handshake");
    default: return QStringLiteral("result %1").arg(result);
    }
}

} // namespace

PollerWorker::PollerWorker(const ControllerConfig &controller, const QString &gateway, const QString &libraryFile,
                           GatewaySink *sink, GatewayMetrics *metrics, const PollerOptions &options)
    : m_config(controller), m_gateway(gateway), m_libraryFile(libraryFile), m_sink(sink), m_metrics(metrics),
      m_options(options), m_supervisor(controller.reconnect), m_timer(new QTimer(this))
{
    if (m_options.bootMs == 0)
        m_options.bootMs = QDateTime::currentMSecsSinceEpoch();
    m_timer->setSingleShot(true);
    m_timer->setTimerType(Qt::PreciseTimer);
    connect(m_timer, &QTimer::timeout, this, &PollerWorker::step);
}

PollerWorker::~PollerWorker() = default;

void PollerWorker::requestStop()
{
    m_stop = true;
    QMetaObject::invokeMethod(this, &PollerWorker::step, Qt::QueuedConnection);
}

void PollerWorker::enqueueWrite(const QByteArray &payload)
{
    {
        QMutexLocker lock(&m_writesLock);
        m_writes.append(payload);
    }
    QMetaObject::invokeMethod(this, &PollerWorker::step, Qt::QueuedConnection);
}

bool PollerWorker::makeDrive(QString *why)
{
    // Main has loaded the library already; this only takes another reference.
    DriveLibrary library;
    if (!library.load(m_libraryFile, why))
        return false;
    m_drive = library.create();
    if (!m_drive) {
        *why = QStringLiteral("drive library %1 gave no drive object").arg(m_libraryFile);
        return false;
    }
    return true;
}

void PollerWorker::begin()
{
    m_clock.start();
    QString why;
    if (!makeDrive(&why)) {
        qCCritical(lcPoller, "%s: %s", qPrintable(m_config.name), qPrintable(why));
        publishState(QStringLiteral("lost"), why);
        m_done = true;
        return; // nothing is read, nothing is invented; stop() still ends the thread
    }
    for (const ScanGroupConfig &config : qAsConst(m_config.groups)) {
        Group group;
        group.config = config;
        group.plan = GroupPlan::make(m_drive, m_config.name, config);
        group.stream = std::make_unique<DataStream>(m_gateway, m_config.name, config, m_options.bootMs);
        group.topic = Topics::data(m_gateway, m_config.name, config.name);
        for (const PlannedBlock &block : qAsConst(group.plan.blocks)) {
            QList<int> indexes;
            for (int i = 0; i < config.tags.size(); ++i)
                if (config.tags.at(i).count <= 1 && block.read.contains(group.plan.readInfo.at(i)))
                    indexes.append(i);
            group.blockTags.append(indexes);
        }
        for (const Induction::SReadInfo &info : qAsConst(group.plan.pointTags)) {
            QList<int> indexes;
            for (int i = 0; i < config.tags.size(); ++i)
                if (config.tags.at(i).count <= 1 && group.plan.readInfo.at(i) == info)
                    indexes.append(i);
            group.pointTags.append(indexes);
        }
        m_groups.push_back(std::move(group));
    }
    // A run that ended by a crash and was started again at once may have left
    // a request whose late reply is still on its way to this address and
    // port; taken by this run's first read it would pass as that tag's value.
    // So the drive binds only when no such reply is expected any more, and
    // the first cycles follow the connection.
    waitThen(kDriveGivesUpMs + m_options.lateWindowMs, RecordStatus::LinkNotOpen,
             QStringLiteral("link not open: not connected yet"));
    for (Group &group : m_groups)
        group.nextDue = m_wakeAt;
    step();
}

void PollerWorker::step()
{
    // A timer or a posted call can fire inside one of the drive's nested
    // waits: the drive takes one call at a time, so such a call only leaves
    // its work to the step that is running.
    if (m_busy)
        return;
    if (t_stepping) {
        if (!t_putOff.contains(this))
            t_putOff.append(this);
        return;
    }
    t_stepping = true;
    runDue();
    t_stepping = false;
    const QList<QPointer<PollerWorker>> putOff = std::exchange(t_putOff, {});
    for (const QPointer<PollerWorker> &worker : putOff)
        if (worker)
            QMetaObject::invokeMethod(worker.data(), &PollerWorker::step, Qt::QueuedConnection);
}

void PollerWorker::runDue()
{
    if (m_done) {
        runWrites(); // refused: there is no drive to carry them out
        if (m_stop)
            shutdown();
        return;
    }
    m_busy = true;
    for (;;) {
        if (m_stop) {
            m_busy = false;
            shutdown();
            return;
        }
        const qint64 now = m_clock.elapsed();
        if (m_mode == Mode::Waiting && now >= m_wakeAt) {
            reconnect();
            continue;
        }
        Group *due = nullptr;
        for (Group &group : m_groups)
            if (group.nextDue <= now && (!due || group.nextDue < due->nextDue))
                due = &group;
        if (due) {
            runCycle(*due);
            runWrites();
            continue;
        }
        bool writes = false;
        {
            QMutexLocker lock(&m_writesLock);
            writes = !m_writes.isEmpty();
        }
        if (writes) {
            runWrites();
            continue;
        }
        break;
    }
    m_busy = false;
    arm();
}

void PollerWorker::arm()
{
    qint64 next = std::numeric_limits<qint64>::max();
    for (const Group &group : m_groups)
        next = qMin(next, group.nextDue);
    if (m_mode == Mode::Waiting)
        next = qMin(next, m_wakeAt);
    if (next == std::numeric_limits<qint64>::max())
        return;
    m_timer->start(int(qBound<qint64>(0, next - m_clock.elapsed(), std::numeric_limits<int>::max())));
}

void PollerWorker::shutdown()
{
    runWrites(); // what came in last is answered, not dropped
    if (m_drive) {
        m_drive->DisConnectDrive();
        m_drive->DestroyFree();
        // The interface has no virtual destructor: the object itself stays
        // (a few hundred bytes) until the process ends.
        m_drive = nullptr;
    }
    m_timer->stop();
    m_done = true;
    emit finished();
}

void PollerWorker::runCycle(Group &group)
{
    const QDateTime start = QDateTime::currentDateTimeUtc();
    const qint64 due = group.nextDue;
    // Scans only: a cycle of a link that is down reads nothing, and its start
    // waits on its own reconnection.
    if (m_metrics && group.scheduled && m_mode == Mode::Running)
        m_metrics->addLateness(double(m_clock.nsecsElapsed() - due * 1000000) / 1e9);
    group.scheduled = true;
    // One vector of readings in place, not a list of a thousand nodes: this
    // runs for every group of every controller every cycle.
    std::vector<TagReading> readings;
    bool good = false;
    bool lostReply = false;
    if (m_mode == Mode::Running)
        good = readGroup(group, &readings, &lostReply);
    else
        readings.assign(size_t(group.config.tags.size()), TagReading::bad(m_waitStatus, m_waitMeaning));
    m_sink->publishData(group.topic, group.stream->message(start, readings));
    if (m_metrics)
        m_metrics->addCycle(m_config.name);

    // The late window after a single lost reply says nothing of the
    // controller, nor does a group that makes no request: only cycles read,
    // or those of a link that would not connect, count towards its loss.
    const bool tellsNothing =
        (m_mode == Mode::Waiting && m_lateWindow) || (m_mode == Mode::Running && group.plan.requestsPerCycle() == 0);
    const LinkSupervisor::Change change = tellsNothing ? LinkSupervisor::Change::None : m_supervisor.cycleEnded(good);
    switch (change) {
    case LinkSupervisor::Change::Back: publishState(QStringLiteral("online"), QString()); break;
    case LinkSupervisor::Change::Lost:
        publishState(QStringLiteral("lost"), m_lastFailure);
        if (m_mode == Mode::Running && !lostReply)
            waitThen(m_supervisor.nextPauseMs(), RecordStatus::LinkNotOpen,
                     QStringLiteral("link not open: controller lost, reconnecting"));
        break;
    case LinkSupervisor::Change::None: break;
    }
    if (lostReply && m_mode == Mode::Running) {
        m_resyncPending = true;
        m_lateWindow = true;
        waitThen(m_options.lateWindowMs, RecordStatus::NoReply, kNotTrusted);
    }

    // The next start comes from the schedule, not from the end of this
    // cycle; starts that passed while it ran are skipped and counted.
    const int interval = qMax(1, group.config.intervalMs);
    qint64 next = due + interval;
    const qint64 end = m_clock.elapsed();
    if (next <= end) {
        const qint64 missed = (end - next) / interval + 1;
        next += missed * interval;
        if (m_metrics)
            for (qint64 i = 0; i < missed; ++i)
                m_metrics->addOverrun(m_config.name);
        qCDebug(lcPoller, "%s/%s: %lld cycle starts missed", qPrintable(m_config.name), qPrintable(group.config.name),
                missed);
    }
    group.nextDue = next;
}

// Reads a group's blocks, its tags read alone and its counted tags. After a
// lost reply nothing more is read: a late reply would be taken, with status
// 0, as the answer to the next request, so the rest is bad until the link is
// resynchronised. Gives whether any reply was good.
bool PollerWorker::readGroup(Group &group, std::vector<TagReading> *readings, bool *lostReply)
{
    const QString &key = group.plan.connectPar;
    const QList<TagConfig> &tags = group.config.tags;
    readings->assign(size_t(tags.size()), TagReading::bad(RecordStatus::NotDone));
    bool good = false;
    int requests = 0;
    auto take = [&](int index, const CLabelVariable &record) {
        if (record.status == RecordStatus::Ok) {
            (*readings)[index] = TagReading::good(record.value);
            good = true;
            return;
        }
        (*readings)[index] = TagReading::bad(record.status);
        m_lastFailure = QStringLiteral("%1: status %2, %3")
                            .arg(tags.at(index).name)
                            .arg(record.status)
                            .arg(QLatin1String(RecordStatus::meaning(record.status)));
        if (m_metrics)
            m_metrics->addFailure(m_config.name, record.status);
        if (record.status == RecordStatus::NoReply)
            *lostReply = true;
    };
    auto distrust = [&](const QList<int> &indexes) {
        for (int index : indexes)
            (*readings)[index] = TagReading::bad(RecordStatus::NoReply, kNotTrusted);
    };

    for (int b = 0; b < group.plan.blocks.size(); ++b) {
        const QList<int> &indexes = group.blockTags.at(b);
        if (*lostReply) {
            distrust(indexes);
            continue;
        }
        const QMap<Induction::SReadInfo, CLabelVariable> records =
            m_drive->BlockReading(key, group.plan.blocks.at(b).key);
        ++requests;
        if (records.isEmpty()) {
            // A failed bit block gives no record at all, so its status is not
            // known: taken as a lost reply, which resynchronises the link.
            for (int index : indexes)
                (*readings)[index] = TagReading::bad(RecordStatus::NoReply, kNoBlockRecord);
            m_lastFailure = kNoBlockRecord;
            if (m_metrics)
                m_metrics->addFailure(m_config.name, RecordStatus::NoReply);
            *lostReply = true;
            continue;
        }
        for (int index : indexes) {
            const auto record = records.constFind(group.plan.readInfo.at(index));
            if (record == records.constEnd())
                (*readings)[index] =
                    TagReading::bad(RecordStatus::NotDone, QStringLiteral("not done: beyond the end of the reply"));
            else
                take(index, *record);
        }
    }
    for (int p = 0; p < group.plan.pointTags.size(); ++p) {
        if (*lostReply) {
            distrust(group.pointTags.at(p));
            continue;
        }
        const CLabelVariable record = m_drive->PointReading(key, group.plan.pointTags.at(p));
        ++requests;
        for (int index : group.pointTags.at(p))
            take(index, record);
    }
    for (int index : qAsConst(group.plan.countedTags)) {
        if (*lostReply) {
            distrust({index});
            continue;
        }
        const TagConfig &tag = tags.at(index);
        m_drive->SetConnectPar(key);
        take(index, m_drive->ReadVariable(tag.tag, DataType(tag.dataType), tag.count));
        ++requests;
    }
    if (m_metrics)
        m_metrics->addRequests(m_config.name, requests);
    // Values read before a loss stand: every earlier loss was followed by a
    // resynchronisation before anything more was read.
    return good;
}

void PollerWorker::waitThen(qint64 pauseMs, int status, const QString &meaning)
{
    m_mode = Mode::Waiting;
    m_wakeAt = m_clock.elapsed() + pauseMs;
    m_waitStatus = status;
    m_waitMeaning = meaning;
}

void PollerWorker::reconnect()
{
    if (m_supervisor.isLost())
        publishState(QStringLiteral("reconnecting"), QStringLiteral("attempt %1").arg(m_supervisor.attempts()));
    if (m_everConnected && m_metrics)
        m_metrics->addReconnect(m_config.name);
    m_lateWindow = false;
    const bool serial = m_config.connection.contains(QLatin1Char(','));
    if (m_resyncPending && serial && !m_config.groups.isEmpty() && !m_config.groups.first().tags.isEmpty()) {
        // On a serial line what a late reply left in the drive's receive
        // buffer is taken by the next exchange even when a fresh reply
        // follows, and reopening the port does not empty that buffer: one
        // read still on the old link takes it, and its own reply goes with
        // the closed port. (A UDP handshake replaces the buffer with its own
        // reply, so UDP needs no such read.) If this read gets no reply in
        // time, its reply may come late in turn: wait once more.
        const TagConfig &tag = m_config.groups.first().tags.first();
        const CLabelVariable record = m_drive->ReadVariable(tag.tag, DataType(tag.dataType), 1);
        if (record.status == RecordStatus::NoReply) {
            m_lastFailure = QStringLiteral("no reply on %1").arg(m_config.connection);
            waitThen(qMax(m_options.lateWindowMs, m_supervisor.nextPauseMs()), RecordStatus::NoReply, kNotTrusted);
            return;
        }
    }
    m_resyncPending = false;
    m_drive->DisConnectDrive();
    int result = m_drive->ConnectDrive(m_config.connection);
    // A datagram that lay in the receive buffer can stand in the handshake's
    // place once; a second handshake on the fresh socket proves the peer.
    if (result == -2)
        result = m_drive->ConnectDrive(m_config.connection);
    if (result == 0) {
        m_mode = Mode::Running;
        m_everConnected = true;
        qCInfo(lcPoller, "%s: connected to %s", qPrintable(m_config.name), qPrintable(m_config.connection));
        return;
    }
    m_lastFailure = QStringLiteral("no connection to %1: %2").arg(m_config.connection, connectText(result));
    qCWarning(lcPoller, "%s: %s", qPrintable(m_config.name), qPrintable(m_lastFailure));
    waitThen(m_supervisor.nextPauseMs(), RecordStatus::LinkNotOpen, QStringLiteral("link not open: ") + m_lastFailure);
}

void PollerWorker::runWrites()
{
    QList<QByteArray> writes;
    {
        QMutexLocker lock(&m_writesLock);
        writes.swap(m_writes);
    }
    for (const QByteArray &payload : qAsConst(writes)) {
        WriteCommand command = WriteCommand::parse(payload, m_config, m_options.readOnly);
        // Not carried out, and said so: a write is never left unanswered.
        if (command.accepted() && m_stop)
            command.refuse(WriteCommand::Kind::Stopping, QStringLiteral("the gateway is stopping: not written"));
        else if (command.accepted() && !m_drive)
            command.refuse(WriteCommand::Kind::NotReady, QStringLiteral("not written: there is no drive object"));
        else if (command.accepted() && m_mode != Mode::Running)
            command.refuse(
                WriteCommand::Kind::NotReady,
                QStringLiteral("not written while the link is not open or not trusted (%1)").arg(m_waitMeaning));
        answerWrite(command);
    }
}

void PollerWorker::answerWrite(const WriteCommand &command)
{
    const QString topic = Topics::writeReply(m_gateway, m_config.name);
    if (!command.accepted()) {
        // Counted by kind and logged once per kind: a stranger flooding the
        // write topic must not flood the log.
        const QString kind = WriteCommand::kindName(command.kind);
        command.logRefusal(m_config.name, !m_metrics || m_metrics->addWriteRefused(kind));
        m_sink->publishEvent(topic, command.refusedReply());
        return;
    }
    CLabelVariable label;
    label.tag = command.tag.tag;
    label.dataType = command.tag.dataType;
    label.length = qMax(1, command.tag.count);
    label.value = command.value;
    // Once, whatever comes back: the drive cannot tell whether the device
    // took a write whose reply was lost, so it is reported, not repeated.
    const CLabelVariable record =
        m_drive->WriteVariable(command.tag.tag, DataType(command.tag.dataType), label, label.length);
    if (m_metrics)
        m_metrics->addWrite(m_config.name, record.status == RecordStatus::Ok);
    m_sink->publishEvent(topic, command.doneReply(record.status, QLatin1String(RecordStatus::meaning(record.status))));
    if (record.status == RecordStatus::NoReply && m_mode == Mode::Running) {
        m_lastFailure = QStringLiteral("write of %1: no reply").arg(command.name);
        m_resyncPending = true;
        m_lateWindow = true;
        waitThen(m_options.lateWindowMs, RecordStatus::NoReply, kNotTrusted);
    }
}

void PollerWorker::publishState(const QString &state, const QString &reason)
{
    QJsonObject status{{QStringLiteral("state"), state},
                       {QStringLiteral("time"), QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs)}};
    if (!reason.isEmpty())
        status.insert(QStringLiteral("reason"), reason);
    if (state != QLatin1String("online"))
        qCWarning(lcPoller, "%s: %s %s", qPrintable(m_config.name), qPrintable(state), qPrintable(reason));
    else
        qCInfo(lcPoller, "%s: online", qPrintable(m_config.name));
    m_sink->publishStatus(Topics::controllerStatus(m_gateway, m_config.name),
                          QJsonDocument(status).toJson(QJsonDocument::Compact));
}
