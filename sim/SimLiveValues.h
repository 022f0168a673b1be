#pragma once

#include <QElapsedTimer>
#include <QList>
#include <QStringList>

#include <condition_variable>
#include <mutex>
#include <thread>

class SorvikSimulator;

// A small demo process for a simulator: inputs that change over time (a sine,
// ramps, toggling bits, a counter, a clock text). A thread of its own writes
// them through the simulator's public API, so readers see a live plant. Only
// input areas (AI, DI, SA, NAI, SI) are touched: what a host writes to output
// areas stays as written.
class SimLiveValues
{
public:
    explicit SimLiveValues(SorvikSimulator *simulator);
    ~SimLiveValues();
    SimLiveValues(const SimLiveValues &) = delete;
    SimLiveValues &operator=(const SimLiveValues &) = delete;

    // Bytes of memory that the demo leaves alone, e.g. what the user preset:
    // given values win over the demo's. Call before start().
    void keep(int area, int address, int length);

    // Writes the image for time 0 at once, then again every `periodMs`.
    void start(int periodMs = 100);
    void stop();

    // The image as it stands `seconds` after the start.
    static QStringList assignmentsAt(double seconds);
    // The demo tags with their types, e.g. "AI1:float".
    static QStringList tags();

private:
    void writeAt(double seconds);
    bool kept(int area, int address) const;

    struct Range {
        int area;
        int address;
        int length;
    };
    QList<Range> m_kept;

    SorvikSimulator *m_simulator;
    QElapsedTimer m_clock;
    std::thread m_thread;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_stopping = false;
};
