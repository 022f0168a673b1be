#pragma once

// The plant of the gateway benchmark: simulated controllers in this process,
// each serving UDP on a loopback address of its own (every drive binds its
// controller's address and port 500), with NAI1 to NAI1000 holding floats.
#include "sim/SorvikSimulator.h"

#include <QString>

#include <memory>
#include <vector>

class PlantSimulators
{
public:
    // Addresses <prefix>.x.y: controller k on <prefix>.(k / 250).(k % 250 + 1),
    // so that .0 and .255 are never a host.
    explicit PlantSimulators(const QString &prefix) : m_prefix(prefix) {}

    // Starts controllers until there are `count`; false with the reason.
    bool grow(int count, QString *why);
    int size() const { return int(m_controllers.size()); }
    QString address(int k) const;
    // The drive's connection text of controller k (0-based).
    QString connectText(int k) const;

private:
    struct Controller {
        SorvikSimulator sim;
        quint16 port = 0;
    };
    QString m_prefix;
    std::vector<std::unique_ptr<Controller>> m_controllers;
};
