#pragma once

#include "SimController.h"
#include "SimFaultInjector.h"
#include "SorvikSimulator.h"

#include <QByteArray>
#include <QList>
#include <QMutex>
#include <QString>

// What goes out for one request: datagrams (or runs of bytes on a terminal)
// in order, after a delay. No datagrams means silence. A held reply waits
// `holdMs` more, apart from the others, so later replies overtake it.
struct SimOutcome {
    QList<QByteArray> datagrams;
    int delayMs = 0;
    int holdMs = 0;
};

// The controller with its records, faults and scripted replies behind one
// lock: the transports hand frames in from the simulator's thread while tests
// preset memory and read the records from theirs.
class SimCore
{
public:
    // Records the frame, answers it and shapes the answer by the faults.
    SimOutcome take(const QByteArray &frame);

    void preset(int area, int address, const QByteArray &bytes);
    QByteArray memory(int area, int address, int length) const;
    bool presetTag(const QString &assignment, QString *error);
    void clearMemory();
    bool fillSelfDescribing(int controller);

    QList<QByteArray> frames() const;
    int frameCount() const;
    void clearFrames();
    SimCounters counters() const;

    void setFaults(const SimFaults &faults);
    void setHandshakeReply(const QByteArray &reply);
    void queueReply(const QByteArray &raw);

private:
    mutable QMutex m_mutex;
    SimController m_controller;
    SimFaultInjector m_faults;
    QList<QByteArray> m_frames;
    QList<QByteArray> m_scripted;
    SimCounters m_counters;
};
