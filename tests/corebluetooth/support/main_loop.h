// The main thread's queue and run loop, in virtual time: nothing runs until a test says so.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>

namespace standin::mainLoop {

/// Virtual time since the start.
std::chrono::nanoseconds now();

/// Runs everything that is due now, and what that adds for now.
void runUntilIdle();

/// Moves the clock from entry to entry.
void runFor(std::chrono::nanoseconds duration);

/// Runs the entry that is due next, in an autorelease pool of its own, once its time has come. False when
/// none waits, or none until then.
bool stepUntil(std::chrono::nanoseconds limit);

/// When the next entry is due; nothing when none waits.
std::optional<std::chrono::nanoseconds> nextDue();

void after(std::chrono::nanoseconds delay, std::function<void()> task);

/// While a finger is on the screen the run loop runs in another mode than the default one: timers that were
/// added for the default mode alone wait.
void setTracking(bool on);

/// Drops everything that waits.
void clear();

}  // namespace standin::mainLoop
