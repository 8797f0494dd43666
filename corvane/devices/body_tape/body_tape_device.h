#pragma once

#include "corvane/devices/body_tape/body_tape_info.h"
#include "corvane/framework/device_contract.h"
#include "corvane/framework/model.h"

namespace corvane {

/// The body tape measure. It sends each measurement by itself, as text. A value that is absent, no text, or
/// without a unit is reported as the error "BodyTapeInfo not found".
class BodyTapeDevice final : public Device<BodyTapeInfo> {
public:
    static constexpr std::string_view deviceName = "Health-tape";
    static constexpr CBUUID serviceCBUUID{"0783B03E-8535-B5A0-7140-A304D2495CB7"};
    static constexpr CBUUID characteristicCBUUID{"0783B03E-8535-B5A0-7140-A304D2495CB8"};

    static constexpr Model model{
        .id = "body-tape",
        .driver = "BodyTapeDevice",
        .kind = "body tape measure",
        .name = deviceName,
        .service = serviceCBUUID,
    };

    /// `autoResult`: push each record through `stateLoading`; otherwise it waits for `getResult`.
    explicit BodyTapeDevice(bool autoResult, Platform& platform = defaultPlatform());
};

}  // namespace corvane
