#pragma once

#include "corvane/devices/oximeter/oximeter_info.h"
#include "corvane/framework/device_contract.h"
#include "corvane/framework/model.h"

namespace corvane {

/// The TD-8255 fingertip oximeter. The driver asks it for a reading once a second, for as long as the link
/// stands. Answers of fewer than 6 bytes are ignored.
class OximeterTD8255Device final : public Device<OximeterInfo> {
public:
    static constexpr std::string_view deviceName = "TAIDOC TD8255";
    static constexpr CBUUID serviceCBUUID{"00001523-1212-efde-1523-785feabcd123"};
    static constexpr CBUUID characteristicCBUUID{"00001524-1212-efde-1523-785feabcd123"};

    static constexpr Model model{
        .id = "oximeter-td8255",
        .driver = "OximeterTD8255Device",
        .kind = "pulse oximeter",
        .name = deviceName,
        .service = serviceCBUUID,
    };

    /// `autoResult`: push each record through `stateLoading`; otherwise it waits for `getResult`.
    /// `repeatResult`: take every answer, zeros too; otherwise only the first without a zero, until
    /// `startResult`.
    explicit OximeterTD8255Device(bool autoResult, bool repeatResult, Platform& platform = defaultPlatform());

    /// Takes the next answer without a zero again. Sends nothing.
    void startResult();

    /// Asks for a reading now, besides the polls. Before the oximeter and its characteristic have been found,
    /// only writes a line to the console. Once its link has ended, the request goes nowhere and no line
    /// tells.
    void requestPayload();
};

}  // namespace corvane
