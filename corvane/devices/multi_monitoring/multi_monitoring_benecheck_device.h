#pragma once

#include "corvane/devices/multi_monitoring/multi_monitoring_benecheck_info.h"
#include "corvane/framework/device_contract.h"
#include "corvane/framework/model.h"

namespace corvane {

/// The BeneCheck meter for glucose, uric acid and cholesterol. It sends each measurement by itself; `loading`
/// is never reported.
class MultiMonitoringBeneCheckDevice final : public Device<MultiMonitoringBeneCheckInfo> {
public:
    static constexpr std::string_view deviceName = "BeneCheck";
    static constexpr CBUUID serviceCBUUID{"0000fff0-0000-1000-8000-00805f9b34fb"};
    static constexpr CBUUID characteristicCBUUID{"0000fff1-0000-1000-8000-00805f9b34fb"};

    static constexpr Model model{
        .id = "multi-monitoring-benecheck",
        .driver = "MultiMonitoringBeneCheckDevice",
        .kind = "multi-parameter meter",
        .name = deviceName,
        .nameTest = NameTest::contains,
        .service = serviceCBUUID,
    };

    /// `autoResult`: push each record through `stateLoading`; otherwise it waits for `getResult`.
    explicit MultiMonitoringBeneCheckDevice(bool autoResult, Platform& platform = defaultPlatform());
};

}  // namespace corvane
