// The form in which a notified value is shown and compared: two lower-case hexadecimal digits a byte, in
// order, with nothing between them. Byte k stands at characters 2k and 2k + 1.
#pragma once

#include <string>

#include "corvane/platform/central.h"

namespace corvane {

/// Appends the text of `bytes` to `text`.
void appendHexadecimalText(std::string& text, Bytes bytes);

/// An empty value gives an empty text.
inline std::string hexadecimalText(Bytes bytes) {
    std::string text;
    appendHexadecimalText(text, bytes);
    return text;
}

}  // namespace corvane
