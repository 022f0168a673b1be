#pragma once

#include "DataType.h"

#include <QList>
#include <QMetaType>
#include <QString>
#include <QVariant>

// The twelve value list types. A tag value always travels as a QList of its
// element type, also for a single element. Qt's own QList<T> meta-types are
// used, so that host and drive name every type alike ("QList<char>", ...).
namespace SorvikValues {

// Reads a list of type T out of a variant: the held list, a converted one, or
// an empty list when the variant holds something else.
template <typename T>
QList<T> listFrom(const QVariant &value)
{
    return qvariant_cast<QList<T>>(value);
}

template <typename T>
bool holdsConvertible(const QVariant &value)
{
    return value.canConvert<QList<T>>();
}

template <typename T>
QVariant toVariant(const QList<T> &list)
{
    return QVariant::fromValue(list);
}

// Tag type carrying the element type of a list to a generic visitor.
template <typename T>
struct Element {
    using type = T;
};

// Calls visit(Element<T>{}) with the element type of dataType (1..40) and
// returns true; returns false for 0, 41 and anything outside the table.
template <typename Visitor>
bool visitElementType(int dataType, Visitor &&visit)
{
    switch (dataType) {
    case TYPE_BOOL: visit(Element<bool>{}); return true;
    case TYPE_INT8: visit(Element<char>{}); return true;
    case TYPE_UINT8: visit(Element<uchar>{}); return true;
    case TYPE_INT16: case TYPE_INT16_F1: case TYPE_INT16_F2:
        visit(Element<short>{}); return true;
    case TYPE_UINT16: case TYPE_UINT16_F1: case TYPE_UINT16_F2:
        visit(Element<ushort>{}); return true;
    case TYPE_INT32: case TYPE_INT32_F1: case TYPE_INT32_F2: case TYPE_INT32_F3: case TYPE_INT32_F4:
        visit(Element<int>{}); return true;
    case TYPE_UINT32: case TYPE_UINT32_F1: case TYPE_UINT32_F2: case TYPE_UINT32_F3: case TYPE_UINT32_F4:
        visit(Element<uint>{}); return true;
    case TYPE_FLOAT: case TYPE_FLOAT_F1: case TYPE_FLOAT_F2: case TYPE_FLOAT_F3: case TYPE_FLOAT_F4:
        visit(Element<float>{}); return true;
    case TYPE_INT64: case TYPE_INT64_F1: case TYPE_INT64_F2: case TYPE_INT64_F3: case TYPE_INT64_F4:
        visit(Element<qlonglong>{}); return true;
    case TYPE_UINT64: case TYPE_UINT64_F1: case TYPE_UINT64_F2: case TYPE_UINT64_F3: case TYPE_UINT64_F4:
        visit(Element<qulonglong>{}); return true;
    case TYPE_DOUBLE: case TYPE_DOUBLE_F1: case TYPE_DOUBLE_F2: case TYPE_DOUBLE_F3: case TYPE_DOUBLE_F4:
        visit(Element<double>{}); return true;
    case TYPE_STRING: visit(Element<QString>{}); return true;
    default: return false;
    }
}

} // namespace SorvikValues
