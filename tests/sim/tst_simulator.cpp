#include "TestSupport.h"
#include "link/SorvikProtocol.h"
#include "sim/SimController.h"
#include "sim/SimPresets.h"
#include "sim/SorvikSimulator.h"

#include <QElapsedTimer>
#include <QNetworkDatagram>
#include <QSerialPort>
#include <QUdpSocket>
#include <QtTest>

#include <random>

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

using TestSupport::hex;

namespace {

// How long a test waits, once the simulator has taken a frame, to be sure
// that nothing (more) comes: a reply leaves right after the frame is taken.
constexpr int kQuietMs = 30;

// A raw UDP peer of the simulator.
class UdpClient
{
public:
    explicit UdpClient(quint16 simPort) : m_simPort(simPort) { QVERIFY(m_socket.bind(TestSupport::testHost(), 0)); }

    void send(const QByteArray &frame) { m_socket.writeDatagram(frame, TestSupport::testHost(), m_simPort); }

    // Datagrams that came within `waitMs`; stops early once `expected` have
    // come and no more follow within a short quiet time.
    QList<QByteArray> receive(int expected = 1, int waitMs = 1000)
    {
        QList<QByteArray> got;
        QElapsedTimer clock;
        clock.start();
        while (clock.elapsed() < waitMs) {
            const bool enough = got.size() >= expected;
            if (!m_socket.waitForReadyRead(enough ? 20 : 10)) {
                if (enough)
                    break;
                continue;
            }
            while (m_socket.hasPendingDatagrams())
                got << m_socket.receiveDatagram().data();
        }
        return got;
    }

    QByteArray exchange(const QByteArray &frame)
    {
        send(frame);
        const QList<QByteArray> got = receive();
        return got.size() == 1 ? got.first() : QByteArray("<no single reply>");
    }

private:
    QUdpSocket m_socket;
    quint16 m_simPort;
};

// A raw client of the simulator's pseudo-terminal, as a serial port would open it.
class PtyClient
{
public:
    explicit PtyClient(const QString &path) : m_fd(::open(qPrintable(path), O_RDWR | O_NOCTTY | O_NONBLOCK))
    {
        termios mode{};
        if (m_fd >= 0 && tcgetattr(m_fd, &mode) == 0) {
            cfmakeraw(&mode);
            tcsetattr(m_fd, TCSANOW, &mode);
        }
    }
    ~PtyClient()
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    bool isOpen() const { return m_fd >= 0; }

    // What the terminal brings until it has been quiet for `quietMs` (or for 1 s with nothing).
    QByteArray exchange(const QByteArray &frame, int firstMs = 1000)
    {
        if (!frame.isEmpty() && ::write(m_fd, frame.constData(), size_t(frame.size())) != frame.size())
            return "<not written>";
        QByteArray got;
        pollfd p{m_fd, POLLIN, 0};
        while (::poll(&p, 1, got.isEmpty() ? firstMs : kQuietMs) > 0) {
            char buffer[2048];
            const ssize_t n = ::read(m_fd, buffer, sizeof buffer);
            if (n <= 0)
                break;
            got.append(buffer, int(n));
        }
        return got;
    }

private:
    int m_fd;
};

QByteArray readFrame(int area, int address, int length)
{
    QByteArray frame(SorvikProtocol::kRequestHeadSize, '\0');
    frame[0] = char(SorvikProtocol::kReadFunction);
    frame[1] = char(SorvikProtocol::kRequestByte1);
    frame[2] = char(SorvikProtocol::kRequestByte2);
    frame[3] = char(SorvikProtocol::kRequestByte3);
    frame[SorvikProtocol::kOffsetArea] = char(area);
    SorvikProtocol::put24(frame.data() + SorvikProtocol::kOffsetAddress, address);
    SorvikProtocol::put24(frame.data() + SorvikProtocol::kOffsetLength, length);
    return frame;
}

QByteArray writeFrame(int area, int address, const QByteArray &data)
{
    QByteArray frame = readFrame(area, address, data.size());
    frame[0] = char(SorvikProtocol::kWriteFunction);
    return frame + data;
}

QByteArray readReply(const QByteArray &data)
{
    return hex("01010000") + data;
}

// Whether the simulator has taken `count` frames within a second.
bool tookFrames(const SorvikSimulator &sim, int count)
{
    QElapsedTimer clock;
    clock.start();
    while (sim.frameCount() < count && clock.elapsed() < 1000)
        QThread::msleep(1);
    return sim.frameCount() == count;
}

QStringList simLines(const TestSupport::LogCapture &log)
{
    QStringList lines;
    for (const TestSupport::LogLine &line : log.all())
        if (line.category == QLatin1String("sorvik.sim"))
            lines << line.text;
    return lines;
}

} // namespace

