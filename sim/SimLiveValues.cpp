#include "SimLiveValues.h"

#include "SimPresets.h"
#include "SorvikSimulator.h"

#include <QTime>

#include <chrono>
#include <cmath>

namespace {

constexpr double kPi = 3.14159265358979323846;

// A triangle wave between `low` and `high` with the given period in seconds.
double triangle(double seconds, double periodSeconds, double low, double high)
{
    const double phase = std::fmod(seconds, periodSeconds) / periodSeconds; // 0..1
    const double rise = phase < 0.5 ? phase * 2.0 : 2.0 - phase * 2.0;
    return low + (high - low) * rise;
}

QString number(double value)
{
    return QString::number(value, 'g', 9);
}

} // namespace

SimLiveValues::SimLiveValues(SorvikSimulator *simulator) : m_simulator(simulator) {}

SimLiveValues::~SimLiveValues()
{
    stop();
}

QStringList SimLiveValues::tags()
{
    return {QStringLiteral("AI1:float"),   QStringLiteral("AI2:float"),  QStringLiteral("AI3:int32"),
            QStringLiteral("AI4:float"),   QStringLiteral("DI1:bool"),   QStringLiteral("DI2:bool"),
            QStringLiteral("DI3:bool"),    QStringLiteral("DI4:bool"),   QStringLiteral("SA1:int16"),
            QStringLiteral("NAI1:double"), QStringLiteral("SI1:string"), QStringLiteral("SI2:string"),
            QStringLiteral("SI3:string")};
}

QStringList SimLiveValues::assignmentsAt(double seconds)
{
    const qint64 tenths = qint64(seconds * 10.0);
    const qint64 wholeSeconds = qint64(seconds);
    QStringList bits;
    for (int k = 0; k < 8; ++k)
        bits << QString::number((wholeSeconds >> k) & 1); // DI1 toggles every second, DI2 every two ...
    const bool pumpRunning = (wholeSeconds / 5) % 2 == 0;

    return {
        QStringLiteral("AI1=float:") + number(50.0 + 40.0 * std::sin(2.0 * kPi * seconds / 20.0)), // level
        QStringLiteral("AI2=float:") + number(std::fmod(seconds * 10.0, 100.0)),                   // ramp
        QStringLiteral("AI3=int32:") + QString::number(tenths % 2147483647),                       // counter
        QStringLiteral("AI4=float:") + number(triangle(seconds, 60.0, 18.0, 26.0)),                // temperature
        QStringLiteral("DI1=bool:") + bits.join(QLatin1Char(',')),
        QStringLiteral("SA1=int16:") + QString::number(qRound(triangle(seconds, 8.0, -1000.0, 1000.0))),
        QStringLiteral("NAI1=double:") + number(seconds),
        QStringLiteral("SI1=string:") + (pumpRunning ? QStringLiteral("pump running") : QStringLiteral("pump stopped")),
        QStringLiteral("SI2=string:Sorvik demo plant"),
        QStringLiteral("SI3=string:") + QTime::currentTime().toString(QStringLiteral("hh:mm:ss")),
    };
}

void SimLiveValues::keep(int area, int address, int length)
{
    if (length > 0)
        m_kept.append({area, address, length});
}

bool SimLiveValues::kept(int area, int address) const
{
    for (const Range &range : m_kept)
        if (range.area == area && address >= range.address && address - range.address < range.length)
            return true;
    return false;
}

// Each value goes in in runs of the bytes that no kept range covers.
void SimLiveValues::writeAt(double seconds)
{
    for (const QString &assignment : assignmentsAt(seconds)) {
        SimPreset value;
        if (!SimPresets::parse(assignment, &value, nullptr))
            continue;
        int start = 0;
        for (int i = 0; i <= value.bytes.size(); ++i) {
            if (i < value.bytes.size() && !kept(value.area, value.address + i))
                continue;
            if (i > start)
                m_simulator->preset(value.area, value.address + start, value.bytes.mid(start, i - start));
            start = i + 1;
        }
    }
}

void SimLiveValues::start(int periodMs)
{
    stop();
    m_clock.start();
    writeAt(0.0);
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stopping = false;
    }
    const auto period = std::chrono::milliseconds(qMax(1, periodMs));
    m_thread = std::thread([this, period] {
        std::unique_lock<std::mutex> lock(m_mutex);
        while (!m_wake.wait_for(lock, period, [this] { return m_stopping; })) {
            lock.unlock();
            writeAt(double(m_clock.elapsed()) / 1000.0);
            lock.lock();
        }
    });
}

void SimLiveValues::stop()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stopping = true;
    }
    m_wake.notify_all();
    if (m_thread.joinable())
        m_thread.join();
}
