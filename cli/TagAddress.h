#pragma once

#include <QString>

// Where on the wire the drive puts a tag: its area code, the byte (or bit)
// address of the frame and the length field, the way the one-tag path builds
// them. The frame carries addresses in 24 bits and drops what lies above, so
// a tag whose address does not fit would silently reach another element.
namespace TagAddress {
// The wire code of the tag's prefix, 0 when it has none (SO).
int areaCode(const QString &tag);
// The length field the drive computes for `count` elements, 0 when it
// refuses the transfer (mirrors the drive's rule; the drive decides).
int transferLength(int dataType, int count, int area);
// True when the drive would address exactly the elements the tag names;
// otherwise false and the reason in *why.
bool check(const QString &tag, int dataType, int count, bool writing, QString *why);
// For a write: true when every given value goes out; false with the reason
// when the drive would cut the transfer to whole elements of its area.
bool carriesAll(const QString &tag, int dataType, int count, QString *why);
} // namespace TagAddress
