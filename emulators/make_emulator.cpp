#include "corvane/devices/catalogue.h"
#include "emulators/emulator.h"

namespace corvane {

#define CORVANE_DECLARE_EMULATOR(Driver)                                                                     \
    template <>                                                                                              \
    std::unique_ptr<Emulator> makeEmulatorOf<Driver>(const EmulatorOptions& options);
CORVANE_DRIVERS(CORVANE_DECLARE_EMULATOR)
#undef CORVANE_DECLARE_EMULATOR

std::unique_ptr<Emulator> makeEmulator(const Model& model, const EmulatorOptions& options) {
    std::unique_ptr<Emulator> emulator;
    forEachDriver([&]<class Driver>() {
        if (model.id == Driver::model.id) emulator = makeEmulatorOf<Driver>(options);
    });
    return emulator;
}

}  // namespace corvane