Q_DECLARE_METATYPE(SimFaults)

class TestSimulator : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void handshake();
    void reads_data();
    void reads();
    void writesStoreWhatTheyCarry_data();
    void writesStoreWhatTheyCarry();
    void invalidFramesAreAnsweredBySilence_data();
    void invalidFramesAreAnsweredBySilence();
    void scriptedAndUnsolicitedReplies();
    void faults_data();
    void faults();
    void dropsRepeatWithTheSeed();
    void delayedRepliesKeepTakingRequests();
    void presets_data();
    void presets();
    void badPresetsAreRefused_data();
    void badPresetsAreRefused();
    void presetOutsideAnAreaIsRefused();
    void pseudoTerminal();
    void pseudoTerminalServesASerialPort();
    void serialPort();
    void anyBytesAreSafe();

private:
    std::unique_ptr<SorvikSimulator> m_sim;
    std::unique_ptr<UdpClient> m_client;
};

void TestSimulator::init()
{
    m_sim = std::make_unique<SorvikSimulator>();
    const quint16 port = m_sim->startUdp(TestSupport::testHost(), 0);
    QVERIFY(port != 0);
    m_client = std::make_unique<UdpClient>(port);
}

void TestSimulator::cleanup()
{
    m_client.reset();
    m_sim.reset();
}

void TestSimulator::handshake()
{
    QCOMPARE(m_client->exchange(hex("0401")), hex("0401"));
    m_sim->setHandshakeReply(hex("0402"));
    QCOMPARE(m_client->exchange(hex("0401")), hex("0402"));
    QCOMPARE(m_sim->counters().handshakes, 2);
}

void TestSimulator::reads_data()
{
    QTest::addColumn<QString>("assignment");
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<QByteArray>("reply");

    // Word areas: index x 4.
    QTest::newRow("int32 AI_F3") << "AI_F3=int32:42" << readFrame(8, 8, 4) << readReply(hex("2a000000"));
    QTest::newRow("floats NAO1000") << "NAO1000=float:1,-2" << hex("010101001200 9c0f 000800")
                                    << readReply(hex("0000803f000000c0"));
    QTest::newRow("int64be AI1") << "AI1=int64be:1" << readFrame(7, 0, 8) << readReply(hex("0000000000000001"));
    QTest::newRow("double LW2") << "LW2=double:1" << readFrame(24, 4, 8) << readReply(hex("000000000000f03f"));
    // Pair areas: SA counts by 2, Custom by 1.
    QTest::newRow("int16 SA2") << "SA2=int16:4660,-1" << readFrame(14, 2, 4) << readReply(hex("3412ffff"));
    QTest::newRow("uint8 Custom5") << "Custom5=uint8:255" << readFrame(29, 4, 1) << readReply(hex("ff"));
    // Bit areas: one byte per bit.
    QTest::newRow("bools DI5") << "DI5=bool:1,0,true" << readFrame(1, 4, 3) << readReply(hex("010001"));
    QTest::newRow("uint8 DO4 bits") << "DO4=uint8:1,0x83" << readFrame(4, 3, 16)
                                    << readReply(hex("0100000000000000 0101000000000001"));
    // Strings: a 256-byte block on area 28, length byte and text elsewhere.
    QTest::newRow("string SI2") << "SI2=string:abc" << readFrame(28, 256, 8) << readReply(hex("0361626300000000"));
    QTest::newRow("two strings SI1") << "SI1=string:a,bc" << readFrame(28, 255, 4) << readReply(hex("00026263"));
    QTest::newRow("string AO2") << "AO2=string:hi" << readFrame(10, 4, 4) << readReply(hex("02686900"));
    QTest::newRow("length 0") << "AI1=int32:1" << readFrame(7, 0, 0) << readReply(QByteArray());
    QTest::newRow("end of Custom") << "Custom2097152=int8:-1" << readFrame(29, 2097151, 1) << readReply(hex("ff"));
}

