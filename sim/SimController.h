#pragma once

#include "SimMemory.h"

#include <QByteArray>
#include <QString>

// What the controller makes of one frame.
struct SimAnswer {
    enum class Kind { Handshake, Read, Write, Invalid };
    Kind kind = Kind::Invalid;
    QByteArray reply; // what to send back; unused for Invalid, which is answered by silence
    QString reason;   // why an invalid frame was refused
};

// The controller's side of the protocol without any transport: a frame goes
// in, a reply or a refusal comes out. Any byte sequence is safe to hand in.
class SimController
{
public:
    SimController();

    SimAnswer answer(const QByteArray &frame);

    void setHandshakeReply(const QByteArray &reply) { m_handshakeReply = reply; }
    SimMemory &memory() { return m_memory; }
    const SimMemory &memory() const { return m_memory; }

private:
    SimAnswer answerRead(const QByteArray &frame) const;
    SimAnswer answerWrite(const QByteArray &frame);

    SimMemory m_memory;
    QByteArray m_handshakeReply;
};
