// Value lists to payload bytes, least significant byte first for every
// width. Only the first `count` elements are taken; a value of another list
// type adds nothing.

#include "LibSorvik.h"

#include "../protocol/ElementBytes.h"

namespace {

template <typename T> int encode(const CLabelVariable &label, int count, QByteArray *payload)
{
    if (!payload || !SorvikValues::holdsConvertible<T>(label.value))
        return 0;
    const QList<T> list = SorvikValues::listFrom<T>(label.value);
    // A shorter list than count gives what it holds; the write path refuses
    // such a value before it gets here.
    const int n = qBound(0, count, list.size());
    for (int i = 0; i < n; ++i)
        ElementBytes::append(*payload, list.at(i));
    return 0;
}

} // namespace

int LibSorvik::Wset_variant_bool(CLabelVariable label, int count, QByteArray *payload)
{
    if (!payload || !SorvikValues::holdsConvertible<bool>(label.value))
        return 0;
    const QList<bool> list = SorvikValues::listFrom<bool>(label.value);
    const int n = qBound(0, count, list.size());
    for (int i = 0; i < n; ++i)
        payload->append(list.at(i) ? '\x01' : '\x00');
    return 0;
}

int LibSorvik::Wset_variant_Int8(CLabelVariable label, int count, QByteArray *payload)
{
    return encode<char>(label, count, payload);
}

int LibSorvik::Wset_variant_UInt8(CLabelVariable label, int count, QByteArray *payload)
{
    return encode<uchar>(label, count, payload);
}

int LibSorvik::Wset_variant_Int16(CLabelVariable label, int count, QByteArray *payload)
{
    return encode<short>(label, count, payload);
}

int LibSorvik::Wset_variant_uInt16(CLabelVariable label, int count, QByteArray *payload)
{
    return encode<ushort>(label, count, payload);
}

int LibSorvik::Wset_variant_Int32(CLabelVariable label, int count, QByteArray *payload)
{
    return encode<int>(label, count, payload);
}

int LibSorvik::Wset_variant_UInt32(CLabelVariable label, int count, QByteArray *payload)
{
    return encode<uint>(label, count, payload);
}

int LibSorvik::Wset_variant_float(CLabelVariable label, int count, QByteArray *payload)
{
    return encode<float>(label, count, payload);
}

int LibSorvik::Wset_variant_Int64(CLabelVariable label, int count, QByteArray *payload)
{
    return encode<qlonglong>(label, count, payload);
}

int LibSorvik::Wset_variant_UInt64(CLabelVariable label, int count, QByteArray *payload)
{
    return encode<qulonglong>(label, count, payload);
}

int LibSorvik::Wset_variant_double(CLabelVariable label, int count, QByteArray *payload)
{
    return encode<double>(label, count, payload);
}

// Each string becomes its length byte (characters mod 256) and its Latin-1
// text, and replaces the payload: the form of one string block, unpadded.
int LibSorvik::Wset_variant_string(CLabelVariable label, int count, QByteArray *payload)
{
    if (!payload || !SorvikValues::holdsConvertible<QString>(label.value))
        return 0;
    const QList<QString> list = SorvikValues::listFrom<QString>(label.value);
    const int n = qBound(0, count, list.size());
    for (int i = 0; i < n; ++i) {
        const QString &text = list.at(i);
        *payload = (QChar(ushort(text.size() % 256)) + text).toLatin1();
    }
    return 0;
}
