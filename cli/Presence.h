#pragma once

// Tells on stderr, once each way, when a polled controller has given no good
// record for some cycles and when it answers again.
class Presence
{
public:
    static constexpr int kLostAfterCycles = 3;

    // At the end of each cycle: whether any record of it was good.
    void cycle(bool anyGood);

private:
    int m_silentCycles = 0;
    bool m_lost = false;
};