void TestSimulator::reads()
{
    QFETCH(QString, assignment);
    QFETCH(QByteArray, request);
    QFETCH(QByteArray, reply);

    QString error;
    QVERIFY2(m_sim->presetTag(assignment, &error), qPrintable(error));
    QCOMPARE(m_client->exchange(request).toHex(), reply.toHex());
    QCOMPARE(m_sim->frames(), QList<QByteArray>{request});
    QCOMPARE(m_sim->counters().reads, 1);
}

void TestSimulator::writesStoreWhatTheyCarry_data()
{
    QTest::addColumn<QByteArray>("write");
    QTest::addColumn<QByteArray>("read");
    QTest::addColumn<QByteArray>("data");

    QTest::newRow("float AO3") << hex("020101000a000800000400 0000803f") << readFrame(10, 8, 4) << hex("0000803f");
    QTest::newRow("bool DO2") << hex("0201010004000100000100 01") << readFrame(4, 0, 3) << hex("000100");
    QTest::newRow("string SI2") << hex("020101001c000001000001 03616263") << readFrame(28, 256, 4) << hex("03616263");
    // A block write announces 65536 bytes for its 256.
    QTest::newRow("block SI2") << hex("020101001c000001010000") + QByteArray(256, 'x') << readFrame(28, 256, 256)
                               << QByteArray(256, 'x');
    QTest::newRow("last byte of SA") << writeFrame(14, 639, hex("7f")) << readFrame(14, 638, 2) << hex("007f");
}

void TestSimulator::writesStoreWhatTheyCarry()
{
    QFETCH(QByteArray, write);
    QFETCH(QByteArray, read);
    QFETCH(QByteArray, data);

    QCOMPARE(m_client->exchange(write).toHex(), QByteArray("02010000"));
    QCOMPARE(m_client->exchange(read).toHex(), readReply(data).toHex());
    QCOMPARE(m_sim->frames(), (QList<QByteArray>{write, read}));
    QCOMPARE(m_sim->counters().writes, 1);
}

void TestSimulator::invalidFramesAreAnsweredBySilence_data()
{
    QTest::addColumn<QByteArray>("frame");
    QTest::addColumn<QString>("reason");

    QTest::newRow("empty") << QByteArray() << "empty frame";
    QTest::newRow("one byte") << hex("01") << "read request of 1 bytes, a read has 11";
    QTest::newRow("handshake 04 02") << hex("0402") << "handshake frame of 2 bytes is not 04 01";
    QTest::newRow("function 03") << hex("0301010007000000000400") << "unknown function byte 0x03";
    QTest::newRow("read too long") << readFrame(7, 0, 4) + "x"
                                   << "read request of 12 bytes, a read has 11";
    QTest::newRow("write cut") << hex("0201010007") << "write request of 5 bytes is shorter than its head of 11";
    QTest::newRow("area 0") << readFrame(0, 0, 1) << "read of unknown area code 0";
    QTest::newRow("read past AI") << readFrame(7, 317, 4)
                                  << "read of 4 bytes at address 317 lies beyond area 7 (320 bytes)";
    QTest::newRow("index -1") << readFrame(7, -4, 4)
                              << "read of 4 bytes at address 16777212 lies beyond area 7 (320 bytes)";
    QTest::newRow("huge length") << readFrame(29, 0, 0xFFFFFF)
                                 << "read of 16777215 bytes at address 0 lies beyond area 29 (2097152 bytes)";
    QTest::newRow("past DI bits") << readFrame(1, 1919, 2)
                                  << "read of 2 bytes at address 1919 lies beyond area 1 (1920 bytes)";
    QTest::newRow("write past SI") << writeFrame(28, 1279, hex("0102"))
                                   << "write of 2 bytes at address 1279 lies beyond area 28 (1280 bytes)";
}

