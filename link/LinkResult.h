#pragma once

// What the calls of the link return. Hosts see these numbers through
// ConnectDrive, so they stay as they are.
namespace LinkResult {

enum Code : int {
    Ok = 0,
    Failed = -1,  // an address that is no address, a port that did not open, no reply in an exchange
    NoReply = -2, // no reply in time or a reply of another request; on opening, no handshake
    NotOpen = -3, // the link is not open
};

// The handshake and the release of the transports answer on scales of their own.
enum Proof : int {
    Proved = 0,
    NotProved = 1,
};
enum Release : int {
    Released = 0,   // a transport object was deleted
    NothingHeld = 1 // there was none to delete
};

} // namespace LinkResult
