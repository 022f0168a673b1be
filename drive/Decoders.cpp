// Reply bytes to value lists. A byte past the end of the data reads as 0, so
// a short reply still gives every element that was asked for.

#include "LibSorvik.h"

#include "../protocol/ElementBytes.h"
#include "../protocol/SorvikAreas.h"

using ElementBytes::byteAt;

namespace {

// The list has count elements, zeros past the data. Only an absurd count
// from a direct caller, a million elements beyond the data, is cut there
// instead of asking for gigabytes of zeros.
int boundedCount(int count, const QByteArray &data, int width)
{
    constexpr qint64 kMostBeyondData = 1 << 20;
    const qint64 inData = (qint64(data.size()) + width - 1) / width;
    const qint64 most = inData + kMostBeyondData;
    return count > 0 ? static_cast<int>(qMin<qint64>(count, most)) : 0;
}

// A list of n elements to be overwritten, made in one piece: appending them
// one by one costs a call into Qt per element, more than decoding them. The
// piece is cut from a list kept per type (a few kilobytes per process) that
// holds as many elements as the longest transfer.
template <typename T> QList<T> listOfSize(int n)
{
    static const QList<T> *const longest = [] {
        auto *list = new QList<T>; // never freed: threads may still read it at exit
        list->reserve(SorvikProtocol::kTransferLimit);
        for (int i = 0; i < SorvikProtocol::kTransferLimit; ++i)
            list->append(T());
        return list;
    }();
    if (n < longest->size())
        return longest->mid(0, n);
    QList<T> list;
    list.reserve(n);
    for (int i = 0; i < n; ++i)
        list.append(T());
    return list;
}

template <typename T> QVariant decodeLittleEndian(const QByteArray &data, int count)
{
    const int n = boundedCount(count, data, sizeof(T));
    // Elements that lie wholly in the data are read straight from it; only
    // those past its end need the byte-by-byte look with zeros.
    const int whole = qMin(n, data.size() / int(sizeof(T)));
    QList<T> list = listOfSize<T>(n);
    auto element = list.begin();
    const char *at = data.constData();
    for (int i = 0; i < whole; ++i, at += sizeof(T))
        *element++ = ElementBytes::fromLittleEndian<T>(at);
    for (int i = whole; i < n; ++i)
        *element++ = ElementBytes::littleEndianAt<T>(data, qint64(i) * qint64(sizeof(T)));
    return SorvikValues::toVariant(list);
}

// The 64-bit integers alone come most significant byte first.
template <typename T> QVariant decodeBigEndian64(const QByteArray &data, int count)
{
    const int n = boundedCount(count, data, 8);
    QList<T> list = listOfSize<T>(n);
    auto element = list.begin();
    for (int i = 0; i < n; ++i)
        *element++ = ElementBytes::bigEndianAt<T>(data, qint64(i) * 8);
    return SorvikValues::toVariant(list);
}

} // namespace

QVariant LibSorvik::set_variant_bool(QByteArray data, int count)
{
    const int n = boundedCount(count, data, 1);
    QList<bool> list = listOfSize<bool>(n);
    auto element = list.begin();
    for (int i = 0; i < n; ++i)
        *element++ = byteAt(data, i) != 0;
    return SorvikValues::toVariant(list);
}

QVariant LibSorvik::set_variant_Int8(QByteArray data, int count)
{
    return decodeLittleEndian<char>(data, count);
}

QVariant LibSorvik::set_variant_UInt8(QByteArray data, int count)
{
    return decodeLittleEndian<uchar>(data, count);
}

QVariant LibSorvik::set_variant_Int16(QByteArray data, int count)
{
    return decodeLittleEndian<short>(data, count);
}

QVariant LibSorvik::set_variant_UInt16(QByteArray data, int count)
{
    return decodeLittleEndian<ushort>(data, count);
}

QVariant LibSorvik::set_variant_Int32(QByteArray data, int count)
{
    return decodeLittleEndian<int>(data, count);
}

QVariant LibSorvik::set_variant_UInt32(QByteArray data, int count)
{
    return decodeLittleEndian<uint>(data, count);
}

QVariant LibSorvik::set_variant_fload(QByteArray data, int count)
{
    return decodeLittleEndian<float>(data, count);
}

QVariant LibSorvik::set_variant_Int64(QByteArray data, int count)
{
    return decodeBigEndian64<qlonglong>(data, count);
}

QVariant LibSorvik::set_variant_UInt64(QByteArray data, int count)
{
    return decodeBigEndian64<qulonglong>(data, count);
}

QVariant LibSorvik::set_variant_double(QByteArray data, int count)
{
    return decodeLittleEndian<double>(data, count);
}

// Packed strings, one after the other: a signed length byte, then the text,
// which ends early at a NUL inside it.
QVariant LibSorvik::set_variant_string(QByteArray data, int count)
{
    const int n = boundedCount(count, data, 1);
    QList<QString> list;
    list.reserve(n);
    int at = 0;
    for (int i = 0; i < n; ++i) {
        // A negative length byte holds no text: it reads as an empty string
        // and eats the length byte alone.
        const int length = qMax(0, int(static_cast<qint8>(byteAt(data, at))));
        const int begin = qMin(at + 1, data.size());
        const int chunk = qMin(length, data.size() - begin);
        const char *text = data.constData() + begin;
        list.append(QString::fromUtf8(text, int(qstrnlen(text, uint(chunk)))));
        at = qMin(at + 1 + length, data.size());
    }
    return SorvikValues::toVariant(list);
}
