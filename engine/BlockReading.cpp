// Reading one planned block and cutting its reply into the records of its tags.

#include "CInductiveDrive.h"

#include "../protocol/ElementBytes.h"
#include "BlockKind.h"

#include <QByteArray>

#include <type_traits>

using Induction::SReadInfo;

namespace {

template <typename T> QVariant single(T element)
{
    return QVariant::fromValue(QList<T>{element});
}

using ElementBytes::byteAt;

// The text of a string tag: its bytes from `from` up to the first zero byte,
// `size` bytes or the end of the reply, whichever comes first.
QString textAt(const QList<char> &bytes, qint64 from, int size)
{
    QByteArray text;
    for (qint64 i = from; i < from + size && byteAt(bytes, i) != 0; ++i)
        text.append(static_cast<char>(byteAt(bytes, i)));
    return QString::fromUtf8(text);
}

// One element of dataType out of a byte block, at address `offset` of `width`
// bytes (at bit `offset` for a bool). Bytes past the reply read as zero.
QVariant elementAt(const QList<char> &bytes, int offset, int width, int dataType, int size)
{
    if (dataType == TYPE_BOOL) {
        const quint8 byte = byteAt(bytes, offset / 8);
        return single<bool>((byte >> (offset % 8)) & 1u);
    }
    const qint64 from = qint64(offset) * width;
    if (dataType == TYPE_STRING)
        return QVariant::fromValue(QList<QString>{textAt(bytes, from, size)});

    char buffer[8] = {};
    for (int k = 0; k < size && k < int(sizeof buffer); ++k)
        buffer[k] = static_cast<char>(byteAt(bytes, from + k));
    if (dataType == TYPE_INT8 || dataType == TYPE_UINT8)
        return single<char>(buffer[0]); // both byte types come back as char in a block
    QVariant value;                     // stays invalid for the no-element type
    SorvikValues::visitElementType(dataType, [&](auto element) {
        using T = typename decltype(element)::type;
        if constexpr (std::is_arithmetic<T>::value && !std::is_same<T, bool>::value)
            value = single<T>(ElementBytes::fromLittleEndian<T>(buffer));
    });
    return value;
}

} // namespace

QMap<SReadInfo, CLabelVariable> CInductiveDrive::BlockReading(const QString &connectPar, const QList<SReadInfo> &group)
{
    QMap<SReadInfo, CLabelVariable> records;
    if (!m_readCallback)
        return records;
    const auto plan = m_readPlans.constFind(connectPar);
    if (plan == m_readPlans.cend())
        return records;
    const auto planned = plan->constFind(group);
    if (planned == plan->cend())
        return records;
    // A copy: the host may change the plan while the read waits for its reply.
    const SReadGroup block = planned.value();
    if (block.kind != BlockKind::Bytes && block.kind != BlockKind::Points)
        return records;

    const bool bits = block.kind == BlockKind::Points;
    const QString tag = QStringLiteral("%1%2").arg(block.areaText, block.start.toString());
    const CLabelVariable reply = m_readCallback(connectPar, tag, bits ? TYPE_BOOL : TYPE_INT8, block.length);

    // Every record carries the status and the time of the block.
    CLabelVariable shared = reply;
    shared.value = QVariant();
    shared.length = 1;
    auto recordOf = [&shared](const SReadInfo &info, QVariant value) {
        CLabelVariable record(shared);
        record.tag = info.tag;
        record.dataType = info.dataType;
        record.value = std::move(value);
        return record;
    };

    if (bits) {
        const QList<bool> points = SorvikValues::listFrom<bool>(reply.value);
        for (auto place = block.tags.cbegin(); place != block.tags.cend(); ++place) {
            const int offset = place.value().offset;
            if (offset >= 0 && offset < points.size())
                records.insert(place.key(), recordOf(place.key(), single<bool>(points.at(offset))));
        }
        return records;
    }

    const QList<char> bytes = SorvikValues::listFrom<char>(reply.value);
    for (auto place = block.tags.cbegin(); place != block.tags.cend(); ++place) {
        const SReadInfo &info = place.key();
        const int size = tagSize(info);
        if (place.value().offset < 0 || size < 0)
            continue;
        records.insert(
            info, recordOf(info, elementAt(bytes, place.value().offset, place.value().width, info.dataType, size)));
    }
    return records;
}
