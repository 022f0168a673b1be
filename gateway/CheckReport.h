#pragma once

// What `sorvik-gateway --check` prints of a good configuration: the gateway,
// its broker (never the password), and per controller and group the blocks
// the drive plans, with the requests per cycle against one per tag.
#include "GatewayConfig.h"
#include "GroupPlan.h"

#include <QList>
#include <QStringList>

namespace CheckReport {

QStringList lines(const GatewayConfig &config, const QList<ControllerPlan> &plans);

} // namespace CheckReport
