// The Wireshark dissector, read through tshark: the fields of every frame
// kind, replies told by the request they answer in sessions with the real
// simulator and its faults, and no Lua error whatever the bytes.

#include "DissectorTestSupport.h"
#include "TestSupport.h"
#include "link/SorvikProtocol.h"
#include "tests/cli/CliTestSupport.h"

#include <QElapsedTimer>
#include <QNetworkDatagram>
#include <QRandomGenerator>
#include <QUdpSocket>
#include <QtTest>

#include <iterator>

using DissectorTest::Datagram;

namespace {

// A request head as the drive sends it; a write's data follows it.
QByteArray head(char function, int area, int address, int length)
{
    QByteArray frame = QByteArray::fromHex("0001010000000000000000");
    frame[0] = function;
    frame[SorvikProtocol::kOffsetArea] = char(area);
    SorvikProtocol::put24(frame.data() + SorvikProtocol::kOffsetAddress, address);
    SorvikProtocol::put24(frame.data() + SorvikProtocol::kOffsetLength, length);
    return frame;
}

QByteArray readFrame(int area, int address, int length)
{
    return head(1, area, address, length);
}

QByteArray writeFrame(int area, int address, int length, const QByteArray &data)
{
    return head(2, area, address, length) + data;
}

const QByteArray kHandshake = QByteArray::fromHex("0401");
const QByteArray kReadAI7 = readFrame(7, 24, 4);
const QByteArray kReadAI7Twice = readFrame(7, 24, 8);
const QByteArray kReadSI2 = readFrame(28, 256, 256);
const QByteArray kReadDI5 = readFrame(1, 4, 3);
const QByteArray kReadAIBit3 = readFrame(7, 2, 1); // a bool read sends the element index unchanged
const QByteArray kWriteAO3 = writeFrame(10, 8, 4, QByteArray::fromHex("0000803f"));

// One request, and how many datagrams to take before the next is sent
// (0: the next goes out at once, as when the drive has given up).
struct Step {
    QByteArray request;
    int datagrams;
};
using Script = QList<Step>;

// Expert info as "severity/group: message".
const QString kNoRequest =
    QStringLiteral("Warning/Sequence: No request is waiting for this reply; the drive takes it for the next one");
const QString kUnanswered = QStringLiteral("Warning/Sequence: No reply came before the next request");

// A simulator program and a socket that talks to it, recording every
// datagram in the order it went or came.
class SimSession
{
public:
    bool start(const QStringList &options)
    {
        const QStringList hostPort = (m_sim.startUdp(options) ? m_sim.connectText() : QString()).split(':');
        m_controller = QHostAddress(hostPort.value(0));
        m_controllerPort = quint16(hostPort.value(1).toUInt());
        m_clock.start();
        return m_controllerPort != 0 && m_socket.bind(TestSupport::testHost(), 0);
    }

    // Runs the script; false if a datagram that the simulator must send never came.
    bool run(const Script &script)
    {
        for (const Step &step : script) {
            m_socket.writeDatagram(step.request, m_controller, m_controllerPort);
            datagrams << Datagram{true, step.request, m_clock.nsecsElapsed() / 1000};
            for (int i = 0; i < step.datagrams; ++i) {
                if (!m_socket.hasPendingDatagrams() && !m_socket.waitForReadyRead(10000))
                    return false;
                datagrams << Datagram{false, m_socket.receiveDatagram().data(), m_clock.nsecsElapsed() / 1000};
            }
        }
        return true;
    }

    QList<Datagram> datagrams;

private:
    CliTest::Simulator m_sim;
    QUdpSocket m_socket;
    QElapsedTimer m_clock;
    QHostAddress m_controller;
    quint16 m_controllerPort = 0;
};

} // namespace

Q_DECLARE_METATYPE(Script)

class TestDissector : public QObject
{
    Q_OBJECT

    QString m_tshark;

private slots:
    void initTestCase()
    {
        m_tshark = QStandardPaths::findExecutable(QStringLiteral("tshark"));
        if (m_tshark.isEmpty())
            QSKIP("tshark is not installed");
    }

    void decodesEveryFrameKind();
    void labelsRepliesByTheirRequest_data();
    void labelsRepliesByTheirRequest();
    void survivesAnyBytes();
};

