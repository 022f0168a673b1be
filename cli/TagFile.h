#pragma once

#include "TagItems.h"

#include <QList>
#include <QString>

// A tag list file in CSV (RFC 4180): one tag a line as tag,type[,value...];
// blank lines and lines starting with # are skipped. It may start with a
// header row naming its columns, as the CLI's own CSV output does: then the
// tag, type and value columns are taken by name, the values as one CSV list.
namespace TagFile {
// Appends the tags of `path` to *items; on the first bad line gives false and
// "path:line: reason" in *why.
bool read(const QString &path, TagSyntax syntax, QList<TagItem> *items, QString *why);
} // namespace TagFile
