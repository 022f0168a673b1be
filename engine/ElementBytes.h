#pragma once

// Elements to bytes and back, least significant byte first: the order of the
// controller's memory. Floating-point elements travel as their IEEE 754 bits.

#include <QByteArray>
#include <QtGlobal>

#include <cstring>
#include <type_traits>

namespace ElementBytes {

template <typename T>
using Bits = std::conditional_t<sizeof(T) == 1, quint8,
                                std::conditional_t<sizeof(T) == 2, quint16,
                                                   std::conditional_t<sizeof(T) == 4, quint32, quint64>>>;

// Appends the sizeof(T) bytes of value, lowest first.
template <typename T>
void append(QByteArray &out, T value)
{
    static_assert(std::is_arithmetic<T>::value, "numeric elements only");
    Bits<T> bits;
    std::memcpy(&bits, &value, sizeof(T));
    for (size_t i = 0; i < sizeof(T); ++i)
        out.append(static_cast<char>((static_cast<quint64>(bits) >> (8 * i)) & 0xFF));
}

// Builds an element from sizeof(T) bytes at `at`, lowest first.
template <typename T>
T fromLittleEndian(const char *at)
{
    static_assert(std::is_arithmetic<T>::value, "numeric elements only");
    quint64 bits = 0;
    for (size_t i = 0; i < sizeof(T); ++i)
        bits |= static_cast<quint64>(static_cast<quint8>(at[i])) << (8 * i);
    const Bits<T> narrow = static_cast<Bits<T>>(bits);
    T value;
    std::memcpy(&value, &narrow, sizeof(T));
    return value;
}

// Byte i of data, or 0 past its end: short replies read as zeros.
inline quint8 byteAt(const QByteArray &data, qsizetype i)
{
    return i >= 0 && i < data.size() ? static_cast<quint8>(data.at(static_cast<int>(i))) : 0;
}

} // namespace ElementBytes