void TestDissector::decodesEveryFrameKind()
{
    const QByteArray stringBlock = QByteArray::fromHex("03616263") + QByteArray(252, '\0');
    const QList<Datagram> frames = {
        {true, kHandshake},
        {false, kHandshake},
        {true, readFrame(8, 8, 4)},
        {false, QByteArray::fromHex("010100002a000000")},
        {true, kReadSI2},
        {false, QByteArray::fromHex("01010000") + stringBlock},
        {true, kWriteAO3},
        {false, QByteArray::fromHex("02010000")},
        {true, writeFrame(28, 256, 256, QByteArray::fromHex("03616263"))},
        {false, QByteArray::fromHex("02010000")},
        {true, readFrame(18, 3996, 8)},
    };
    const DissectorTest::Result result =
        DissectorTest::dissect(m_tshark, frames,
                               {"sorvik.kind", "sorvik.prefix", "sorvik.address", "sorvik.length", "sorvik.data",
                                "sorvik.string.text", "sorvik.request_in", "sorvik.response_in"});
    QVERIFY2(result.ok, qPrintable(result.errors));

    const QStringList expected = {
        "Handshake request|||||||2",
        "Handshake reply||||||1|",
        "Read request|AI_F|8|4||||4",
        "Read reply|AI_F|8|4|2a000000||3|",
        "Read request|SI|256|256||||6",
        "Read reply|SI|256|256|" + QString::fromLatin1(stringBlock.toHex()) + "|abc|5|",
        "Write request|AO|8|4|0000803f|||8",
        "Write reply|AO|8|4|||7|",
        "Write request|SI|256|256|03616263|abc||10",
        "Write reply|SI|256|256|||9|",
        "Read request|NAO|3996|8||||",
    };
    QCOMPARE(result.lines, expected);
}

void TestDissector::labelsRepliesByTheirRequest_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<Script>("script");
    QTest::addColumn<QStringList>("expected"); // Info column | expert info
    const auto row = [](const char *name, const QStringList &options, const Script &script,
                        const QStringList &expected) { QTest::newRow(name) << options << script << expected; };
    const QString refused = QStringLiteral("the request's 01 01; the drive refuses the reply");

    row("every reply in step", {},
        {{kHandshake, 1}, {kReadAI7, 1}, {kReadSI2, 1}, {kReadDI5, 1}, {kReadAIBit3, 1}, {kWriteAO3, 1}},
        {"handshake|", "reply to handshake|", "read AI7, 4 bytes|", "reply to read AI7, 4 bytes|",
         "read SI2, 256 bytes|", "reply to read SI2, 256 bytes|", "read DI5, 3 bytes|", "reply to read DI5, 3 bytes|",
         "read AI byte 2, 1 byte|", "reply to read AI byte 2, 1 byte|", "write AO3, 4 bytes|",
         "reply to write AO3, 4 bytes|"});
    row("dropped reply", {"--drop", "1"}, {{kReadAI7, 0}, {kReadDI5, 0}},
        {"read AI7, 4 bytes|" + kUnanswered, "read DI5, 3 bytes|"});
    row("frames no controller can take", {}, {{kReadAI7.left(7), 0}, {QByteArray(), 0}, {kReadAI7, 1}},
        {"read request cut short, 7 bytes|Error/Malformed: Request of 7 bytes, its head has 11," + kUnanswered,
         "empty datagram|Warning/Protocol: Empty datagram to the controller", "read AI7, 4 bytes|",
         "reply to read AI7, 4 bytes|"});
    row("element index below zero", {}, {{readFrame(7, -4, 4), 0}, {readFrame(1, -1, 1), 0}},
        {"read AI0, 4 bytes|" + kUnanswered, "read DI0, 1 byte|"});
    row("read replies padded to 1472 bytes are whole", {"--pad"}, {{kReadAI7, 1}, {kReadSI2, 1}},
        {"read AI7, 4 bytes|", "reply to read AI7, 4 bytes|", "read SI2, 256 bytes|", "reply to read SI2, 256 bytes|"});
    // A write reply is never judged.
    row("wrong identity", {"--wrong-identity", "1"}, {{kHandshake, 1}, {kReadAI7, 1}, {kWriteAO3, 1}},
        {"handshake|", "reply to handshake|Warning/Sequence: Handshake answered by fb fe, not 04 01",
         "read AI7, 4 bytes|", "reply to read AI7, 4 bytes|Warning/Sequence: Reply identity fe fe, " + refused,
         "write AO3, 4 bytes|", "reply to write AO3, 4 bytes|"});
    row("truncated", {"--truncate", "6"}, {{kReadAI7Twice, 1}},
        {"read AI7, 8 bytes|", "reply to read AI7, 8 bytes|Warning/Malformed: Reply of 6 bytes, 12 asked; the drive "
                               "reads the rest as zeros"});
    row("cut to one byte", {"--truncate", "1"}, {{kHandshake, 1}, {kReadAI7, 1}},
        {"handshake|", "reply to handshake|Warning/Sequence: Handshake answered by 04, not 04 01", "read AI7, 4 bytes|",
         "reply to read AI7, 4 bytes|Warning/Sequence: Reply identity 01 00, " + refused +
             ",Warning/Malformed: Reply of 1 byte, 8 asked; the drive reads the rest as zeros"});
    row("longer than 1472 bytes", {"--overlong"}, {{kReadAI7, 1}},
        {"read AI7, 4 bytes|", "reply to read AI7, 4 bytes|Warning/Protocol: Reply of 1600 bytes, 8 asked (or 1472 "
                               "padded); the drive ignores the rest"});
    row("empty datagram before the reply", {"--empty-first"}, {{kReadAI7, 2}},
        {"read AI7, 4 bytes|",
         "empty datagram|Warning/Protocol: Empty datagram from the controller; the drive drops what it received before "
         "and waits on",
         "reply to read AI7, 4 bytes|"});
    row("every reply twice", {"--extra-datagram"}, {{kReadAI7, 2}, {kWriteAO3, 2}},
        {"read AI7, 4 bytes|", "reply to read AI7, 4 bytes|", "reply with no request, 8 bytes|" + kNoRequest,
         "write AO3, 4 bytes|", "reply to write AO3, 4 bytes|", "reply with no request, 4 bytes|" + kNoRequest});
    // The first reply comes after the drive gave up and asked again: it is
    // taken for the second request, and the second reply is left over.
    row("late reply", {"--delay", "300"}, {{kReadAI7Twice, 0}, {kReadDI5, 2}},
        {"read AI7, 8 bytes|" + kUnanswered, "read DI5, 3 bytes|",
         "reply to read DI5, 3 bytes|Warning/Protocol: Reply of 12 bytes, 7 asked (or 1472 padded); the drive ignores "
         "the rest",
         "reply with no request, 7 bytes|" + kNoRequest});
}

