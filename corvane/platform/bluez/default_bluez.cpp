#include "corvane/platform/bluez/bluez_platform.h"

namespace corvane {

Platform& defaultPlatform() {
    static auto* const platform = new BlueZPlatform;
    return *platform;
}

}  // namespace corvane