void TestSimulator::invalidFramesAreAnsweredBySilence()
{
    QFETCH(QByteArray, frame);
    QFETCH(QString, reason);

    TestSupport::LogCapture log;
    m_client->send(frame);
    QVERIFY(tookFrames(*m_sim, 1));
    QCOMPARE(m_client->receive(1, kQuietMs), QList<QByteArray>());
    QCOMPARE(m_sim->frames(), QList<QByteArray>{frame});
    const SimCounters counters = m_sim->counters();
    QCOMPARE(counters.invalid, 1);
    QCOMPARE(counters.frames, 1);
    QCOMPARE(simLines(log), QStringList{"no reply to frame " + frame.toHex() + ": " + reason});
    QVERIFY(log.texts(QtInfoMsg).isEmpty()); // the drive's own category stays clean
    QCOMPARE(m_sim->memory(28, 1279, 1), hex("00"));
}

void TestSimulator::scriptedAndUnsolicitedReplies()
{
    m_sim->queueReply(hex("0102"));
    m_sim->queueReply(QByteArray());
    QCOMPARE(m_client->exchange(readFrame(7, 0, 4)), hex("0102"));
    QCOMPARE(m_client->exchange(hex("0401")), QByteArray()); // an empty datagram
    QCOMPARE(m_client->exchange(hex("0401")), hex("0401"));  // the script has run out

    m_sim->sendUnsolicited(hex("abcd"));
    QCOMPARE(m_client->receive(), QList<QByteArray>{hex("abcd")});
    QCOMPARE(m_sim->frameCount(), 3);
    m_sim->clearFrames();
    QCOMPARE(m_sim->frameCount(), 0);
}

void TestSimulator::faults_data()
{
    QTest::addColumn<SimFaults>("faults");
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<QList<QByteArray>>("datagrams");

    const QByteArray read = readFrame(7, 0, 4);
    const QByteArray reply = readReply(hex("2a000000"));
    const QByteArray write = writeFrame(7, 0, hex("2a000000"));
    SimFaults f;

    f = {};
    f.silent = true;
    QTest::newRow("silent") << f << read << QList<QByteArray>();
    f = {};
    f.dropShare = 1.0;
    QTest::newRow("drop all") << f << read << QList<QByteArray>();
    f = {};
    f.wrongIdentityShare = 1.0;
    QTest::newRow("wrong identity") << f << read << QList<QByteArray>{hex("fefe00002a000000")};
    QTest::newRow("wrong handshake") << f << hex("0401") << QList<QByteArray>{hex("fbfe")};
    f = {};
    f.truncateTo = 2;
    QTest::newRow("truncate") << f << read << QList<QByteArray>{hex("0101")};
    f.truncateTo = 0;
    f = {};
    f.padReplies = true;
    QTest::newRow("pad") << f << read << QList<QByteArray>{reply + QByteArray(1464, '\0')};
    f.overlongReplies = true;
    QTest::newRow("pad and overlong") << f << read
                                      << QList<QByteArray>{reply + QByteArray(1464, '\0') + QByteArray(128, '\xa5')};
    f = {};
    f.overlongReplies = true;
    QTest::newRow("overlong write") << f << write << QList<QByteArray>{hex("02010000") + QByteArray(1596, '\xa5')};
    f = {};
    f.extraDatagram = true;
    QTest::newRow("twice") << f << read << QList<QByteArray>{reply, reply};
    f.emptyDatagramFirst = true;
    QTest::newRow("empty first, twice") << f << read << QList<QByteArray>{QByteArray(), reply, reply};
}

void TestSimulator::faults()
{
    QFETCH(SimFaults, faults);
    QFETCH(QByteArray, request);
    QFETCH(QList<QByteArray>, datagrams);

    m_sim->preset(7, 0, hex("2a000000"));
    m_sim->setFaults(faults);
    m_client->send(request);
    QVERIFY(tookFrames(*m_sim, 1));
    QCOMPARE(m_client->receive(datagrams.size(), datagrams.isEmpty() ? kQuietMs : 1000), datagrams);
    QCOMPARE(m_sim->counters().faults, 1);
    QCOMPARE(m_sim->frames(), QList<QByteArray>{request});

    // Padding concerns read replies only.
    SimFaults padOnly;
    padOnly.padReplies = true;
    m_sim->setFaults(padOnly);
    QCOMPARE(m_client->exchange(hex("0401")), hex("0401"));
    QCOMPARE(m_sim->counters().faults, 1);
}

