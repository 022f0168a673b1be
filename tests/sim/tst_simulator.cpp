#include "TestSupport.h"
#include "link/SorvikProtocol.h"
#include "sim/SorvikSimulator.h"

#include <QElapsedTimer>
#include <QNetworkDatagram>
#include <QUdpSocket>
#include <QtTest>

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

using TestSupport::hex;

namespace {

// How long a test waits to be sure that nothing (more) comes.
constexpr int kQuietMs = 60;

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

QStringList simLines(const TestSupport::LogCapture &log)
{
    QStringList lines;
    for (const TestSupport::LogLine &line : log.all())
        if (line.category == QLatin1String("sorvik.sim"))
            lines << line.text;
    return lines;
}

} // namespace

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
    QTest::newRow("int64 AI1") << "AI1=int64:1" << readFrame(7, 0, 8) << readReply(hex("0100000000000000"));
    QTest::newRow("double LW2") << "LW2=double:1" << readFrame(24, 4, 8) << readReply(hex("000000000000f03f"));
    // Pair areas: SA counts by 2, Custom by 1.
    QTest::newRow("int16 SA2") << "SA2=int16:4660,-1" << readFrame(14, 2, 4) << readReply(hex("3412ffff"));
    QTest::newRow("uint8 Custom5") << "Custom5=uint8:255" << readFrame(29, 4, 1) << readReply(hex("ff"));
    // Bit areas: one byte per bit.
    QTest::newRow("bools DI5") << "DI5=bool:1,0,true" << readFrame(1, 4, 3) << readReply(hex("010001"));
    QTest::newRow("uint8 DO4 bits") << "DO4=uint8:1,0x83" << readFrame(4, 3, 16)
                                    << readReply(hex("0100000000000000 0101000000000001"));
    QTest::newRow("DI_F after DI") << "DI_F1=bool:1" << readFrame(2, 0, 1) << readReply(hex("01"));
    // Strings: a 256-byte block on area 28, length byte and text elsewhere.
    QTest::newRow("string SI2") << "SI2=string:abc" << readFrame(28, 256, 8) << readReply(hex("0361626300000000"));
    QTest::newRow("two strings SI1") << "SI1=string:a,bc" << readFrame(28, 255, 4) << readReply(hex("00026263"));
    QTest::newRow("string AO2") << "AO2=string:hi" << readFrame(10, 4, 4) << readReply(hex("02686900"));
    QTest::newRow("empty string") << "SI5=string:" << readFrame(28, 1024, 2) << readReply(hex("0000"));
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
    QTest::newRow("handshake cut") << hex("04") << "handshake frame of 1 bytes is not 04 01";
    QTest::newRow("handshake 04 02") << hex("0402") << "handshake frame of 2 bytes is not 04 01";
    QTest::newRow("function 03") << hex("0301010007000000000400") << "unknown function byte 0x03";
    QTest::newRow("read too long") << readFrame(7, 0, 4) + "x"
                                   << "read request of 12 bytes, a read has 11";
    QTest::newRow("write cut") << hex("0201010007") << "write request of 5 bytes is shorter than its head of 11";
    QTest::newRow("area 0") << readFrame(0, 0, 1) << "read of unknown area code 0";
    QTest::newRow("area 25") << readFrame(25, 0, 1) << "read of unknown area code 25";
    QTest::newRow("write area 255") << writeFrame(255, 0, hex("01")) << "write to unknown area code 255";
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

QTEST_GUILESS_MAIN(TestSimulator)
#include "tst_simulator.moc"
