#pragma once

#include <QList>
#include <QString>
#include <QStringList>
#include <QVariant>

// One tag of a command: what to read, or what to write with its values.
struct TagItem {
    QString tag;
    int dataType = 0;
    int count = 1;  // elements to read, or values to write
    QVariant value; // the value list of a write
    QString origin; // where it was given, for messages: "AI1:int32" or "tags.csv:4"
};

// How a command takes its tags.
enum class TagSyntax {
    Read,     // TAG:TYPE[xCOUNT]
    Plan,     // TAG:TYPE, one element each, as the planner takes them
    Write,    // TAG:TYPE=VALUE or TAG:TYPExCOUNT=VALUE,VALUE...
    WritePlan // TAG:TYPE=VALUE, one value each, as the planner takes them
};

namespace TagItems {
// The most elements one request can carry: a transfer of 1468 bytes or more is refused.
constexpr int kMostElements = 1467;
// The most strings one reply carries: each takes a block of 256 bytes.
constexpr int kMostStrings = 5;

// One command-line argument.
bool fromArgument(const QString &argument, TagSyntax syntax, TagItem *item, QString *why);
// One line of a tag file, already split: tag, type and the values if any.
// Values on a line are ignored by the reading syntaxes, so one file serves all commands.
bool fromFields(const QStringList &fields, TagSyntax syntax, TagItem *item, QString *why);
} // namespace TagItems
