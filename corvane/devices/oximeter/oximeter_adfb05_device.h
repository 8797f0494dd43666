#pragma once

#include "corvane/devices/oximeter/oximeter_info.h"
#include "corvane/framework/device_contract.h"
#include "corvane/framework/model.h"

namespace corvane {

/// The ADF-B05 fingertip oximeter. It streams by itself; `loading` is reported when it says that it measures.
/// A failed measurement is reported as the error "device proccess error".
class OximeterADFB05Device final : public Device<OximeterInfo> {
public:
    static constexpr std::string_view deviceName = "Medical";
    static constexpr CBUUID serviceCBUUID{"cdeacb80-5235-4c07-8846-93a37ee6b86d"};
    static constexpr CBUUID characteristicCBUUID{"cdeacb81-5235-4c07-8846-93a37ee6b86d"};

    static constexpr Model model{
        .id = "oximeter-adfb05",
        .driver = "OximeterADFB05Device",
        .kind = "pulse oximeter",
        .name = deviceName,
        .service = serviceCBUUID,
    };

    /// `autoResult`: push each record through `stateLoading`; otherwise it waits for `getResult`.
    /// `repeatResult`: take every reading; otherwise only the first, until `startResult`.
    explicit OximeterADFB05Device(bool autoResult, bool repeatResult, Platform& platform = defaultPlatform());

    /// A new measurement: `loading` and, without `repeatResult`, one reading are reported again. Sends
    /// nothing.
    void startResult();
};

}  // namespace corvane
