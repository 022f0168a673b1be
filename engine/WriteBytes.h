#pragma once

// The byte runs that the write side hands to the write path: strings as
// fixed-length Latin-1 and byte blocks as Int8 lists.

#include "../protocol/SorvikAreas.h"

#include <QByteArray>
#include <QList>
#include <QString>

namespace WriteBytes {

// The Latin-1 bytes of text cut or padded with zero bytes to `size`. Empty
// for a size below 1, and also for a size that no write request can carry:
// the write path refuses that length anyway, and a tag text such as
// "SI1[2000000000]" must not make us allocate gigabytes first.
inline QByteArray fixedLatin1(const QString &text, int size)
{
    if (size < 1 || size >= SorvikProtocol::kTransferLimit)
        return QByteArray();
    QByteArray bytes = text.left(size).toLatin1(); // one byte per character
    bytes.append(size - bytes.size(), '\0');
    return bytes;
}

// The bytes as the Int8 list that a write of DataType 2 takes.
inline QList<char> charList(const QByteArray &bytes)
{
    QList<char> list;
    list.reserve(bytes.size());
    for (const char byte : bytes)
        list.append(byte);
    return list;
}

} // namespace WriteBytes
