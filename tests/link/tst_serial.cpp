// The serial transport over a simulator's pseudo-terminal; each exchange waits out the write wait, so few of them.

#include "LinkTestSupport.h"

#include <QSerialPort>

using namespace LinkTest;

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

    // Opened twice, as a host reconnects: the port keeps what a text does not set, and the gap
    // follows the listed rates only (a pty refuses even parity straight after none).
    void reopen_data()
    {
        QTest::addColumn<int>("firstBaud");
        QTest::addColumn<QString>("firstParity");
        QTest::addColumn<int>("baud");
        QTest::addColumn<QString>("parity");
        QTest::addColumn<int>("gapMs");
        QTest::addColumn<int>("portBaud");
        QTest::addColumn<int>("portParity");
        auto row = [](const char *name, int firstBaud, const char *firstParity, int baud, const char *parity, int gapMs,
                      int portBaud, QSerialPort::Parity portParity) {
            QTest::newRow(name) << firstBaud << QString(firstParity) << baud << QString(parity) << gapMs << portBaud
                                << int(portParity);
        };
        row("1200 keeps 2", 1200, "N", 1200, "N", 2, 1200, QSerialPort::NoParity);
        row("2400", 1200, "N", 2400, "N", 10, 2400, QSerialPort::NoParity);
        row("4800", 1200, "N", 4800, "N", 6, 4800, QSerialPort::NoParity);
        row("9600", 1200, "N", 9600, "N", 3, 9600, QSerialPort::NoParity);
        row("115200 keeps 2", 115200, "N", 115200, "N", 2, 115200, QSerialPort::NoParity);
        row("9600 then 115200 keeps 3", 9600, "N", 115200, "N", 3, 115200, QSerialPort::NoParity);
        row("unlisted rate changes nothing", 19200, "N", 12345, "N", 2, 19200, QSerialPort::NoParity);
        row("E", 9600, "O", 9600, "E", 3, 9600, QSerialPort::EvenParity);
        row("e", 9600, "O", 9600, "e", 3, 9600, QSerialPort::EvenParity);
        row("o", 9600, "N", 9600, "o", 3, 9600, QSerialPort::OddParity);
        row("n", 9600, "O", 9600, "n", 3, 9600, QSerialPort::NoParity);
        row("Even holds an n", 9600, "O", 9600, "Even", 3, 9600, QSerialPort::NoParity);
        row("space holds an e", 9600, "O", 9600, "space", 3, 9600, QSerialPort::EvenParity);
        row("mark keeps the parity", 9600, "odd", 9600, "mark", 3, 9600, QSerialPort::OddParity);
    }

    void reopen()
    {
        QFETCH(int, firstBaud);
        QFETCH(QString, firstParity);
        QFETCH(int, baud);
        QFETCH(QString, parity);
        QFETCH(int, gapMs);
        QFETCH(int, portBaud);
        QFETCH(int, portParity);
        CmdSorvik link;
        QCOMPARE(link.OpenSerial(m_path, firstBaud, 8, 1, firstParity), 0);
        QCOMPARE(link.OpenSerial(m_path, baud, 8, 1, parity), 0);
        QCOMPARE(link.m_gapMs, gapMs);
        QCOMPARE(link.m_serial->baudRate(), qint32(portBaud));
        QCOMPARE(int(link.m_serial->parity()), portParity);
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
