// The controller stand-in through its test API and raw peers: memory as presets place it and
// frames address it, what it records and counts, the silence of bad frames, and its faults.

#include "TestSupport.h"
#include "link/SorvikProtocol.h"
#include "sim/SimMemory.h"
#include "sim/SimSelfDescribing.h"
#include "sim/SorvikSimulator.h"

#include <QElapsedTimer>
#include <QNetworkDatagram>
#include <QSerialPort>
#include <QUdpSocket>
#include <QtTest>

using TestSupport::hex;

Q_DECLARE_METATYPE(SimFaults)

namespace {

// How long to wait, once the simulator has taken a frame, to be sure that nothing (more) comes.
constexpr int kQuietMs = 30;

// What a terminal brings after `frame` until it has been quiet for a moment.
QByteArray exchangeOn(QSerialPort &port, const QByteArray &frame, int firstMs = 1000)
{
    if (!frame.isEmpty() && (port.write(frame) != frame.size() || !port.waitForBytesWritten(100)))
        return "<not written>";
    QByteArray got;
    while (port.waitForReadyRead(got.isEmpty() ? firstMs : kQuietMs))
        got += port.readAll();
    return got;
}

QByteArray readFrame(int area, int address, int length)
{
    QByteArray frame = hex("0101010000000000000000");
    frame[SorvikProtocol::kOffsetArea] = char(area);
    SorvikProtocol::put24(frame.data() + SorvikProtocol::kOffsetAddress, address);
    SorvikProtocol::put24(frame.data() + SorvikProtocol::kOffsetLength, length);
    return frame;
}

QByteArray writeFrame(int area, int address, const QByteArray &data)
{
    return '\2' + readFrame(area, address, data.size()).mid(1) + data;
}

QByteArray readReply(const QByteArray &data)
{
    return hex("01010000") + data;
}

// Faults with one more member set, e.g. with(&SimFaults::silent, true).
template <typename T> SimFaults with(T SimFaults::*member, T value, SimFaults faults = {})
{
    faults.*member = value;
    return faults;
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

    std::unique_ptr<SorvikSimulator> m_sim;
    QUdpSocket m_socket; // a raw UDP peer of the simulator
    quint16 m_simPort = 0;

    void send(const QByteArray &frame) { m_socket.writeDatagram(frame, TestSupport::testHost(), m_simPort); }

    // Datagrams, each awaited up to `waitMs` until `expected` have come, then while more follow at once.
    QList<QByteArray> receive(int expected = 1, int waitMs = 1000)
    {
        QList<QByteArray> got;
        while (m_socket.waitForReadyRead(got.size() < expected ? waitMs : kQuietMs))
            while (m_socket.hasPendingDatagrams())
                got << m_socket.receiveDatagram().data();
        return got;
    }

    QByteArray exchange(const QByteArray &frame)
    {
        send(frame);
        const QList<QByteArray> got = receive();
        return got.size() == 1 ? got.first() : QByteArray("<no single reply>");
    }

private slots:
    void initTestCase() { QVERIFY(m_socket.bind(TestSupport::testHost(), 0)); }
    void init()
    {
        m_sim = std::make_unique<SorvikSimulator>();
        m_simPort = m_sim->startUdp(TestSupport::testHost(), 0);
        QVERIFY(m_simPort != 0);
        while (m_socket.hasPendingDatagrams()) // what a simulator of an earlier test sent late
            m_socket.receiveDatagram();
    }
    void cleanup() { m_sim.reset(); }

    // Word areas count by 4, pair areas by 2 (Custom and AO_F by 1), bit areas take a byte a
    // bit, and area SI holds 256-byte blocks of a length byte and text.
    void presetsAreServed_data()
    {
        QTest::addColumn<QString>("assignment");
        QTest::addColumn<int>("area");
        QTest::addColumn<int>("address");
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("int64 min") << "HAI1=int64:-9223372036854775808" << 21 << 0 << hex("0000000000000080");
        QTest::newRow("uint64be") << "LA1=uint64be:0x0102030405060708" << 23 << 0 << hex("0102030405060708");
        QTest::newRow("int16 SA by 2") << "SA2=int16:4660,-1" << 14 << 2 << hex("3412ffff");
        QTest::newRow("end of Custom") << "Custom2097152=int8:-1" << 29 << 2097151 << hex("ff");
        QTest::newRow("bools") << "DI5=bool:1,0,true" << 1 << 4 << hex("010001");
        QTest::newRow("int8 on bits") << "NDI3=int8:-128" << 15 << 2 << hex("0000000000000001");
        QTest::newRow("string on a word area") << "AO2=string:hi" << 10 << 4 << hex("02686900");
        QTest::newRow("two strings") << "SI1=string:a,bc" << 28 << 255 << hex("00026263");
        QTest::newRow("127 characters") << "SI5=string:" + QString(127, 'z') << 28 << 1024
                                        << hex("7f") + QByteArray(127, 'z');
        QTest::newRow("Latin-1") << QString::fromUtf8("SI1=string:\u00e9") << 28 << 0 << hex("01e900");
        QTest::newRow("length 0") << "AI1=int32:1" << 7 << 0 << QByteArray();
        // Values split as sorvik-cli splits them: quotes hold commas, "" is a quote, bare values are trimmed.
        QTest::newRow("quoted comma") << "SI4=string:\"a, b\"" << 28 << 768 << hex("04612c206200");
        QTest::newRow("quoted quotes, bare trimmed")
            << "AO1=string: \"say \"\"hi\"\"\",  x " << 10 << 0 << hex("08736179202268692201780000");
        QTest::newRow("numbers in quotes") << "AI1=int16:\"1\",\"-2\"" << 7 << 0 << hex("0100feff");
        // The largest reply one UDP datagram holds: 65507 bytes.
        QTest::newRow("largest reply") << "Custom1=int8:0" << 29 << 0 << QByteArray(65503, '\0');
    }

    void presetsAreServed()
    {
        QFETCH(QString, assignment);
        QFETCH(int, area);
        QFETCH(int, address);
        QFETCH(QByteArray, bytes);
        QString error;
        QVERIFY2(m_sim->presetTag(assignment, &error), qPrintable(error));
        QCOMPARE(m_sim->memory(area, address, bytes.size()).toHex(), bytes.toHex());
        const QByteArray request = readFrame(area, address, bytes.size());
        QCOMPARE(exchange(request).toHex(), readReply(bytes).toHex());
        QCOMPARE(m_sim->frames(), QList<QByteArray>{request});
        QCOMPARE(m_sim->counters().reads, 1);
    }

    void writesStoreWhatTheyCarry_data()
    {
        QTest::addColumn<QByteArray>("write");
        QTest::addColumn<QByteArray>("read");
        QTest::addColumn<QByteArray>("data");
        QTest::newRow("bool DO2") << hex("0201010004000100000100 01") << readFrame(4, 0, 3) << hex("000100");
        // A block write announces 65536 bytes for its 256.
        QTest::newRow("block SI2") << hex("020101001c000001010000") + QByteArray(256, 'x') << readFrame(28, 256, 256)
                                   << QByteArray(256, 'x');
        QTest::newRow("last byte of SA") << writeFrame(14, 639, hex("7f")) << readFrame(14, 638, 2) << hex("007f");
    }

    void writesStoreWhatTheyCarry()
    {
        QFETCH(QByteArray, write);
        QFETCH(QByteArray, read);
        QFETCH(QByteArray, data);
        QCOMPARE(exchange(write).toHex(), QByteArray("02010000"));
        QCOMPARE(exchange(read).toHex(), readReply(data).toHex());
        QCOMPARE(m_sim->frames(), (QList<QByteArray>{write, read}));
        QCOMPARE(m_sim->counters().writes, 1);
    }

    void invalidFramesAreAnsweredBySilence_data()
    {
        QTest::addColumn<QByteArray>("frame");
        QTest::addColumn<QString>("reason");
        QTest::newRow("empty") << QByteArray() << "empty frame";
        QTest::newRow("one byte") << hex("01") << "read request of 1 bytes, a read has 11";
        QTest::newRow("handshake 04 02") << hex("0402") << "handshake frame of 2 bytes is not 04 01";
        QTest::newRow("function 03") << hex("0301010007000000000400") << "unknown function byte 0x03";
        QTest::newRow("write cut") << hex("0201010007") << "write request of 5 bytes is shorter than its head of 11";
        QTest::newRow("area 0") << readFrame(0, 0, 1) << "read of unknown area code 0";
        QTest::newRow("past AI") << readFrame(7, 317, 4)
                                 << "read of 4 bytes at address 317 lies beyond area 7 (320 bytes)";
        QTest::newRow("huge length") << readFrame(29, 0, 0xFFFFFF)
                                     << "read of 16777215 bytes at address 0 lies beyond area 29 (2097152 bytes)";
        QTest::newRow("write past SI") << writeFrame(28, 1279, hex("0102"))
                                       << "write of 2 bytes at address 1279 lies beyond area 28 (1280 bytes)";
        QTest::newRow("reply too large")
            << readFrame(29, 0, 65504) << "a reply of 65508 bytes does not fit one UDP datagram (65507 bytes at most)";
    }

    void invalidFramesAreAnsweredBySilence()
    {
        QFETCH(QByteArray, frame);
        QFETCH(QString, reason);
        TestSupport::LogCapture log;
        send(frame);
        QTRY_COMPARE(m_sim->frameCount(), 1);
        QCOMPARE(receive(1, kQuietMs), QList<QByteArray>());
        QCOMPARE(m_sim->frames(), QList<QByteArray>{frame});
        // A reply too large is the transport's refusal: the frame itself is good.
        QCOMPARE(m_sim->counters().invalid, reason.startsWith("a reply") ? 0 : 1);
        QTRY_COMPARE(simLines(log), QStringList{"no reply to frame " + frame.toHex() + ": " + reason});
        QVERIFY(log.texts(QtInfoMsg).isEmpty()); // the drive's own category stays clean
        QCOMPARE(m_sim->memory(28, 1279, 1), hex("00"));
    }

    void faults_data()
    {
        QTest::addColumn<SimFaults>("faults");
        QTest::addColumn<QList<QByteArray>>("requests");
        QTest::addColumn<QList<QByteArray>>("datagrams");
        QTest::addColumn<int>("faulted");
        using List = QList<QByteArray>;
        const auto row = [](const char *name, const SimFaults &faults, const List &requests, const List &datagrams,
                            int faulted = 1) { QTest::newRow(name) << faults << requests << datagrams << faulted; };
        const QByteArray read = readFrame(7, 0, 4), reply = readReply(hex("2a000000")), padded(1464, '\0');
        const SimFaults identity = with(&SimFaults::wrongIdentityShare, 1.0);
        const SimFaults twice = with(&SimFaults::extraDatagram, true);
        row("silent", with(&SimFaults::silent, true), {read}, {});
        row("drop all", with(&SimFaults::dropShare, 1.0), {read}, {});
        row("wrong identity", identity, {read}, {hex("fefe00002a000000")});
        row("wrong handshake", identity, {hex("0401")}, {hex("fbfe")});
        row("truncate", with(&SimFaults::truncateTo, 2), {read}, {hex("0101")});
        row("pad", with(&SimFaults::padReplies, true), {read}, {reply + padded});
        row("pad and overlong", with(&SimFaults::overlongReplies, true, with(&SimFaults::padReplies, true)), {read},
            {reply + padded + QByteArray(128, '\xa5')});
        row("overlong write", with(&SimFaults::overlongReplies, true), {writeFrame(7, 0, hex("2a000000"))},
            {hex("02010000") + QByteArray(1596, '\xa5')});
        row("twice", twice, {read}, {reply, reply});
        row("empty first, twice", with(&SimFaults::emptyDatagramFirst, true, twice), {read},
            {QByteArray(), reply, reply});
        // The held reply comes after the reply to the request behind it; handshakes are not counted.
        SimFaults late;
        late.lateReplies.insert(1, 300);
        row("late first", late, {hex("0401"), readFrame(7, 0, 1), readFrame(7, 1, 1)},
            {hex("0401"), readReply(hex("00")), readReply(hex("2a"))});
        // A write counts as a request: here the read behind it is held.
        late.lateReplies = {{2, 300}};
        row("late after a write", late, {writeFrame(7, 0, hex("33")), readFrame(7, 0, 1), readFrame(7, 1, 1)},
            {hex("02010000"), readReply(hex("00")), readReply(hex("33"))});
        // A reply both held and dropped stays dropped; the write under it is stored all the same.
        late.lateReplies = {{1, 300}};
        late.dropShare = 1.0;
        row("late and dropped", late, {writeFrame(7, 0, hex("33"))}, {});
    }

    void faults()
    {
        QFETCH(SimFaults, faults);
        QFETCH(QList<QByteArray>, requests);
        QFETCH(QList<QByteArray>, datagrams);
        QFETCH(int, faulted);
        m_sim->preset(7, 0, hex("2a000000"));
        m_sim->setFaults(faults);
        for (const QByteArray &request : requests)
            send(request);
        QTRY_COMPARE(m_sim->frameCount(), requests.size());
        QCOMPARE(receive(datagrams.size(), datagrams.isEmpty() ? 400 : 1000), datagrams);
        QCOMPARE(m_sim->counters().faults, faulted);
        // A write is carried out whatever becomes of its reply.
        QCOMPARE(m_sim->memory(7, 0, 1), requests.first().startsWith('\2') ? requests.first().mid(11, 1) : hex("2a"));

        // Padding concerns read replies only.
        m_sim->setFaults(with(&SimFaults::padReplies, true));
        QCOMPARE(exchange(hex("0401")), hex("0401"));
        QCOMPARE(m_sim->counters().faults, faulted);
    }

    // A reply held back does not hold back the requests behind it.
    void delayedRepliesKeepTakingRequests()
    {
        m_sim->setFaults(with(&SimFaults::delayMs, 500));
        QElapsedTimer clock;
        clock.start();
        send(hex("0401"));
        send(readFrame(7, 0, 1));
        QTRY_COMPARE_WITH_TIMEOUT(m_sim->frameCount(), 2, 400); // both taken before the first reply
        QCOMPARE(receive(2), (QList<QByteArray>{hex("0401"), readReply(hex("00"))}));
        QVERIFY(clock.elapsed() >= 500);
        QCOMPARE(m_sim->counters().faults, 2);
    }

    // Request i reads the byte i, so each reply tells which request it answers: '-' never came, 'L' came
    // after a handshake sent behind all requests. One seed gives one pattern, another seed another.
    void sharesRepeatWithTheSeed_data()
    {
        QTest::addColumn<SimFaults>("faults");
        SimFaults late;
        late.lateShare = 0.5;
        late.lateShareMs = 1500;
        QTest::newRow("drop") << with(&SimFaults::dropShare, 0.5);
        QTest::newRow("late") << late;
    }

    void sharesRepeatWithTheSeed()
    {
        QFETCH(SimFaults, faults);
        constexpr int kRequests = 32;
        for (int i = 0; i < kRequests; ++i)
            m_sim->preset(7, i, QByteArray(1, char(i)));
        QString pattern[3];
        const quint32 seeds[3] = {7, 7, 8};
        for (int run = 0; run < 3; ++run) {
            faults.seed = seeds[run];
            m_sim->setFaults(faults);
            const int faultsBefore = m_sim->counters().faults;
            pattern[run].fill('-', kRequests);
            for (int i = 0; i < kRequests; ++i)
                send(readFrame(7, i, 1));
            send(hex("0401"));
            bool held = false;
            for (const QByteArray &reply : receive(kRequests + 1, faults.lateShareMs + 300)) {
                if (reply == hex("0401"))
                    held = true;
                else
                    pattern[run][quint8(reply.at(4)) % kRequests] = held ? 'L' : 'x';
            }
            QCOMPARE(m_sim->counters().faults - faultsBefore, kRequests - pattern[run].count('x') + (held ? 0 : 1));
        }
        QCOMPARE(pattern[0], pattern[1]);
        QVERIFY(pattern[0] != pattern[2]);
        QVERIFY2(pattern[0].count('x') > 4 && pattern[0].count('x') < kRequests - 4, qPrintable(pattern[0]));
    }

    // Every value names its controller, area and element; the fill is what the wire serves.
    void selfDescribingMemory_data()
    {
        QTest::addColumn<int>("area");
        QTest::addColumn<int>("address");
        QTest::addColumn<QByteArray>("bytes");
        const auto le32 = [](qint32 v) {
            QByteArray b(4, '\0');
            qToLittleEndian(v, b.data());
            return b;
        };
        QTest::newRow("AI3 word") << 7 << 8 << le32(70700003);
        QTest::newRow("NAO1000 word") << 18 << 3996 << le32(71801000);
        QTest::newRow("AO_F1, no group, as a word") << 11 << 0 << le32(71100001);
        QTest::newRow("across AI1 and AI2") << 7 << 2 << (le32(70700001).mid(2) + le32(70700002).left(2));
        QTest::newRow("SA2 pair") << 14 << 2 << hex("c208"); // 7*320 + 2 = 2242
        QTest::newRow("SI2 text") << 28 << 256 << hex("066337205349320000");
        QTest::newRow("SI5 end") << 28 << 1279 << hex("00");
    }

    void selfDescribingMemory()
    {
        QFETCH(int, area);
        QFETCH(int, address);
        QFETCH(QByteArray, bytes);
        QVERIFY(m_sim->fillSelfDescribing(7));
        QCOMPARE(SimSelfDescribing::bytes(7, area, address, bytes.size()).toHex(), bytes.toHex());
        QCOMPARE(exchange(readFrame(area, address, bytes.size())).toHex(), readReply(bytes).toHex());
    }

    // Controllers 0 to 199; a bad id changes nothing.
    void selfDescribingFillsEveryArea()
    {
        QVERIFY(!m_sim->fillSelfDescribing(200));
        QVERIFY(!m_sim->fillSelfDescribing(-1));
        QCOMPARE(m_sim->memory(7, 0, 4), hex("00000000"));
        QCOMPARE(SimSelfDescribing::bytes(3, 7, 318, 4), QByteArray()); // beyond AI
        QVERIFY(m_sim->fillSelfDescribing(199));
        for (const SorvikProtocol::Area &area : SorvikProtocol::kAreas) {
            const int size = SimMemory::regionSizeOf(area.code);
            const QByteArray held = m_sim->memory(area.code, 0, size);
            QVERIFY2(held == SimSelfDescribing::bytes(199, area.code, 0, size), area.prefix);
            // No element of more than one byte is zero, and no bit run is constant.
            const int width = SorvikProtocol::isBitArea(area.code)    ? 1
                              : SorvikProtocol::isPairArea(area.code) ? 2
                              : area.code == 28                       ? 256
                                                                      : 4;
            for (int at = 0; width > 1 && at < size; at += width)
                QVERIFY2(held.mid(at, width) != QByteArray(width, '\0'), area.prefix);
            if (width == 1) {
                QVERIFY2(held.left(64).contains('\1') && held.left(64).contains('\0'), area.prefix);
                QVERIFY2(held.left(64) != held.mid(1, 64), area.prefix);
                QVERIFY2(held.left(64) != SimSelfDescribing::bytes(198, area.code, 0, 64), area.prefix);
            }
        }
        // The SA value tells the controller back.
        QCOMPARE((SimSelfDescribing::pair(199, 14, 320) - 1) / 320, 199);
        QCOMPARE(SimSelfDescribing::pair(0, 14, 1), quint16(1));
    }

    void badPresetsAreRefused_data()
    {
        QTest::addColumn<QString>("assignment");
        QTest::addColumn<QString>("error"); // after "ASSIGNMENT: "
        const auto row = [](const char *name, const QString &assignment, const QString &error) {
            QTest::newRow(name) << assignment << error;
        };
        row("no type", "AI1=42", "expected TAG=TYPE:VALUE");
        row("no prefix", "XY1=int32:1", "no area prefix in tag \"XY1\"");
        row("number 0", "AI0=int32:1", "tag \"AI0\" needs an element number from 1");
        row("unknown type", "AI1=int33:1", "unknown type \"int33\"");
        row("int8 range", "AI1=int8:128", "\"128\" is no int8 value");
        row("int64 range", "AI1=int64:9223372036854775808", "\"9223372036854775808\" is no int64 value");
        row("bool 2", "DI1=bool:2", "\"2\" is no bool value");
        row("float overflow", "AI1=float:1e39", "\"1e39\" is no float value");
        row("empty value", "AI1=int32:1,", "\"\" is no int32 value");
        row("past AI", "AI80=int32:1,2", "8 bytes at address 316 lie beyond area AI (320 bytes)");
        row("open quote", "SI1=string:\"a,b", "a quote is not closed");
        row("long string", "SI1=string:" + QString(128, 'z'), "a string of 128 bytes is longer than 127");
        row("not Latin-1", QString::fromUtf8("SI1=string:\u20ac"),
            QString::fromUtf8("\"\u20ac\" has characters outside Latin-1"));
    }

    // A refused assignment changes nothing, not even in part.
    void badPresetsAreRefused()
    {
        QFETCH(QString, assignment);
        QFETCH(QString, error);
        m_sim->presetTag("AI1=int32:-1");
        QString got;
        QVERIFY(!m_sim->presetTag(assignment, &got));
        QCOMPARE(got, assignment + ": " + error);
        QVERIFY(!m_sim->presetTag(assignment)); // no place for the error is fine too
        QCOMPARE(m_sim->memory(7, 0, 8), hex("ffffffff00000000"));
    }

    void presetOutsideAnAreaIsRefused()
    {
        TestSupport::LogCapture log;
        m_sim->preset(7, 318, hex("01020304"));
        m_sim->preset(26, 0, hex("01"));
        QCOMPARE(m_sim->memory(7, 316, 4), hex("00000000"));
        QCOMPARE(m_sim->memory(7, 318, 4), QByteArray()); // nothing rather than a part
        QCOMPARE(simLines(log).size(), 2);
    }

    // The terminal serves a serial port as UDP is served: replies, silence, doubled and unasked bytes.
    void pseudoTerminal()
    {
        const QString path = m_sim->startPty();
        QVERIFY(path.startsWith("/dev/"));
        m_sim->presetTag("SI2=string:abc");
        QSerialPort port(path);
        QVERIFY2(port.open(QIODevice::ReadWrite), qPrintable(port.errorString()));
        QCOMPARE(exchangeOn(port, readFrame(28, 256, 5)).toHex(), readReply(hex("0361626300")).toHex());
        QCOMPARE(exchangeOn(port, writeFrame(7, 0, hex("2a"))).toHex(), QByteArray("02010000"));
        QCOMPARE(exchangeOn(port, readFrame(7, 0, 400), kQuietMs), QByteArray());
        m_sim->setFaults(with(&SimFaults::extraDatagram, true));
        QCOMPARE(exchangeOn(port, readFrame(7, 0, 1)).toHex(), (readReply(hex("2a")) + readReply(hex("2a"))).toHex());
        m_sim->sendUnsolicited(hex("ee"));
        QCOMPARE(exchangeOn(port, QByteArray()).toHex(), QByteArray("ee"));
        QCOMPARE(m_sim->frames().at(0), readFrame(28, 256, 5));
        QCOMPARE(m_sim->frameCount(), 4);
        QCOMPARE(m_sim->counters().invalid, 1);
    }

    // A second simulator serves the first one's terminal as its serial port. It
    // stays silent itself, so what it records is what the first one answered.
    void serialPort()
    {
        const QString path = m_sim->startPty();
        SorvikSimulator onSerial;
        {
            TestSupport::LogCapture log;
            QVERIFY(!onSerial.startSerial(path, 9600, 8, 1, "Even?"));
            QVERIFY(!onSerial.startSerial(path, 9600, 9, 1, "N"));
            QVERIFY(!onSerial.startSerial("/nonexistent/tty", 9600, 8, 1, "N"));
            QCOMPARE(simLines(log),
                     (QStringList{"serial settings not understood: 9600,8,1,Even?",
                                  "serial settings not understood: 9600,9,1,N",
                                  "cannot open serial port /nonexistent/tty: No such file or directory"}));
        }
        QVERIFY(onSerial.startSerial(path, 115200, 8, 1, "n"));
        onSerial.setFaults(with(&SimFaults::silent, true));
        onSerial.sendUnsolicited(hex("0401"));
        QTRY_COMPARE(onSerial.frameCount(), 1);
        QCOMPARE(onSerial.frames(), QList<QByteArray>{hex("0401")});
        QCOMPARE(m_sim->frames(), QList<QByteArray>{hex("0401")});
    }
};

QTEST_GUILESS_MAIN(TestSimulator)
#include "tst_simulator.moc"
