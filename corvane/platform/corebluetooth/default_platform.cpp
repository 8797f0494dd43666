#include "corvane/platform/corebluetooth/corebluetooth_platform.h"

namespace corvane {

Platform& defaultPlatform() {
    static Platform& platform = *makeCoreBluetoothPlatform().release();
    return platform;
}

}  // namespace corvane
