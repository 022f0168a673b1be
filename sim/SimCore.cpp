#include "SimCore.h"

#include "SimLog.h"
#include "SimPresets.h"
#include "SimSelfDescribing.h"
#include "link/SorvikProtocol.h"

#include <QMutexLocker>

SimOutcome SimCore::take(const QByteArray &frame)
{
    qCDebug(lcSimFrames, "in  %s", frame.toHex().constData());
    SimOutcome outcome;
    SimAnswer answer;
    {
        QMutexLocker lock(&m_mutex);
        m_frames.append(frame);
        ++m_counters.frames;
        answer = m_controller.answer(frame);
        switch (answer.kind) {
        case SimAnswer::Kind::Handshake: ++m_counters.handshakes; break;
        case SimAnswer::Kind::Read: ++m_counters.reads; break;
        case SimAnswer::Kind::Write: ++m_counters.writes; break;
        case SimAnswer::Kind::Invalid: ++m_counters.invalid; break;
        }
        const bool request = answer.kind == SimAnswer::Kind::Read || answer.kind == SimAnswer::Kind::Write;
        const int holdMs = request ? m_faults.holdFor() : 0;
        // A scripted reply stands in for whatever the controller would have
        // said, exactly as given: no fault touches it. The request itself is
        // still carried out, so a write that is answered so is stored.
        if (!m_scripted.isEmpty()) {
            outcome.datagrams << m_scripted.takeFirst();
        } else if (answer.kind != SimAnswer::Kind::Invalid) {
            bool faulted = false;
            outcome.datagrams = m_faults.shape(answer.reply, answer.kind == SimAnswer::Kind::Read, &faulted);
            outcome.delayMs = qMax(0, m_faults.faults().delayMs);
            outcome.holdMs = outcome.datagrams.isEmpty() ? 0 : holdMs;
            m_counters.faults += faulted || outcome.holdMs > 0 ? 1 : 0;
        }
    }
    if (answer.kind == SimAnswer::Kind::Invalid)
        qCInfo(lcSim, "no reply to frame %s: %s", frame.toHex().constData(), qUtf8Printable(answer.reason));
    return outcome;
}

void SimCore::preset(int area, int address, const QByteArray &bytes)
{
    QMutexLocker lock(&m_mutex);
    if (!m_controller.memory().write(area, address, bytes.constData(), bytes.size()))
        qCWarning(lcSim, "preset of %d bytes at address %d of area %d refused: outside the area", int(bytes.size()),
                  address, area);
}

// A range that does not lie wholly inside a region gives an empty array
// rather than a part of it.
QByteArray SimCore::memory(int area, int address, int length) const
{
    QMutexLocker lock(&m_mutex);
    return m_controller.memory().read(area, address, length);
}

bool SimCore::presetTag(const QString &assignment, QString *error)
{
    SimPreset parsed;
    if (!SimPresets::parse(assignment, &parsed, error))
        return false;
    QMutexLocker lock(&m_mutex);
    m_controller.memory().write(parsed.area, parsed.address, parsed.bytes.constData(), parsed.bytes.size());
    return true;
}

bool SimCore::fillSelfDescribing(int controller)
{
    if (controller < 0 || controller > SimSelfDescribing::kLastController) {
        qCWarning(lcSim, "self-describing fill refused: controller %d is not in 0..%d", controller,
                  SimSelfDescribing::kLastController);
        return false;
    }
    QMutexLocker lock(&m_mutex);
    for (const SorvikProtocol::Area &area : SorvikProtocol::kAreas) {
        const int size = m_controller.memory().regionSize(area.code);
        const QByteArray fill = SimSelfDescribing::bytes(controller, area.code, 0, size);
        m_controller.memory().write(area.code, 0, fill.constData(), fill.size());
    }
    return true;
}

void SimCore::clearMemory()
{
    QMutexLocker lock(&m_mutex);
    m_controller.memory().clear();
}

QList<QByteArray> SimCore::frames() const
{
    QMutexLocker lock(&m_mutex);
    return m_frames;
}

int SimCore::frameCount() const
{
    QMutexLocker lock(&m_mutex);
    return m_frames.size();
}

void SimCore::clearFrames()
{
    QMutexLocker lock(&m_mutex);
    m_frames.clear();
}

SimCounters SimCore::counters() const
{
    QMutexLocker lock(&m_mutex);
    return m_counters;
}

void SimCore::setFaults(const SimFaults &faults)
{
    QMutexLocker lock(&m_mutex);
    m_faults.setFaults(faults);
}

void SimCore::setHandshakeReply(const QByteArray &reply)
{
    QMutexLocker lock(&m_mutex);
    m_controller.setHandshakeReply(reply);
}

void SimCore::queueReply(const QByteArray &raw)
{
    QMutexLocker lock(&m_mutex);
    m_scripted.append(raw);
}
