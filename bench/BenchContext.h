#pragma once

// What every row of the benchmark shares: the loaded drive library, the
// length of the run and the table the rows fill.

#include "DriveLoader.h"
#include "Table.h"

struct BenchContext {
    bool quick = false;
    DriveLoader drives;
    Table table;
    bool failed = false; // a row could not be set up: the run says so by its exit status

    template <typename T> T pick(T full, T quickValue) const { return quick ? quickValue : full; }
    // A row that could not run, for another reason than a missing optional library.
    void fail(int row, const QString &what, const QString &reason)
    {
        table.skip(row, what, reason);
        failed = true;
    }
};
