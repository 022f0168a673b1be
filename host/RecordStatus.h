#pragma once

// The status of a value record, by name, and what each means in words. The
// numbers are those a record carries; any other number is reported as it is.
namespace RecordStatus {

enum Code : int {
    Ok = 0,            // read or written
    NotDone = 1,       // a fresh record: nothing was done for it
    TypeRefused = 2,   // the type cannot go to or come from this area
    NoArea = 3,        // the tag text names no area
    LengthRefused = 4, // the count or its byte length is out of bounds
    NoReply = 8,       // no reply in time, or a reply of the wrong identity
    LinkNotOpen = 9,   // the link is not open
};

// One line of text per status, for people and logs.
constexpr const char *meaning(int status)
{
    switch (status) {
    case Ok: return "ok";
    case NotDone: return "not done";
    case TypeRefused: return "type refused for the area";
    case NoArea: return "no area in the tag text";
    case LengthRefused: return "length refused";
    case NoReply: return "no reply";
    case LinkNotOpen: return "link not open";
    default: return "unknown status";
    }
}

} // namespace RecordStatus
