#pragma once

// Ctrl-C (SIGINT) and SIGTERM ask a running command to stop after what it is
// doing; a second one ends the program at once.
namespace StopSignal {
void install();
bool requested();
} // namespace StopSignal
