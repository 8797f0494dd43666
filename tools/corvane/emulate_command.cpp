#include "emulate_command.h"

#include "console.h"
#include "corvane/platform/bluez/bluez_peripheral.h"
#include "doctor_command.h"
#include "emulators/emulator.h"
#include "failure.h"
#include "interruption.h"

namespace corvane::tool {

ExitStatus emulate(const EmulateOptions& options) {
    using State = BlueZPeripheral::State;
    Console console;
    const auto tell = [&console](std::string_view line) { console.message(line); };

    std::shared_ptr<Emulator> device =
        makeEmulator(*options.model, {.seed = options.seed, .fault = options.fault, .onEvent = tell});
    BlueZPeripheral peripheral(device, {.adapter = options.adapter, .busAddress = {}, .onChange = tell});

    const Interruption interruption([&peripheral] { peripheral.wake(); });

    // Whoever waits for the service or the adapter can be helped; whoever is refused cannot.
    const auto ended = [&] { return interruption.requested() || peripheral.state() == State::refused; };
    peripheral.runUntil(ended, std::chrono::nanoseconds::max());
    if (!interruption.requested()) {
        throw Failure(ExitStatus::noRadio,
                      "this device cannot be put on the air of " + options.adapter + doctorsHint);
    }
    return ExitStatus::interrupted;
}

}  // namespace corvane::tool
