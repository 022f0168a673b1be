#pragma once

// The exit statuses of the programs, as their --help and the README list them.
enum ExitCode {
    ExitOk = 0,
    ExitUsage = 1,        // bad option or input, unreadable file, no drive library to load
    ExitNoConnection = 2, // no connection, or no reply to any request
    ExitFailed = 3,       // every record came back with a failing status
    ExitPartlyFailed = 4  // some records succeeded, others failed
};
