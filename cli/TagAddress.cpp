#include "TagAddress.h"

#include "host/DataType.h"
#include "link/SorvikProtocol.h"
#include "programs/TypeNames.h"

using namespace SorvikProtocol;

namespace {

constexpr qint64 kLastAddress = 0xFFFFFF; // the largest a 24-bit field holds

QString prefixOf(const QString &tag)
{
    int digits = tag.size();
    while (digits > 0 && tag.at(digits - 1).isDigit())
        --digits;
    return tag.left(digits);
}

qint64 elementIndex(const QString &tag)
{
    return tag.mid(prefixOf(tag).size()).toLongLong() - 1;
}

// Address of the first element and the span of the transfer in the same
// units, as the read and write frames lay them out.
void wireRange(int area, qint64 index, int dataType, int count, bool writing, qint64 *address, qint64 *span)
{
    const int length = TagAddress::transferLength(dataType, count, area);
    if (dataType == TYPE_BOOL) {
        *address = index; // bits go out by element index on every area
        *span = count;
    } else if (dataType == TYPE_STRING && !writing) {
        *address = index * kStringBlock;
        *span = qint64(count) * kStringBlock;
    } else if (writing && isBlockArea(area)) {
        *address = index * kStringBlock;
        *span = length;
    } else {
        *address = index * addressFactor(area);
        *span = length;
    }
}

} // namespace

int TagAddress::areaCode(const QString &tag)
{
    const QString prefix = prefixOf(tag);
    for (const Area &area : kAreas)
        if (prefix == QLatin1String(area.prefix))
            return area.code;
    return AreaCode::None;
}

int TagAddress::transferLength(int dataType, int count, int area)
{
    qint64 length = 0;
    switch (dataType) {
    case TYPE_BOOL:
    case TYPE_STRING: length = count; break;
    case TYPE_INT8:
    case TYPE_UINT8:
        switch (groupOf(area)) {
        case AreaGroup::Bit: length = qint64(count) * 8; break;
        case AreaGroup::Word: length = count - count % 4; break;
        case AreaGroup::Pair: length = count - count % 2; break;
        case AreaGroup::Block: length = count - count % kStringBlock; break;
        case AreaGroup::None: length = 0; break;
        }
        break;
    case TYPE_INT16:
    case TYPE_UINT16: length = qint64(count) * 2; break;
    case TYPE_INT32:
    case TYPE_UINT32:
    case TYPE_FLOAT: length = qint64(count) * 4; break;
    case TYPE_INT64:
    case TYPE_UINT64:
    case TYPE_DOUBLE: length = qint64(count) * 8; break;
    default: length = 0;
    }
    return length > 0 && length < kTransferLimit ? int(length) : 0;
}

bool TagAddress::check(const QString &tag, int dataType, int count, bool writing, QString *why)
{
    const int area = areaCode(tag);
    if (area == AreaCode::None)
        return true; // the drive answers "no area" itself and sends nothing
    // A bit area carries one bit per wire byte and packs eight of them into a
    // data byte: a wider element would come back as zeros or go out as too
    // few bits, both without a word from the drive.
    if (isBitArea(area) && dataType != TYPE_BOOL && dataType != TYPE_INT8 && dataType != TYPE_UINT8 &&
        dataType != TYPE_STRING) {
        *why = QStringLiteral("%1 is a bit area: it takes bool, int8 or uint8, not %2")
                   .arg(prefixOf(tag), TypeNames::name(dataType));
        return false;
    }
    qint64 address = 0, span = 0;
    wireRange(area, elementIndex(tag), dataType, count, writing, &address, &span);
    const qint64 last = address + qMax<qint64>(span, 1) - 1;
    if (address > kLastAddress || last > kLastAddress) {
        *why = QStringLiteral("%1 (%2 element%3) ends at wire address %4, beyond the 24-bit address field "
                              "(largest %5): the drive would %6 another element")
                   .arg(tag)
                   .arg(count)
                   .arg(count == 1 ? QString() : QStringLiteral("s"))
                   .arg(last)
                   .arg(kLastAddress)
                   .arg(writing ? QStringLiteral("write") : QStringLiteral("read"));
        return false;
    }
    return true;
}

bool TagAddress::carriesAll(const QString &tag, int dataType, int count, QString *why)
{
    if (dataType != TYPE_INT8 && dataType != TYPE_UINT8)
        return true;
    const int area = areaCode(tag);
    const int length = transferLength(dataType, count, area);
    if (area == AreaCode::None || length == 0 || isBitArea(area) || length == count)
        return true; // sent whole, or refused by the drive with its own status
    const int unit = isWordArea(area) ? 4 : isPairArea(area) ? 2 : kStringBlock;
    *why = QStringLiteral("%1 takes %2 in whole elements of %3 bytes: %4 values would go out as %5; "
                          "give a multiple of %3")
               .arg(prefixOf(tag), TypeNames::name(dataType))
               .arg(unit)
               .arg(count)
               .arg(length);
    return false;
}
