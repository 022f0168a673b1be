// Any text as a gateway configuration file: every error stands at a place in
// the file, and a configuration that loads holds only values the gateway can run.

#include "FuzzSupport.h"

#include "gateway/ConfigChecks.h"
#include "gateway/ConfigLoader.h"
#include "gateway/Topics.h"

#include <QRegularExpression>

using FuzzSupport::check;

namespace {

// A folder that does not exist: relative paths in the text name no file, so
// a run never reads or depends on what lies around it.
const QString kFile = QStringLiteral("/nonexistent-sorvik-fuzz/gateway.toml");

void checkLoaded(const GatewayConfig &config)
{
    check(Topics::isTopicLevel(config.name), "the gateway's name is a topic level");
    check(!config.buffer.path.isEmpty() && config.buffer.maxBytes >= (1 << 20), "a buffer with a file and a size");
    check(config.broker.port >= 1 && config.broker.port <= 65535 && config.broker.qos >= 0 && config.broker.qos <= 2,
          "the broker's port and qos are in range");
    check(!config.controllers.isEmpty(), "at least one controller");
    QString why;
    for (const ControllerConfig &controller : config.controllers) {
        check(Topics::isTopicLevel(controller.name), "a controller's name is a topic level");
        check(ConfigChecks::connection(controller.connection, &why), "a controller's connection is good");
        check(controller.reconnect.firstPauseMs <= controller.reconnect.longestPauseMs, "pauses in order");
        check(!controller.groups.isEmpty(), "a controller has groups");
        for (const ScanGroupConfig &group : controller.groups) {
            check(Topics::isTopicLevel(group.name) && group.intervalMs >= 10, "a group has a name and an interval");
            for (const TagConfig &tag : group.tags) {
                check(!tag.name.isEmpty() && ConfigChecks::tag(tag.tag, &why), "a tag has a name and a good text");
                check(!ConfigChecks::typeName(tag.dataType).isEmpty(), "a tag has a known type");
                check(tag.count >= 1 && tag.count < 1468, "a tag's count fits one request");
                check(tag.deadband >= 0 && tag.scale.value_or(1) != 0, "no negative deadband, no scale 0");
            }
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray text(reinterpret_cast<const char *>(data), int(size));
    GatewayConfig config;
    QStringList errors;
    const bool loaded = ConfigLoader::parse(text, kFile, &config, &errors);
    check(loaded == errors.isEmpty(), "a file loads exactly when it has no error");
    static const QRegularExpression placed(
        QStringLiteral("^%1:[1-9][0-9]*:[1-9][0-9]*: \\S").arg(QRegularExpression::escape(kFile)));
    for (const QString &error : qAsConst(errors))
        check(placed.match(error).hasMatch(), "every error says file:line:column: and a message");
    if (loaded)
        checkLoaded(config);
    return 0;
}
