#pragma once

#include "corvane/devices/blood_pressure/blood_pressure_info.h"
#include "corvane/framework/device_contract.h"
#include "corvane/framework/model.h"

namespace corvane {

/// The TD-3140 blood-pressure monitor. It measures when the application asks: call `start` once `loading` has
/// been reported. A notification of fewer than 6 bytes is a failed precondition.
class BloodPressureTD3140Device final : public Device<BloodPressureInfo> {
public:
    static constexpr std::string_view deviceName = "TAIDOC TD3140";
    static constexpr CBUUID serviceCBUUID{"00001523-1212-efde-1523-785feabcd123"};
    static constexpr CBUUID characteristicCBUUID{"00001524-1212-efde-1523-785feabcd123"};

    static constexpr Model model{
        .id = "blood-pressure-td3140",
        .driver = "BloodPressureTD3140Device",
        .kind = "blood-pressure monitor",
        .name = deviceName,
        .service = serviceCBUUID,
        .hostNeeds = "call start() after loading",
    };

    /// `autoResult`: report records at all; otherwise they wait for `getResult`. `repeatResult`: report each
    /// frame as it comes; otherwise only the last one before the closing frame, once the measurement has
    /// ended. After the closing frame `getResult` returns that frame's zeros.
    explicit BloodPressureTD3140Device(bool autoResult, bool repeatResult,
                                       Platform& platform = defaultPlatform());

    /// Asks the monitor to measure. Before its characteristic has been found, only writes a line to the
    /// console.
    void start();
};

}  // namespace corvane
