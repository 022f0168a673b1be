// Tag text to area code and element index, area sizes and transfer lengths.

#include "LibSorvik.h"

#include <limits>

#include "../link/SorvikProtocol.h"

using namespace SorvikProtocol;

int LibSorvik::getArea(QString tag)
{
    // Every read passes here: the prefixes are compared character by
    // character in place, most of them ending at the first.
    const QChar *text = tag.constData();
    const int size = tag.size();
    for (const Area &area : kAreas) {
        int i = 0;
        while (area.prefix[i] != '\0' && i < size && text[i].unicode() == uchar(area.prefix[i]))
            ++i;
        if (area.prefix[i] == '\0')
            return area.code;
    }
    return AreaCode::None;
}

// Every ASCII digit of the text, in order, is the 1-based element number.
int LibSorvik::getAddr(QString tag)
{
    constexpr int kNoNumber = -1; // no usable number: a frame sends its low 24 bits as they are
    quint64 number = 0;
    for (const QChar c : qAsConst(tag)) {
        const ushort u = c.unicode();
        if (u < '0' || u > '9')
            continue;
        number = number * 10 + (u - '0');
        if (number > 0xFFFFFFFFull)
            return kNoNumber; // too large for 32 bits
    }
    if (number == 0)
        return kNoNumber;
    return static_cast<int>(static_cast<quint32>(number - 1));
}

int LibSorvik::getmaximum_length(int area)
{
    return area >= 0 && area < int(kAreaSizes.size()) ? kAreaSizes[area] : 0;
}

// A wide type on a bit area keeps the one rule, count × width wire bytes,
// though each of them carries a single bit: such a transfer moves an eighth of
// the data its elements need, and a read fills the rest with zeros. Nothing
// relies on it; refusing it would break the rule that 64-bit and double
// writes reach every area.
int LibSorvik::getBytelen(DataType type, int count, int area)
{
    const qint64 n = count; // huge counts must not overflow the products below
    qint64 length = 0;
    switch (type) {
    case TYPE_BOOL:
    case TYPE_STRING: length = n; break;
    case TYPE_INT8:
    case TYPE_UINT8:
        switch (groupOf(area)) {
        case AreaGroup::Bit: length = n * 8; break;
        case AreaGroup::Word: length = n - n % 4; break;
        case AreaGroup::Pair: length = n - n % 2; break;
        case AreaGroup::Block: length = n - n % kStringBlock; break;
        case AreaGroup::None: length = 0; break;
        }
        break;
    case TYPE_INT16:
    case TYPE_UINT16: length = n * 2; break;
    case TYPE_INT32:
    case TYPE_UINT32:
    case TYPE_FLOAT: length = n * 4; break;
    case TYPE_INT64:
    case TYPE_UINT64:
    case TYPE_DOUBLE: length = n * 8; break;
    default: length = 0; break;
    }
    // Only a length of 1468 or more is refused here; a negative count gives a
    // negative length, which the one-tag paths never let through.
    return length < kTransferLimit && length >= std::numeric_limits<int>::min() ? static_cast<int>(length) : 0;
}
