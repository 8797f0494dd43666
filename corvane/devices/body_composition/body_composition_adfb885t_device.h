#pragma once

#include "corvane/devices/body_composition/body_composition_info.h"
#include "corvane/framework/device_contract.h"
#include "corvane/framework/model.h"

namespace corvane {

/// The kinds of frame that the scale and the driver exchange, by their first byte.
enum class BodyCompositionADFB885TDeviceHeader { header_00, header_01, header_41, header_42, header_81 };

/// The two hexadecimal digits of the frame's first byte.
constexpr std::string_view rawValue(BodyCompositionADFB885TDeviceHeader header) {
    constexpr std::string_view texts[] = {"00", "01", "41", "42", "81"};
    return texts[static_cast<int>(header)];
}

/// The header with these two digits, if there is one.
constexpr std::optional<BodyCompositionADFB885TDeviceHeader>
bodyCompositionADFB885TDeviceHeader(std::string_view text) {
    using Header = BodyCompositionADFB885TDeviceHeader;
    for (const Header header :
         {Header::header_00, Header::header_01, Header::header_41, Header::header_42, Header::header_81}) {
        if (rawValue(header) == text) return header;
    }
    return std::nullopt;
}

/// The ADF-B885T body-composition scale. It needs the user's profile for its analysis. One driver object runs
/// one analysis: make a new one for the next. `loading` is never reported; a failed measurement is the error
/// "process error". Answer frames that are too short or come in the wrong order, answer frames that together
/// make more than 64 KiB of text, and a profile value that does not fit its byte, are failed preconditions.
class BodyCompositionADFB885TDevice final : public Device<BodyCompositionInfo> {
public:
    static constexpr std::string_view deviceName = "SDIC";
    static constexpr CBUUID serviceCBUUID{"0000fff0-0000-1000-8000-00805f9b34fb"};
    static constexpr CBUUID characteristicCBUUIDReadWrite{"0000fff1-0000-1000-8000-00805f9b34fb"};
    static constexpr CBUUID characteristicCBUUIDIndicateWrite{"0000fff2-0000-1000-8000-00805f9b34fb"};

    static constexpr Model model{
        .id = "body-composition-adfb885t",
        .driver = "BodyCompositionADFB885TDevice",
        .kind = "body-composition scale",
        .name = deviceName,
        .service = serviceCBUUID,
        .hostNeeds = "height, age and gender of the user",
    };

    /// `height` is above -1 and below 256, in the unit the scale expects (its whole part is sent); `age` is 0
    /// to 255. Both are checked when the profile is sent. `autoResult`: push the record through
    /// `stateLoading`; otherwise it waits for `getResult`.
    explicit BodyCompositionADFB885TDevice(bool autoResult, double height, std::int64_t age,
                                           BodyCompositionADFB885TDeviceGender gender,
                                           Platform& platform = defaultPlatform());
};

}  // namespace corvane