void TestDissector::labelsRepliesByTheirRequest()
{
    QFETCH(QStringList, options);
    QFETCH(Script, script);
    QFETCH(QStringList, expected);
    SimSession session;
    QVERIFY(session.start(options));
    QVERIFY(session.run(script));
    const DissectorTest::Result result =
        DissectorTest::dissect(m_tshark, session.datagrams, {"_ws.col.Info", "_ws.expert"});
    QVERIFY2(result.ok, qPrintable(result.errors));
    QStringList lines = result.lines;
    lines.replaceInStrings(QRegularExpression(QStringLiteral("Expert Info \\(([^)]*)\\): ")), QStringLiteral("\\1: "));
    QCOMPARE(lines, expected);
}

// Random datagrams both ways, many of them starting like real frames so that
// they reach every branch, must decode without a Lua error. A fixed seed
// keeps a failure repeatable.
void TestDissector::survivesAnyBytes()
{
    QRandomGenerator random(20261123);
    const QByteArray starts[] = {QByteArray(),
                                 QByteArray::fromHex("0401"),
                                 QByteArray::fromHex("0101"),
                                 QByteArray::fromHex("02"),
                                 QByteArray::fromHex("0101010007"),
                                 QByteArray::fromHex("010101001c"),
                                 QByteArray::fromHex("020101001c")};
    // A first request claims the drive's port 500 for this conversation, as in a real session.
    QList<Datagram> frames{{true, kHandshake}};
    for (int i = 1; i < 600; ++i) {
        const int size = random.bounded(8) == 0 ? random.bounded(1700) : random.bounded(24);
        QByteArray payload = starts[random.bounded(int(std::size(starts)))];
        while (payload.size() < size)
            payload.append(char(random.bounded(256)));
        payload.truncate(size);
        frames << Datagram{random.bounded(2) == 0, payload, i * 1000};
    }
    const DissectorTest::Result result = DissectorTest::dissect(
        m_tshark, frames, {"frame.number", "_ws.col.Protocol", "_ws.col.Info", "_ws.expert.message"});
    QVERIFY2(result.ok, qPrintable(result.errors));
    QCOMPARE(result.lines.size(), frames.size());
    // A Lua error shows as an expert message; a frame left to UDP or another
    // dissector shows in the protocol and Info columns.
    const QRegularExpression decoded(
        QStringLiteral("^\\d+\\|SORVIK\\|(handshake|read |write |reply |unknown request|empty datagram)"));
    for (const QString &line : result.lines) {
        QVERIFY2(!line.contains(QStringLiteral("Lua Error")), qPrintable(line));
        QVERIFY2(decoded.match(line).hasMatch(), qPrintable(line));
    }
}

QTEST_GUILESS_MAIN(TestDissector)
#include "tst_dissector.moc"
