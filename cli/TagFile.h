#pragma once

#include "TagItems.h"

#include <QList>
#include <QString>

// A tag list file: one tag a line as tag,type[,value...]; blank lines and
// lines starting with # are skipped.
namespace TagFile {
// Appends the tags of `path` to *items; on the first bad line gives false and
// "path:line: reason" in *why.
bool read(const QString &path, TagSyntax syntax, QList<TagItem> *items, QString *why);
} // namespace TagFile
