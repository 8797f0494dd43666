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
/// `diagnostics` receives a line, with the device, the step and the system's text, for each refused attempt
/// to connect, and for a refused subscription or write. An attempt is made again after a pause that grows
/// from 1 s to 60 s, until the link stands or the attempt is cancelled. A subscription or write is not; the
/// same refusal of it is told once a link.
///
/// Tasks that were posted and not run yet are dropped with the platform.
std::unique_ptr<Platform> makeCoreBluetoothPlatform();

}  // namespace corvane