void TestSimulator::dropsRepeatWithTheSeed()
{
    // Request i reads the byte i, so each reply tells which request it answers.
    constexpr int kRequests = 32;
    for (int i = 0; i < kRequests; ++i)
        m_sim->preset(7, i, QByteArray(1, char(i)));
    SimFaults faults;
    faults.seed = 7;
    faults.dropShare = 0.5;
    QString pattern[2];
    for (QString &answered : pattern) {
        m_sim->setFaults(faults);
        m_sim->clearFrames();
        answered.fill('-', kRequests);
        for (int i = 0; i < kRequests; ++i)
            m_client->send(readFrame(7, i, 1));
        QVERIFY(tookFrames(*m_sim, kRequests));
        for (const QByteArray &reply : m_client->receive(kRequests, kQuietMs))
            answered[quint8(reply.at(4)) % kRequests] = 'x';
    }
    QCOMPARE(pattern[0], pattern[1]);
    QVERIFY2(pattern[0].count('x') > 4 && pattern[0].count('-') > 4, qPrintable(pattern[0]));
    QCOMPARE(m_sim->counters().faults, 2 * pattern[0].count('-'));
}

void TestSimulator::delayedRepliesKeepTakingRequests()
{
    SimFaults faults;
    faults.delayMs = 150;
    m_sim->setFaults(faults);
    QElapsedTimer clock;
    clock.start();
    m_client->send(hex("0401"));
    m_client->send(readFrame(7, 0, 1));
    QCOMPARE(m_client->receive(1, 60), QList<QByteArray>());
    QCOMPARE(m_sim->frameCount(), 2);
    QCOMPARE(m_client->receive(2), (QList<QByteArray>{hex("0401"), readReply(hex("00"))}));
    QVERIFY(clock.elapsed() >= 150);
    QCOMPARE(m_sim->counters().faults, 2);
}

void TestSimulator::presets_data()
{
    QTest::addColumn<QString>("assignment");
    QTest::addColumn<int>("area");
    QTest::addColumn<int>("address");
    QTest::addColumn<QByteArray>("bytes");

    QTest::newRow("hex uint32") << "AI2=uint32:0xFFFFFFFF" << 7 << 4 << hex("ffffffff");
    QTest::newRow("int8 bits") << "NDI3=int8:-128" << 15 << 2 << hex("0000000000000001");
    QTest::newRow("AO_F counts by 1") << "AO_F2=int32:1" << 11 << 1 << hex("01000000");
    QTest::newRow("int64 min") << "HAI1=int64:-9223372036854775808" << 21 << 0 << hex("0000000000000080");
    QTest::newRow("uint64be") << "LA1=uint64be:0x0102030405060708" << 23 << 0 << hex("0102030405060708");
    QTest::newRow("127 characters") << "SI5=string:" + QString(127, 'z') << 28 << 1024
                                    << hex("7f") + QByteArray(127, 'z');
    QTest::newRow("Latin-1") << QString::fromUtf8("SI1=string:\u00e9") << 28 << 0 << hex("01e900");
}

void TestSimulator::presets()
{
    QFETCH(QString, assignment);
    QFETCH(int, area);
    QFETCH(int, address);
    QFETCH(QByteArray, bytes);

    QString error;
    QVERIFY2(m_sim->presetTag(assignment, &error), qPrintable(error));
    QCOMPARE(m_sim->memory(area, address, bytes.size()).toHex(), bytes.toHex());
}

