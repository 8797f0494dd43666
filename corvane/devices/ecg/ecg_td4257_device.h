#pragma once

#include "corvane/devices/ecg/ecg_info.h"
#include "corvane/framework/device_contract.h"
#include "corvane/framework/model.h"

namespace corvane {

/// The ECG recorder. The driver asks it for its stored case, acknowledges every answer, collects the waveform
/// and builds one record when the recorder ends the transfer. It never reports `error`. An end of transfer
/// without enough case information or waveform, and a closing block with nothing collected, are failed
/// preconditions.
class ECGTD4257Device final : public Device<ECGInfo> {
public:
    static constexpr std::string_view ecgName = "PM10";
    static constexpr CBUUID serviceCBUUID{"49535343-fe7d-4ae5-8fa9-9fafd205e455"};
    static constexpr CBUUID characteristicCBUUIDread{"49535343-1E4D-4BD9-BA61-23C647249616"};
    static constexpr CBUUID characteristicCBUUIDwrite{"49535343-8841-43F4-A8D4-ECBE34729BB3"};

    static constexpr Model model{
        .id = "ecg-td4257",
        .driver = "ECGTD4257Device",
        .kind = "ECG recorder",
        .name = ecgName,
        .nameTest = NameTest::contains,
        .service = serviceCBUUID,
    };

    /// `autoResult`: push the record through `stateLoading`; otherwise it waits for `getResult`.
    explicit ECGTD4257Device(bool autoResult, Platform& platform = defaultPlatform());
};

}  // namespace corvane
