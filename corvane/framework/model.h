// The facts by which a device model is known from outside. Each driver states its own.
#pragma once

#include <string_view>

#include "corvane/platform/cb_uuid.h"

namespace corvane {

/// How an advertised name is compared with the model's, always case-sensitive.
enum class NameTest { equals, contains };

struct Model {
    std::string_view id;      ///< For command lines and files: "temperature-aoj20a".
    std::string_view driver;  ///< Name of the driver's class.
    std::string_view kind;    ///< What it is: "thermometer".
    std::string_view name;    ///< The advertised name, or the part of it that is looked for.
    NameTest nameTest = NameTest::equals;
    CBUUID service;
    std::string_view hostNeeds = "nothing";  ///< What the application must do beyond `startScan`.

    constexpr bool recognises(std::string_view advertised) const {
        return nameTest == NameTest::equals ? advertised == name
                                            : advertised.find(name) != std::string_view::npos;
    }
};

}  // namespace corvane
