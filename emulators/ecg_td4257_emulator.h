// What somebody who looks at the emulated recorder's trace has to know; the record itself does not tell.
#pragma once

namespace corvane {

/// Samples of the trace for each second of the recording.
inline constexpr int emulatedEcgSamplesPerSecond = 250;

/// Length of the recording, in seconds.
inline constexpr int emulatedEcgSeconds = 30;

}  // namespace corvane
