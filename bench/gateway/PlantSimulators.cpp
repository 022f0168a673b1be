#include "PlantSimulators.h"

#include "Controllers.h"

QString PlantSimulators::address(int k) const
{
    return QStringLiteral("%1.%2.%3").arg(m_prefix).arg(k / 250).arg(k % 250 + 1);
}

QString PlantSimulators::connectText(int k) const
{
    return QStringLiteral("%1:%2").arg(address(k)).arg(m_controllers.at(size_t(k))->port);
}

bool PlantSimulators::grow(int count, QString *why)
{
    static const QByteArray floats = BenchTags::naiFloats();
    while (size() < count) {
        auto controller = std::make_unique<Controller>();
        const QString host = address(size());
        controller->port = controller->sim.startUdp(QHostAddress(host), 0);
        if (controller->port == 0) {
            *why = QStringLiteral("no simulator on %1").arg(host);
            return false;
        }
        controller->sim.preset(BenchTags::kNaiArea, 0, floats);
        m_controllers.push_back(std::move(controller));
    }
    return true;
}
