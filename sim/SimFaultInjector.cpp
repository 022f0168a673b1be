#include "SimFaultInjector.h"

#include "link/SorvikProtocol.h"

namespace {

// Bytes appended after a full-size reply by the over-long fault.
constexpr int kOverlongExtra = 128;
constexpr char kGarbage = char(0xA5);

} // namespace

SimFaultInjector::SimFaultInjector() : m_random(m_faults.seed) {}

void SimFaultInjector::setFaults(const SimFaults &faults)
{
    m_faults = faults;
    m_random.seed(faults.seed);
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
