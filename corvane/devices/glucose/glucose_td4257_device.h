#pragma once

#include "corvane/devices/glucose/glucose_info.h"
#include "corvane/framework/device_contract.h"
#include "corvane/framework/model.h"

namespace corvane {

/// The TD-4257 glucose meter. The driver asks it once for its reading, after subscribing. A notification of
/// fewer than 4 bytes is a failed precondition.
class GlucoseTD4257Device final : public Device<GlucoseInfo> {
public:
    static constexpr std::string_view deviceName = "TAIDOC TD4257";
    static constexpr CBUUID serviceCBUUID{"00001523-1212-efde-1523-785feabcd123"};
    static constexpr CBUUID characteristicCBUUID{"00001524-1212-efde-1523-785feabcd123"};

    static constexpr Model model{
        .id = "glucose-td4257",
        .driver = "GlucoseTD4257Device",
        .kind = "glucose meter",
        .name = deviceName,
        .service = serviceCBUUID,
    };

    /// `autoResult`: push each record through `stateLoading`; otherwise it waits for `getResult`.
    explicit GlucoseTD4257Device(bool autoResult, Platform& platform = defaultPlatform());
};

}  // namespace corvane
