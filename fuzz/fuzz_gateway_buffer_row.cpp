// Any row of the offline queue as SQLite hands it back (an integer, a float,
// a text, bytes or NULL in each column): refused with a reason, or a message
// that goes out exactly as it was stored, under a data topic of the tree.

#include "FuzzSupport.h"

#include "gateway/OfflineBuffer.h"
#include "gateway/Topics.h"

#include <QtEndian>

using FuzzSupport::check;

namespace {

// What SQLite may hand back in a column: an integer, a float, a text, bytes,
// NULL, or a text of broken UTF-16 (a damaged file).
QVariant column(uchar kind, qint64 number, const QByteArray &bytes)
{
    switch (kind % 6) {
    case 0: return QVariant(qlonglong(number));
    case 1: return QVariant(double(number) / 3);
    case 2: return QVariant(QString::fromUtf8(bytes));
    case 3: return QVariant(bytes);
    case 4: return QVariant(QVariant::String);
    default: return QVariant(QString(reinterpret_cast<const QChar *>(bytes.constData()), bytes.size() / 2));
    }
}

} // namespace

// A row: the kinds of id, topic and payload (one byte each), the id (8 bytes,
// least significant first), the topic, a zero byte, the payload.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 11)
        return 0;
    const QByteArray rest(reinterpret_cast<const char *>(data) + 11, int(size) - 11);
    const qint64 number = qFromLittleEndian<qint64>(data + 3);
    const int end = rest.indexOf('\0');
    const QByteArray topicBytes = end < 0 ? rest : rest.left(end);
    const QByteArray payloadBytes = end < 0 ? QByteArray() : rest.mid(end + 1);
    const QVariant id = column(data[0], number, topicBytes);
    const QVariant topic = column(data[1], number, topicBytes);
    const QVariant payload = column(data[2], number, payloadBytes);
    QString why;
    const std::optional<OfflineBuffer::Entry> entry = OfflineBuffer::decode(id, topic, payload, &why);
    if (!entry) {
        check(!why.isEmpty(), "a refused row says why");
        return 0;
    }
    check(entry->id > 0 && entry->id == id.toLongLong(), "an entry keeps its positive id");
    check(entry->payload == payload.toByteArray() && payload.userType() == QMetaType::QByteArray,
          "an entry's payload is the stored bytes");
    check(entry->topic == topic.toString() && topic.userType() == QMetaType::QString, "an entry's topic is the text");
    const QStringList levels = entry->topic.split(QLatin1Char('/'));
    check(levels.size() == 4 && levels.at(0) == QLatin1String("sorvik") && Topics::isTopicLevel(levels.at(1)) &&
              Topics::isTopicLevel(levels.at(2)) && Topics::isTopicLevel(levels.at(3)),
          "an entry's topic is sorvik/<gateway>/<controller>/<group>");
    const QByteArray wire = entry->topic.toUtf8();
    check(QString::fromUtf8(wire) == entry->topic && !wire.contains('\0') && wire.size() <= 65535,
          "an entry's topic goes to the broker as it was stored");
    return 0;
}
