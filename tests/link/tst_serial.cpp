// The serial transport over a simulator's pseudo-terminal; each exchange waits out the write wait, so few of them.

#include "LinkFixture.h"

#include <QSerialPort>

using namespace LinkFixture;

class SerialTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        m_path = m_sim.startPty();
        QVERIFY(!m_path.isEmpty());
    }

    void exchangeAndRelease()
    {
        CmdSorvik link;
        QCOMPARE(link.OpenSerial(QStringLiteral("/dev/no-such-terminal"), 9600, 8, 1, "N"), -1);
        QVERIFY(link.m_serial && !link.m_gapTimer);
        QCOMPARE(link.m_gapMs, 2);
        QCOMPARE(link.IsLinkOpen(), -3);
        QCOMPARE(link.CloseSerial(), -1);
        QCOMPARE(link.OpenSerial(m_path, 9600, 8, 1, "N"), 0);
        QCOMPARE(link.IsLinkOpen(), 0);
        QVERIFY(link.m_gapTimer && !link.m_gapTimer->isSingleShot());

        m_sim.clearFrames();
        m_sim.preset(7, 4, hex("2a000000"));
        QByteArray out;
        QCOMPARE(link.ReadBytes(7, 1, 4, &out, "AI2"), 0);
        QCOMPARE(out, hex("2a000000"));
        QCOMPARE(link.WriteBits(4, 1, 1, hex("01"), "DO2"), 0);
        QCOMPARE(m_sim.frames(), QList<QByteArray>({hex("0101010007000400000400"), hex("020101000400010000010001")}));
        QCOMPARE(m_sim.memory(4, 1, 1), hex("01"));
        QVERIFY(!link.m_gapTimer->isActive()); // stopped by the reply it closed

        QCOMPARE(link.CloseSerial(), 0);
        QCOMPARE(link.CloseSerial(), -1);
        QCOMPARE(link.IsLinkOpen(), -3);
        QCOMPARE(link.ReadBytes(7, 1, 4, &out, "AI2"), -3);
        QCOMPARE(link.DestroyFree(), 0);
        QVERIFY(!link.m_serial && !link.m_gapTimer);
        QCOMPARE(link.DestroyFree(), 1);
    }

    void gapByBaud_data()
    {
        QTest::addColumn<int>("first");
        QTest::addColumn<int>("second"); // 0: no second opening
        QTest::addColumn<int>("gapMs");
        QTest::addColumn<int>("portBaud");
        QTest::newRow("1200 keeps 2") << 1200 << 0 << 2 << 1200;
        QTest::newRow("2400") << 2400 << 0 << 10 << 2400;
        QTest::newRow("4800") << 4800 << 0 << 6 << 4800;
        QTest::newRow("9600") << 9600 << 0 << 3 << 9600;
        QTest::newRow("115200 keeps 2") << 115200 << 0 << 2 << 115200;
        QTest::newRow("9600 then 115200 keeps 3") << 9600 << 115200 << 3 << 115200;
        QTest::newRow("2400 then 4800") << 2400 << 4800 << 6 << 4800;
        QTest::newRow("unlisted rate changes nothing") << 19200 << 12345 << 2 << 19200;
    }

    void gapByBaud()
    {
        QFETCH(int, first);
        QFETCH(int, second);
        QFETCH(int, gapMs);
        QFETCH(int, portBaud);
        CmdSorvik link;
        QCOMPARE(link.OpenSerial(m_path, first, 8, 1, "N"), 0);
        if (second)
            QCOMPARE(link.OpenSerial(m_path, second, 8, 1, "N"), 0);
        QCOMPARE(link.m_gapMs, gapMs);
        QCOMPARE(link.m_serial->baudRate(), qint32(portBaud));
    }

    // Opened twice, as a host reconnects: the port keeps what a text does not set (a pty refuses none -> even).
    void parityText_data()
    {
        QTest::addColumn<QString>("before");
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("parity");
        auto row = [](const char *name, const char *before, QSerialPort::Parity parity) {
            QTest::newRow(name) << QString(before) << QString(name) << int(parity);
        };
        row("E", "O", QSerialPort::EvenParity);
        row("e", "O", QSerialPort::EvenParity);
        row("o", "N", QSerialPort::OddParity);
        row("n", "O", QSerialPort::NoParity);
        row("Even", "O", QSerialPort::NoParity);    // holds an n
        row("space", "O", QSerialPort::EvenParity); // holds an e
        row("mark", "odd", QSerialPort::OddParity); // keeps the parity
    }

    void parityText()
    {
        QFETCH(QString, before);
        QFETCH(QString, text);
        QFETCH(int, parity);
        CmdSorvik link;
        QCOMPARE(link.OpenSerial(m_path, 9600, 8, 1, before), 0);
        QCOMPARE(link.OpenSerial(m_path, 9600, 8, 1, text), 0);
        QCOMPARE(int(link.m_serial->parity()), parity);
        QCOMPARE(link.m_serial->flowControl(), QSerialPort::NoFlowControl);
    }

    void destroyFreeTakesSerialFirst()
    {
        UdpPair pair;
        QVERIFY(pair.start());
        QCOMPARE(pair.link.OpenSerial(m_path, 9600, 8, 1, "N"), 0);
        QCOMPARE(pair.link.DestroyFree(), 0);
        QVERIFY(!pair.link.m_serial && pair.link.m_udp);
        QCOMPARE(pair.link.DestroyFree(), 0);
        QVERIFY(!pair.link.m_udp);
        QCOMPARE(pair.link.IsLinkOpen(), -3);
        QCOMPARE(pair.link.DestroyFree(), 1);
    }

private:
    SorvikSimulator m_sim;
    QString m_path;
};

QTEST_GUILESS_MAIN(SerialTest)
#include "tst_serial.moc"
