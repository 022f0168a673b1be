#pragma once

// The kinds of a planned block, as the kind field of a read or write group
// carries them.
namespace BlockKind {

enum Code : int {
    Unread = 0, // a read block whose start names no area: never read
    Bytes = 1,  // read or written as a run of bytes
    Points = 2, // read or written point by point
};

} // namespace BlockKind
