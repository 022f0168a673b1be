#pragma once

// Helpers of the drive tests: value lists in variants, compared by content,
// and a drive connected to a simulator over loopback UDP.

#include "TestSupport.h"
#include "host/CDriveBaseClass.h"
#include "host/CLabelVariable.h"
#include "sim/SorvikSimulator.h"

#include <QtTest>

namespace DriveTest {

// The connection text of a simulator listening on this program's address.
inline QString udpText(quint16 port)
{
    return QStringLiteral("%1:%2").arg(TestSupport::testHost().toString()).arg(port);
}

template <typename T> QVariant listOf(std::initializer_list<T> items)
{
    return QVariant::fromValue(QList<T>(items));
}

inline CLabelVariable recordOf(const QVariant &value)
{
    CLabelVariable record;
    record.value = value;
    return record;
}

// Starts `sim` and connects `drive` to it; the port, or 0 when either fails.
inline quint16 connectTo(SorvikSimulator &sim, CDriveBaseClass &drive)
{
    const quint16 port = sim.startUdp(TestSupport::testHost());
    return port != 0 && drive.ConnectDrive(udpText(port)) == 0 ? port : 0;
}

// A well-behaved controller with empty memory and no frames seen.
inline void reset(SorvikSimulator &sim)
{
    sim.setFaults(SimFaults());
    sim.clearMemory();
    sim.clearFrames();
}

// QVariant's own == compares list handles, not contents.
inline void compareValue(int type, const QVariant &actual, const QVariant &expected)
{
    QCOMPARE(QMetaType::typeName(actual.userType()), QMetaType::typeName(expected.userType()));
    SorvikValues::visitElementType(type, [&](auto element) {
        using T = typename decltype(element)::type;
        QCOMPARE(SorvikValues::listFrom<T>(actual), SorvikValues::listFrom<T>(expected));
    });
}

} // namespace DriveTest

// Use inside a test function: stops it after a failed compareValue.
#define COMPARE_VALUE(type, actual, expected)                                                                          \
    do {                                                                                                               \
        DriveTest::compareValue(type, actual, expected);                                                               \
        if (QTest::currentTestFailed())                                                                                \
            return;                                                                                                    \
    } while (false)
