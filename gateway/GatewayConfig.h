#pragma once

// What one configuration file says, as plain values. ConfigLoader makes it
// from TOML and checks it; the rest of the gateway only reads it.
#include <QList>
#include <QString>

#include <optional>

struct BrokerConfig {
    QString host = QStringLiteral("127.0.0.1");
    int port = 1883;
    QString clientId; // defaults to "sorvik-gateway-<gateway name>"
    QString user;
    QString password; // from `password` or read from `password_file`; never logged
    QString caFile;
    QString certFile;
    QString keyFile;
    int qos = 1;
    int keepaliveSeconds = 30;
};

struct BufferConfig {
    QString path;               // the SQLite file of the offline queue
    qint64 maxBytes = 64 << 20; // the queue's size limit; the oldest messages go first
    qint64 maxFileBytes = 0;    // a cap on the file itself, met as a full disk; 0: none
};

struct ReconnectPolicy {
    int lostAfterCycles = 3;    // cycles without a good reply before the controller counts as lost
    int firstPauseMs = 1000;    // first pause between reconnection attempts
    int longestPauseMs = 60000; // the pause doubles, with jitter, up to this
};

struct TagConfig {
    QString name;     // symbolic name, unique within its controller
    QString tag;      // the drive's tag text, e.g. "AI12"
    int dataType = 0; // DataType 1 to 12
    int count = 1;
    QString unit;
    std::optional<double> scale; // engineering value = raw * scale + offset
    std::optional<double> offset;
    double deadband = 0; // 0: every cycle carries the value
    bool writable = false;
    int line = 0; // where the tag stands in the file, for messages
};

struct ScanGroupConfig {
    QString name;
    int intervalMs = 1000;
    QList<TagConfig> tags;
    int line = 0;
};

struct ControllerConfig {
    QString name;
    QString connection; // the drive's connection text: "address:port" or "port,baud,databits,stopbits,parity"
    ReconnectPolicy reconnect;
    QList<ScanGroupConfig> groups;
    int line = 0;
};

struct GatewayConfig {
    QString name;
    bool readOnly = false;  // refuses every write command
    QString metricsAddress; // "address:port" of the Prometheus endpoint; empty: none
    int heartbeatMs = 10000;
    QString library; // the drive library to load; empty: the usual places
    BrokerConfig broker;
    BufferConfig buffer;
    QList<ControllerConfig> controllers;
};
