#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QList>
#include <QMap>
#include <QString>

#include <memory>

// Faults the simulator can inject; all off by default. Shares are 0..1 and
// are drawn from a generator seeded with `seed`, so runs repeat.
struct SimFaults {
    quint32 seed = 1;
    bool silent = false;             // answer nothing at all
    double dropShare = 0.0;          // replies not sent
    int delayMs = 0;                 // wait before every reply
    double wrongIdentityShare = 0.0; // replies whose bytes 0 and 1 are wrong
    int truncateTo = -1;             // cut every reply to this many bytes (-1 off)
    bool padReplies = false;         // pad read replies to 1472 bytes
    bool overlongReplies = false;    // append garbage beyond 1472 bytes
    bool extraDatagram = false;      // send every reply twice
    bool emptyDatagramFirst = false; // send an empty datagram before every reply
    // Late replies: held back while later requests are answered at once, so a
    // late reply arrives after the replies to requests sent after it.
    // Requests are numbered from 1, reads and writes only (no handshakes),
    // from the last setFaults; the share is drawn per request from the seed.
    QMap<int, int> lateReplies; // request number -> milliseconds held
    double lateShare = 0.0;     // share of replies held lateShareMs
    int lateShareMs = 0;
};

struct SimCounters {
    int frames = 0; // every request received, handshake included
    int handshakes = 0;
    int reads = 0;
    int writes = 0;
    int invalid = 0; // frames answered by silence because they made no sense
    int faults = 0;  // replies changed or withheld by a fault
};

// A Sorvik controller stand-in that serves the real protocol over UDP, a
// pseudo-terminal or a serial port. It runs on a thread of its own, so the
// drive's blocking waits meet a real peer. Every method may be called from
// any thread.
class SorvikSimulator
{
public:
    SorvikSimulator();
    ~SorvikSimulator();
    SorvikSimulator(const SorvikSimulator &) = delete;
    SorvikSimulator &operator=(const SorvikSimulator &) = delete;

    // Transports. startUdp gives the bound port (0 on failure); startPty the
    // path of the terminal a serial connection text should name (empty on failure).
    quint16 startUdp(const QHostAddress &address = QHostAddress::LocalHost, quint16 port = 0);
    QString startPty();
    bool startSerial(const QString &portName, int baud, int dataBits, int stopBits, const QString &parity);
    void stop();

    // Memory: one region per area code, bytes addressed as the frames address them
    // (one byte per bit on bit areas, 256-byte blocks on area SI).
    void preset(int area, int address, const QByteArray &bytes);
    QByteArray memory(int area, int address, int length) const;
    // "AI1=int32:42", "DI3=bool:1", "SI2=string:abc", "NAI1=float:1.5,2.5" ...
    bool presetTag(const QString &assignment, QString *error = nullptr);
    void clearMemory();
    // Fills all memory so that every value names this controller (0..199), its
    // area and its address; see SimSelfDescribing. Later presets and writes
    // still change it. False, and nothing changed, for an id out of range.
    bool fillSelfDescribing(int controller);

    // What came in.
    QList<QByteArray> frames() const;
    int frameCount() const;
    void clearFrames();
    SimCounters counters() const;

    // Faults and scripted answers.
    void setFaults(const SimFaults &faults);
    void setHandshakeReply(const QByteArray &reply); // default 04 01
    void queueReply(const QByteArray &raw);          // the next request is answered with exactly these bytes
    void sendUnsolicited(const QByteArray &raw);     // to the last UDP peer, or onto the terminal

private:
    class Private;
    std::unique_ptr<Private> d;
};
