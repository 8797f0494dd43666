// The radio of iOS and macOS. Plain C++, so that a program that is no Objective-C++ can include it.
#pragma once

#include <memory>

#include "corvane/platform/platform.h"

namespace corvane {

/// The system's Bluetooth stack on the main queue. Make it and use it on the main thread only. The first
/// central that a driver makes is what lets the system ask the user for permission, so the application's
/// Info.plist must hold `NSBluetoothAlwaysUsageDescription`: the system ends a program without it.
///
/// Exceptions must not leave a callback, a posted task or a timer's tick: below them is the system's code,
/// which cannot be unwound, and the process is terminated.
///
/// Tasks that were posted and not run yet are dropped with the platform.
std::unique_ptr<Platform> makeCoreBluetoothPlatform();

}  // namespace corvane
