#pragma once

// Helpers of the engine tests: write entries, value lists and their bytes.

#include "engine/CInductiveDrive.h"
#include "host/ValueLists.h"

#include <QStringList>

namespace EngineTest {

inline Induction::SWriteInfo entry(const QString &tag, int dataType, const QVariant &value)
{
    return Induction::SWriteInfo{tag, dataType, value};
}

template <typename T> QVariant values(std::initializer_list<T> list)
{
    return SorvikValues::toVariant(QList<T>(list));
}

inline QByteArray bytesOf(const QVariant &data)
{
    QByteArray bytes;
    for (const char byte : SorvikValues::listFrom<char>(data))
        bytes.append(byte);
    return bytes;
}

inline QStringList tagsOf(const QList<Induction::SWriteInfo> &key)
{
    QStringList tags;
    for (const Induction::SWriteInfo &info : key)
        tags << info.tag;
    return tags;
}

// Same list type and equal elements; anything else by QVariant equality.
inline bool sameValue(const QVariant &a, const QVariant &b)
{
    if (a.userType() != b.userType())
        return false;
    bool listed = false;
    bool equal = false;
    for (int type = TYPE_BOOL; type <= TYPE_STRING; ++type)
        SorvikValues::visitElementType(type, [&](auto element) {
            using T = typename decltype(element)::type;
            if (!listed && a.userType() == qMetaTypeId<QList<T>>()) {
                listed = true;
                equal = SorvikValues::listFrom<T>(a) == SorvikValues::listFrom<T>(b);
            }
        });
    return listed ? equal : a == b;
}

} // namespace EngineTest
