#pragma once

#include "corvane/devices/temperature/temperature_info.h"
#include "corvane/framework/device_contract.h"
#include "corvane/framework/model.h"

namespace corvane {

/// The TD-1241 thermometer. The driver asks it once for its reading, after subscribing. A notification of
/// fewer than 4 bytes is a failed precondition.
class TemperatureTD1241Device final : public Device<TemperatureInfo> {
public:
    static constexpr std::string_view deviceName = "TAIDOC TD1241";
    static constexpr CBUUID serviceCBUUID{"00001523-1212-efde-1523-785feabcd123"};
    static constexpr CBUUID characteristicCBUUID{"00001524-1212-efde-1523-785feabcd123"};

    static constexpr Model model{
        .id = "temperature-td1241",
        .driver = "TemperatureTD1241Device",
        .kind = "thermometer",
        .name = deviceName,
        .service = serviceCBUUID,
    };

    /// `autoResult`: push each record through `stateLoading`; otherwise it waits for `getResult`.
    explicit TemperatureTD1241Device(bool autoResult, Platform& platform = defaultPlatform());
};

}  // namespace corvane
