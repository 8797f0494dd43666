#pragma once

#include "corvane/devices/glucose/glucose_info.h"
#include "corvane/framework/device_contract.h"
#include "corvane/framework/model.h"

namespace corvane {

/// The TGH-GLC01 glucose meter. It sends its reading by itself, as text; nothing is ever written to it. A
/// value that is absent or no text is reported as the error "glucoseInfo not found".
class GlucoseTGHGLC01Device final : public Device<GlucoseInfo> {
public:
    static constexpr std::string_view deviceName = "TGH_GLC01";
    static constexpr CBUUID serviceCBUUID{"324e97ae-1063-11ec-82a8-0242ac130003"};
    static constexpr CBUUID characteristicCBUUID{"3cc62aee-1063-11ec-82a8-0242ac130003"};

    static constexpr Model model{
        .id = "glucose-tghglc01",
        .driver = "GlucoseTGHGLC01Device",
        .kind = "glucose meter",
        .name = deviceName,
        .service = serviceCBUUID,
    };

    /// `autoResult`: push each record through `stateLoading`; otherwise it waits for `getResult`.
    explicit GlucoseTGHGLC01Device(bool autoResult, Platform& platform = defaultPlatform());
};

}  // namespace corvane
