#pragma once

// Elements to bytes and back, and the one bounded reader of reply bytes: a
// byte past either end reads as 0, so a short reply gives zeros instead of an
// error. The controller's memory holds elements least significant byte first;
// floating-point elements travel as their IEEE 754 bits.

#include <QByteArray>
#include <QtEndian>
#include <QtGlobal>

#include <type_traits>

namespace ElementBytes {

// Byte i of a QByteArray or a QList<char>, or 0 outside it.
template <typename Bytes> quint8 byteAt(const Bytes &bytes, qint64 i)
{
    return i >= 0 && i < bytes.size() ? static_cast<quint8>(bytes.at(static_cast<int>(i))) : 0;
}

// Appends the sizeof(T) bytes of value, lowest first.
template <typename T> void append(QByteArray &out, T value)
{
    static_assert(std::is_arithmetic<T>::value, "numeric elements only");
    if constexpr (sizeof(T) == 1) {
        out.append(static_cast<char>(value));
    } else {
        uchar bytes[sizeof(T)];
        qToLittleEndian(value, bytes);
        out.append(reinterpret_cast<const char *>(bytes), int(sizeof(T)));
    }
}

// Builds an element from sizeof(T) bytes at `at`, lowest first.
template <typename T> T fromLittleEndian(const char *at)
{
    static_assert(std::is_arithmetic<T>::value, "numeric elements only");
    if constexpr (sizeof(T) == 1)
        return static_cast<T>(*at);
    else
        return qFromLittleEndian<T>(at);
}

// The sizeof(T) bytes from `offset` on, zeros where the data ends.
template <typename T> void copyBounded(const QByteArray &data, qint64 offset, char (&bytes)[sizeof(T)])
{
    for (size_t k = 0; k < sizeof(T); ++k)
        bytes[k] = static_cast<char>(byteAt(data, offset + qint64(k)));
}

// The element at byte `offset`, lowest byte first; bytes past the data read as 0.
template <typename T> T littleEndianAt(const QByteArray &data, qint64 offset)
{
    if (offset >= 0 && offset + qint64(sizeof(T)) <= data.size())
        return fromLittleEndian<T>(data.constData() + offset);
    char bytes[sizeof(T)];
    copyBounded<T>(data, offset, bytes);
    return fromLittleEndian<T>(bytes);
}

// The element at byte `offset`, highest byte first; bytes past the data read as 0.
template <typename T> T bigEndianAt(const QByteArray &data, qint64 offset)
{
    static_assert(std::is_integral<T>::value && sizeof(T) > 1, "wide integers only");
    char bytes[sizeof(T)];
    copyBounded<T>(data, offset, bytes);
    return qFromBigEndian<T>(bytes);
}

} // namespace ElementBytes
