#pragma once

// A write command as it comes from MQTT, {"id":…,"tag":NAME,"value":…},
// checked against the controller's tags before anything reaches the drive.
// Whatever is wrong with it is refused with the reason; only a command that
// names a writable tag and carries a value of exactly its type and count is
// handed on.
#include "GatewayConfig.h"

#include <QByteArray>
#include <QJsonValue>
#include <QString>
#include <QVariant>

struct WriteCommand {
    static constexpr int kMostBytes = 4096; // longer payloads are refused unread

    // What kind of refusal: a few fixed names, so that a stranger's payloads
    // can neither grow the metrics' series nor flood the log (one warning
    // per kind, then only counted).
    enum class Kind {
        None,
        TooLarge,
        MalformedJson,
        MalformedCommand,
        UnknownController,
        UnknownTag,
        ReadOnly,
        NotWritable,
        WrongType,
        OutOfRange,
        NotAscii,
        NotReady,
        Stopping,
    };
    static QString kindName(Kind kind);

    QJsonValue id;   // as the command gave it (number or text); null when none could be read
    QString name;    // the tag's configured name
    TagConfig tag;   // the tag as configured
    QVariant value;  // a QList of the tag's element type, `tag.count` elements, in raw units
    QString refusal; // why the command was refused; empty when it may go to the drive
    Kind kind = Kind::None;

    void refuse(Kind why, const QString &text)
    {
        kind = why;
        refusal = text;
    }

    bool accepted() const { return refusal.isEmpty(); }

    static WriteCommand parse(const QByteArray &payload, const ControllerConfig &controller, bool readOnly);

    // The reply on the write reply topic: {"id","tag","refused":reason} for a
    // refused command, {"id","tag","status","meaning"} for one the drive ran.
    QByteArray refusedReply() const;
    QByteArray doneReply(int status, const QString &meaning) const;

    // Logs a refusal: a warning naming its kind when it is the first of that
    // kind, a debug line otherwise.
    void logRefusal(const QString &controller, bool firstOfKind) const;
};
