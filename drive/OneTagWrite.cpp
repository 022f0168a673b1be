// One write of one tag: checks, encoding, and the link request by type and area.

#include "LibSorvik.h"

#include "../link/SorvikProtocol.h"
#include "LinkStatus.h"

using namespace SorvikProtocol;

namespace {

// 32-bit integers go only to LW, floats only to AO, NAO and LA; type 0 nowhere.
bool typeAllowedInArea(DataType type, int area)
{
    switch (type) {
    case TYPE_NONE: return false;
    case TYPE_INT32:
    case TYPE_UINT32: return area == AreaCode::LW;
    case TYPE_FLOAT: return area == AreaCode::AO || area == AreaCode::NAO || area == AreaCode::LA;
    default: return true;
    }
}

// The number of elements the value of `type` holds, or -1 when it holds no
// list of that type.
int listSize(const QVariant &value, DataType type)
{
    int size = -1;
    SorvikValues::visitElementType(type, [&](auto element) {
        using T = typename decltype(element)::type;
        if (SorvikValues::holdsConvertible<T>(value))
            size = SorvikValues::listFrom<T>(value).size();
    });
    return size;
}

// The payload of `count` strings, or an empty array when one is refused.
// Each string is encoded alone. A single string goes in its packed form,
// whatever its size. Several strings in area SI get one block each, length
// byte, text and zeros, so that the frame carries the count × 256 bytes its
// length field announces; a text longer than its block would overwrite the
// next one there, so it is refused. Elsewhere the packed forms follow each
// other, as a read hands them on, and the frame carries the first `count` bytes.
QByteArray stringPayload(LibSorvik &drive, const QVariant &value, int count, int area)
{
    const QList<QString> texts = SorvikValues::listFrom<QString>(value);
    const bool blocks = area == kStringArea;
    QByteArray payload;
    for (int i = 0; i < count; ++i) {
        CLabelVariable one;
        one.value = SorvikValues::toVariant(QList<QString>{texts.at(i)});
        QByteArray piece;
        drive.Wset_variant_string(one, 1, &piece);
        if (blocks && count > 1) {
            if (piece.size() > kStringBlock)
                return QByteArray();
            piece.append(QByteArray(kStringBlock - piece.size(), '\0'));
        }
        payload.append(piece);
    }
    return payload;
}

} // namespace

CLabelVariable LibSorvik::WriteVariable(QString tag, DataType type, CLabelVariable label)
{
    return WriteVariable(tag, type, label, 1);
}

CLabelVariable LibSorvik::WriteVariable(QString tag, DataType type, CLabelVariable label, int count)
{
    const int area = getArea(tag);
    const int index = getAddr(tag);
    if (area == AreaCode::None)
        label.status = RecordStatus::NoArea;
    else if (count < 0)
        label.status = RecordStatus::LengthRefused;
    else if (!typeAllowedInArea(type, area))
        label.status = RecordStatus::TypeRefused;
    else
        label = Write_data(area, index, type, label, count, tag);
    label.tag = tag;
    label.dataType = type;
    label.length = count;
    return label;
}

CLabelVariable LibSorvik::Write_data(int area, int index, DataType type, CLabelVariable label, int count, QString tag)
{
    const int bytes = getBytelen(type, count, area);
    if (bytes == 0 || count == 0) {
        label.status = RecordStatus::LengthRefused;
        return label;
    }
    // A value that is no list of the type's elements would leave the payload
    // empty and the frame's data undefined: the write stops as a refused type.
    const int held = listSize(label.value, type);
    if (held < 0) {
        label.status = RecordStatus::TypeRefused;
        return label;
    }
    // Fewer elements than count would leave the end of the frame undefined:
    // the write stops as a refused length.
    if (held < count) {
        label.status = RecordStatus::LengthRefused;
        return label;
    }

    QByteArray payload;
    switch (type) {
    case TYPE_BOOL: Wset_variant_bool(label, count, &payload); break;
    case TYPE_INT8: Wset_variant_Int8(label, count, &payload); break;
    case TYPE_UINT8: Wset_variant_UInt8(label, count, &payload); break;
    case TYPE_INT16: Wset_variant_Int16(label, count, &payload); break;
    case TYPE_UINT16: Wset_variant_uInt16(label, count, &payload); break;
    case TYPE_INT32: Wset_variant_Int32(label, count, &payload); break;
    case TYPE_UINT32: Wset_variant_UInt32(label, count, &payload); break;
    case TYPE_FLOAT: Wset_variant_float(label, count, &payload); break;
    case TYPE_INT64: Wset_variant_Int64(label, count, &payload); break;
    case TYPE_UINT64: Wset_variant_UInt64(label, count, &payload); break;
    case TYPE_DOUBLE: Wset_variant_double(label, count, &payload); break;
    case TYPE_STRING:
        payload = stringPayload(*this, label.value, count, area);
        if (payload.isEmpty()) {
            label.status = RecordStatus::LengthRefused;
            return label;
        }
        break;
    default: break; // other types have no transfer length and ended above
    }

    int result;
    if (type == TYPE_BOOL) {
        result = m_cmd.WriteBits(area, index, bytes, payload, tag);
    } else if (area == kStringArea) {
        result = m_cmd.WriteBlock(kStringArea, index, bytes, payload, tag);
    } else {
        result = m_cmd.WriteBytes(area, index, bytes, payload, tag);
    }

    if (result == LinkResult::Ok) {
        label.time = m_clock.now();
        label.status = RecordStatus::Ok;
    } else {
        label.status = statusOfLinkFailure(result);
    }
    return label;
}
