// One read of one tag: checks, the link request by type, and decoding.

#include "LibSorvik.h"

#include "../link/SorvikProtocol.h"
#include "LinkStatus.h"

#include <utility>

using namespace SorvikProtocol;

namespace {

// Every 256-byte block of area SI starts with a head byte that is no data.
QByteArray withoutBlockHeads(const QByteArray &data, int blocks)
{
    QByteArray out;
    out.reserve(data.size());
    for (int i = 0; i < data.size(); ++i)
        if (i % kStringBlock != 0 || i / kStringBlock >= blocks)
            out.append(data.at(i));
    return out;
}

} // namespace

CLabelVariable LibSorvik::ReadVariable(QString tag, DataType type)
{
    return ReadVariable(tag, type, 1);
}

CLabelVariable LibSorvik::ReadVariable(QString tag, DataType type, int count)
{
    const int area = getArea(tag);
    const int index = getAddr(tag);
    const int refused = area == AreaCode::None ? RecordStatus::NoArea
                        : count < 1            ? RecordStatus::LengthRefused
                        : type == TYPE_NONE    ? RecordStatus::TypeRefused
                                               : RecordStatus::Ok;
    // The read's own record is taken as it is, not copied into a fresh one:
    // both carry the default statusAux and auxWord that an assignment keeps.
    CLabelVariable record = refused == RecordStatus::Ok ? Read_data(area, index, type, count, tag) : CLabelVariable();
    if (refused != RecordStatus::Ok) {
        // A refused request keeps the time of the call. A read replaces it
        // with its own, so it is taken only here.
        record.status = refused;
        record.time = m_clock.now();
    }
    record.tag = std::move(tag);
    record.dataType = type;
    record.length = count;
    return record;
}

CLabelVariable LibSorvik::Read_data(int area, int index, DataType type, int count, QString tag)
{
    CLabelVariable record;
    const int bytes = getBytelen(type, count, area);
    if (bytes == 0 || count == 0) {
        record.status = RecordStatus::LengthRefused;
        return record;
    }

    QByteArray data;
    int result;
    if (type == TYPE_BOOL)
        result = m_cmd.ReadBits(area, index, bytes, &data, tag);
    else if (type == TYPE_STRING)
        result = m_cmd.ReadStrings(area, index, bytes, &data, tag);
    else
        result = m_cmd.ReadBytes(area, index, bytes, &data, tag);
    if (result != LinkResult::Ok) {
        record.status = statusOfLinkFailure(result);
        return record;
    }
    record.time = m_clock.now();
    record.status = RecordStatus::Ok;

    // On a bit area the link packs eight wire bytes into one data byte.
    int n = type >= TYPE_INT8 && type <= TYPE_DOUBLE && isBitArea(area) ? count : bytes;
    if (area == kStringArea && type == TYPE_INT8) {
        const int blocks = n / kStringBlock;
        data = withoutBlockHeads(data, blocks);
        n -= blocks;
    }

    switch (type) {
    case TYPE_BOOL: record.value = set_variant_bool(data, n); break;
    case TYPE_INT8: record.value = set_variant_Int8(data, n); break;
    case TYPE_UINT8: record.value = set_variant_UInt8(data, n); break;
    case TYPE_INT16: record.value = set_variant_Int16(data, n / 2); break;
    case TYPE_UINT16: record.value = set_variant_UInt16(data, n / 2); break;
    case TYPE_INT32: record.value = set_variant_Int32(data, n / 4); break;
    case TYPE_UINT32: record.value = set_variant_UInt32(data, n / 4); break;
    case TYPE_FLOAT: record.value = set_variant_fload(data, n / 4); break;
    case TYPE_INT64: record.value = set_variant_Int64(data, n / 8); break;
    case TYPE_UINT64: record.value = set_variant_UInt64(data, n / 8); break;
    case TYPE_DOUBLE: record.value = set_variant_double(data, n / 8); break;
    case TYPE_STRING: record.value = set_variant_string(data, n); break;
    default: break; // other types have no transfer length and ended above
    }
    return record;
}
