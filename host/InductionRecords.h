#pragma once

#include <QList>
#include <QMap>
#include <QString>
#include <QVariant>

// Records of the grouped ("inductive") reading and writing of tag lists.
namespace Induction {

enum EInductionFun : int { INDUCTION_READ = 1, INDUCTION_WRITE = 2 };
enum EInductionType : int { INDUCTION_BYTE_LIMIT = 1, INDUCTION_POINT_LIMIT = 2 };

// One tag to read. Ordered by tag text, then dataType.
struct SReadInfo {
    QString tag;
    int dataType = 0;
};

inline bool operator<(const SReadInfo &a, const SReadInfo &b)
{
    const int byTag = QString::compare(a.tag, b.tag, Qt::CaseSensitive);
    return byTag != 0 ? byTag < 0 : a.dataType < b.dataType;
}
inline bool operator==(const SReadInfo &a, const SReadInfo &b)
{
    return a.dataType == b.dataType && a.tag == b.tag;
}
inline bool operator!=(const SReadInfo &a, const SReadInfo &b) { return !(a == b); }

// One tag of a block laid out by the caller.
struct SReadItem_manual {
    QString tag;
    int dataType = 0;
    int offset = 0;
};

// One block laid out by the caller: its first tag, its length and its tags.
struct SReadInfo_manual {
    QString tag;
    int length = 0;
    QList<SReadItem_manual> items;
};

// One tag to write with its value. Ordered by tag text, then dataType; the
// value takes no part in order or equality.
struct SWriteInfo {
    QString tag;
    int dataType = 0;
    QVariant value;
};

inline bool operator<(const SWriteInfo &a, const SWriteInfo &b)
{
    const int byTag = QString::compare(a.tag, b.tag, Qt::CaseSensitive);
    return byTag != 0 ? byTag < 0 : a.dataType < b.dataType;
}
inline bool operator==(const SWriteInfo &a, const SWriteInfo &b)
{
    return a.dataType == b.dataType && a.tag == b.tag;
}
inline bool operator!=(const SWriteInfo &a, const SWriteInfo &b) { return !(a == b); }

} // namespace Induction

using Induction::SReadItem_manual;

// The place of one tag inside a planned read block.
struct STagPlace {
    int offset = 0; // addresses from the block start; bits for a bool in a word area
    int width = 0;  // bytes of one address of the area
};

// One planned read block; kind 1 reads bytes, kind 2 reads points, 0 is never read.
struct SReadGroup {
    QString areaText;
    QVariant start;
    int length = 0;
    int kind = 0;
    QMap<Induction::SReadInfo, STagPlace> tags;
};

// One planned write block; kind 1 writes bytes, kind 2 writes points.
struct SWriteGroup {
    QString areaText;
    QVariant start;
    int length = 0;
    int kind = 0;
    QVariant data;
};

namespace Induction {
using ::SReadGroup;
using ::STagPlace;
using ::SWriteGroup;
} // namespace Induction

namespace DataInfo {
// Data description a host may hand over; the drive never looks into it.
struct SDataInfo {
    QString tag;
    int dataType = 0;
    QVariant info;
};
} // namespace DataInfo

Q_DECLARE_METATYPE(Induction::SReadInfo)
Q_DECLARE_METATYPE(Induction::SWriteInfo)
