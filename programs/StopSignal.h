#pragma once

#include <QObject>

#include <functional>

// SIGINT (Ctrl-C) and SIGTERM ask a program to stop after what it is doing;
// a second one ends it at once.
namespace StopSignal {
// Catches both signals. False when they cannot be caught.
bool install();
// As install(), and runs `onStop` once in `context`'s event loop when the
// first signal comes, so that a program waiting in its loop stops too.
bool install(QObject *context, std::function<void()> onStop);
// Whether a signal came.
bool requested();
} // namespace StopSignal