void TestSimulator::badPresetsAreRefused_data()
{
    QTest::addColumn<QString>("assignment");
    QTest::addColumn<QString>("error");

    QTest::newRow("no type") << "AI1=42"
                             << "AI1=42: expected TAG=TYPE:VALUE";
    QTest::newRow("no prefix") << "XY1=int32:1"
                               << "XY1=int32:1: no area prefix in tag \"XY1\"";
    QTest::newRow("no number") << "AI=int32:1"
                               << "AI=int32:1: tag \"AI\" needs an element number from 1";
    QTest::newRow("number 0") << "AI0=int32:1"
                              << "AI0=int32:1: tag \"AI0\" needs an element number from 1";
    QTest::newRow("unknown type") << "AI1=int33:1"
                                  << "AI1=int33:1: unknown type \"int33\"";
    QTest::newRow("int8 range") << "AI1=int8:128"
                                << "AI1=int8:128: \"128\" is no int8 value";
    QTest::newRow("negative uint8") << "AI1=uint8:-1"
                                    << "AI1=uint8:-1: \"-1\" is no uint8 value";
    QTest::newRow("int64 range") << "AI1=int64:9223372036854775808"
                                 << "AI1=int64:9223372036854775808: \"9223372036854775808\" is no int64 value";
    QTest::newRow("bool 2") << "DI1=bool:2"
                            << "DI1=bool:2: \"2\" is no bool value";
    QTest::newRow("float overflow") << "AI1=float:1e39"
                                    << "AI1=float:1e39: \"1e39\" is no float value";
    QTest::newRow("empty value") << "AI1=int32:1,"
                                 << "AI1=int32:1,: \"\" is no int32 value";
    QTest::newRow("past AI") << "AI80=int32:1,2"
                             << "AI80=int32:1,2: 8 bytes at address 316 lie beyond area AI (320 bytes)";
    QTest::newRow("past SI") << "SI6=string:x"
                             << "SI6=string:x: 256 bytes at address 1280 lie beyond area SI (1280 bytes)";
    QTest::newRow("long string") << "SI1=string:" + QString(128, 'z')
                                 << "SI1=string:" + QString(128, 'z') + ": a string of 128 bytes is longer than 127";
    QTest::newRow("not Latin-1") << QString::fromUtf8("SI1=string:\u20ac")
                                 << QString::fromUtf8("SI1=string:\u20ac: \"\u20ac\" has characters outside Latin-1");
}

void TestSimulator::badPresetsAreRefused()
{
    QFETCH(QString, assignment);
    QFETCH(QString, error);

    m_sim->presetTag("AI1=int32:-1");
    QString got;
    QVERIFY(!m_sim->presetTag(assignment, &got));
    QCOMPARE(got, error);
    QVERIFY(!m_sim->presetTag(assignment)); // no place for the error is fine too
    QCOMPARE(m_sim->memory(7, 0, 8), hex("ffffffff00000000"));
}

void TestSimulator::presetOutsideAnAreaIsRefused()
{
    TestSupport::LogCapture log;
    m_sim->preset(7, 318, hex("01020304"));
    m_sim->preset(26, 0, hex("01"));
    QCOMPARE(m_sim->memory(7, 316, 4), hex("00000000"));
    QCOMPARE(m_sim->memory(7, 318, 4), QByteArray()); // nothing rather than a part
    QCOMPARE(simLines(log).size(), 2);
}

void TestSimulator::pseudoTerminal()
{
    const QString path = m_sim->startPty();
    QVERIFY(path.startsWith("/dev/"));
    m_sim->presetTag("SI2=string:abc");
    {
        PtyClient client(path);
        QVERIFY(client.isOpen());
        QCOMPARE(client.exchange(hex("0401")).toHex(), QByteArray("0401"));
        QCOMPARE(client.exchange(readFrame(28, 256, 5)).toHex(), readReply(hex("0361626300")).toHex());
        QCOMPARE(client.exchange(writeFrame(7, 0, hex("2a"))).toHex(), QByteArray("02010000"));
        QCOMPARE(client.exchange(readFrame(7, 0, 400), kQuietMs), QByteArray());
    }
    // The terminal survives its client: a new one is served as before.
    PtyClient again(path);
    QCOMPARE(again.exchange(readFrame(7, 0, 1)).toHex(), readReply(hex("2a")).toHex());
    SimFaults twice;
    twice.extraDatagram = true;
    m_sim->setFaults(twice);
    QCOMPARE(again.exchange(hex("0401")).toHex(), QByteArray("04010401"));
    m_sim->sendUnsolicited(hex("ee"));
    QCOMPARE(again.exchange(QByteArray()).toHex(), QByteArray("ee"));
    const SimCounters counters = m_sim->counters();
    QCOMPARE(counters.frames, 6);
    QCOMPARE(counters.invalid, 1);
    QCOMPARE(m_sim->frames().at(1), readFrame(28, 256, 5));
}

