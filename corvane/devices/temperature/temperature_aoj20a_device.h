#pragma once

#include "corvane/devices/temperature/temperature_info.h"
#include "corvane/framework/device_contract.h"
#include "corvane/framework/model.h"

namespace corvane {

/// The AOJ-20A thermometer. It sends each reading by itself once it has been subscribed to. A notification of
/// fewer than 6 bytes, or without a value, is a failed precondition.
class TemperatureAOJ20ADevice final : public Device<TemperatureInfo> {
public:
    static constexpr std::string_view deviceName = "AOJ-20A";
    static constexpr CBUUID serviceCBUUID{"0000ffe0-0000-1000-8000-00805f9b34fb"};
    static constexpr CBUUID characteristicCBUUID{"0000ffe1-0000-1000-8000-00805f9b34fb"};
    static constexpr Model model{
        .id = "temperature-aoj20a",
        .driver = "TemperatureAOJ20ADevice",
        .kind = "thermometer",
        .name = deviceName,
        .service = serviceCBUUID,
    };

    /// `autoResult`: push each record through `stateLoading`; otherwise it waits for `getResult`.
    explicit TemperatureAOJ20ADevice(bool autoResult, Platform& platform = defaultPlatform());
};

}  // namespace corvane
