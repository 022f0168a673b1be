#include "SimFaultInjector.h"

#include "link/SorvikProtocol.h"

namespace {

// Bytes appended after a full-size reply by the over-long fault.
constexpr int kOverlongExtra = 128;
constexpr char kGarbage = char(0xA5);
// Sets the late generator apart from the one of the other faults.
constexpr quint32 kLateStream = 0x1a7e;

void seedLate(std::mt19937 *random, quint32 seed)
{
    std::seed_seq sequence{seed, kLateStream};
    random->seed(sequence);
}

} // namespace

SimFaultInjector::SimFaultInjector() : m_random(m_faults.seed)
{
    seedLate(&m_lateRandom, m_faults.seed);
}

void SimFaultInjector::setFaults(const SimFaults &faults)
{
    m_faults = faults;
    m_random.seed(faults.seed);
    seedLate(&m_lateRandom, faults.seed);
    m_requests = 0;
}

int SimFaultInjector::holdFor()
{
    ++m_requests;
    const bool drawn =
        m_faults.lateShare > 0.0 && std::generate_canonical<double, 32>(m_lateRandom) < m_faults.lateShare;
    // A request both named and drawn is held the longer of the two.
    const int named = qMax(0, m_faults.lateReplies.value(m_requests, 0));
    return qMax(named, drawn ? qMax(0, m_faults.lateShareMs) : 0);
}

bool SimFaultInjector::draw(double share)
{
    if (share <= 0.0)
        return false;
    return std::generate_canonical<double, 32>(m_random) < share;
}

QList<QByteArray> SimFaultInjector::shape(const QByteArray &reply, bool isReadReply, bool *faulted)
{
    *faulted = false;
    if (m_faults.silent || draw(m_faults.dropShare)) {
        *faulted = true;
        return {};
    }

    QByteArray out = reply;
    if (draw(m_faults.wrongIdentityShare) && !out.isEmpty()) {
        for (int i = 0; i < qMin(2, out.size()); ++i)
            out[i] = char(~out.at(i));
        *faulted = true;
    }
    if (m_faults.padReplies && isReadReply && out.size() < SorvikProtocol::kPaddedReplySize) {
        out.append(SorvikProtocol::kPaddedReplySize - out.size(), '\0');
        *faulted = true;
    }
    if (m_faults.overlongReplies) {
        out.append(qMax(0, SorvikProtocol::kPaddedReplySize - out.size()) + kOverlongExtra, kGarbage);
        *faulted = true;
    }
    if (m_faults.truncateTo >= 0 && out.size() > m_faults.truncateTo) {
        out.truncate(m_faults.truncateTo);
        *faulted = true;
    }

    QList<QByteArray> datagrams;
    if (m_faults.emptyDatagramFirst)
        datagrams << QByteArray();
    datagrams << out;
    if (m_faults.extraDatagram)
        datagrams << out;
    if (m_faults.emptyDatagramFirst || m_faults.extraDatagram || m_faults.delayMs > 0)
        *faulted = true;
    return datagrams;
}