// The drive reaches a terminal through QSerialPort, opening and closing it as
// connections come and go.
void TestSimulator::pseudoTerminalServesASerialPort()
{
    const QString path = m_sim->startPty();
    for (int round = 0; round < 2; ++round) {
        QSerialPort port(path);
        QVERIFY2(port.open(QIODevice::ReadWrite), qPrintable(port.errorString()));
        QVERIFY(port.setBaudRate(9600) && port.setDataBits(QSerialPort::Data8) &&
                port.setParity(QSerialPort::NoParity));
        port.write(hex("0401"));
        QVERIFY(port.waitForBytesWritten(100));
        QByteArray reply;
        while (port.waitForReadyRead(reply.isEmpty() ? 1000 : kQuietMs))
            reply += port.readAll();
        QCOMPARE(reply.toHex(), QByteArray("0401"));
    }
    QCOMPARE(m_sim->counters().handshakes, 2);
}

// A second simulator serves the first one's terminal as its serial port. It
// stays silent itself, so what it records is what the first one answered.
void TestSimulator::serialPort()
{
    const QString path = m_sim->startPty();
    SorvikSimulator onSerial;
    {
        TestSupport::LogCapture log;
        QVERIFY(!onSerial.startSerial(path, 9600, 8, 1, "Even?"));
        QVERIFY(!onSerial.startSerial(path, 9600, 9, 1, "N"));
        QVERIFY(!onSerial.startSerial("/nonexistent/tty", 9600, 8, 1, "N"));
        QCOMPARE(simLines(log), (QStringList{"serial settings not understood: 9600,8,1,Even?",
                                             "serial settings not understood: 9600,9,1,N",
                                             "cannot open serial port /nonexistent/tty: No such file or directory"}));
    }
    QVERIFY(onSerial.startSerial(path, 115200, 8, 1, "n"));
    SimFaults silent;
    silent.silent = true;
    onSerial.setFaults(silent);

    onSerial.sendUnsolicited(hex("0401"));
    QVERIFY(tookFrames(onSerial, 1));
    QCOMPARE(onSerial.frames(), QList<QByteArray>{hex("0401")});
    QCOMPARE(m_sim->frames(), QList<QByteArray>{hex("0401")});
}

// Random frames, most of them with a plausible head, and random assignments:
// nothing may crash, and every read that is answered carries its length.
void TestSimulator::anyBytesAreSafe()
{
    std::mt19937 random(5);
    const auto byte = [&random] { return char(random() & 0xFF); };
    SimController controller;
    for (int i = 0; i < 20000; ++i) {
        QByteArray frame(int(random() % 24), '\0');
        for (char &b : frame)
            b = byte();
        if (!frame.isEmpty() && i % 4 != 0)
            frame[0] = char(1 + random() % 2);
        if (frame.size() > 4 && i % 3 != 0)
            frame[4] = char(random() % 32);
        if (frame.size() > 8 && i % 2 == 0)
            frame[8] = frame[5] = frame[6] = '\0';
        const SimAnswer answer = controller.answer(frame);
        if (answer.kind == SimAnswer::Kind::Read)
            QCOMPARE(answer.reply.size(), 4 + int(SorvikProtocol::get24(frame.constData() + 8)));
        QCOMPARE(answer.kind == SimAnswer::Kind::Invalid, !answer.reason.isEmpty());
    }

    const QStringList pieces{"AI",     "SI",      "DI_F", "Custom", "9",  "0",   "=",      ":", ",",
                             "string", "int64be", "bool", "-",      "0x", "1e9", "\u00e9", " "};
    for (int i = 0; i < 5000; ++i) {
        QString assignment;
        for (int n = int(random() % 8); n > 0; --n)
            assignment += pieces.at(int(random() % pieces.size()));
        SimPreset preset;
        QString error;
        if (SimPresets::parse(assignment, &preset, &error))
            QVERIFY(
                controller.memory().write(preset.area, preset.address, preset.bytes.constData(), preset.bytes.size()));
        else
            QVERIFY(error.startsWith(assignment + ": "));
    }
}

QTEST_GUILESS_MAIN(TestSimulator)
#include "tst_simulator.moc"
