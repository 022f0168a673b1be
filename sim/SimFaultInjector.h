#pragma once

#include "SorvikSimulator.h"

#include <QByteArray>
#include <QList>

#include <random>

// Turns one reply into the datagrams that actually go out under the set
// faults. Random draws come from a generator seeded with the faults' seed, so
// a run repeats; a share of 0 draws nothing.
class SimFaultInjector
{
public:
    SimFaultInjector();

    void setFaults(const SimFaults &faults);
    const SimFaults &faults() const { return m_faults; }

    // The datagrams to send, in order; none when the reply is withheld.
    // `*faulted` tells whether a fault withheld, changed or delayed it.
    QList<QByteArray> shape(const QByteArray &reply, bool isReadReply, bool *faulted);
    // Counts one read or write request and tells how long its reply is held
    // back apart from the others (0: not held). Called for every such request,
    // so which ones are late depends only on their numbers and the seed.
    int holdFor();

private:
    bool draw(double share);

    SimFaults m_faults;
    std::mt19937 m_random;
    // Late replies draw from a generator of their own, so that turning them on
    // leaves the drops and wrong identities of a seed where they were.
    std::mt19937 m_lateRandom;
    int m_requests = 0;
};
