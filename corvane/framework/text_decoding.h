// Reading the texts and numbers that devices send. Nothing here depends on the host's locale, and nothing
// throws: what is malformed gives an empty optional or, where the contract of numbers says so, 0.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "corvane/platform/central.h"

namespace corvane {

/// Bytes of the well-formed UTF-8 character that `text` begins with; 0 when it does not begin with one.
std::size_t utf8CharacterLength(std::string_view text);

/// Whether the text is well-formed UTF-8 throughout: no overlong forms, no surrogates.
bool isUtf8(std::string_view text);

/// The bytes as text, if they are well-formed UTF-8. The view shares the
/// bytes' lifetime.
std::optional<std::string_view> utf8Text(Bytes bytes);

/// Standard alphabet, padded to whole groups of four, no blanks or line ends. The unused bits of the last
/// group are not looked at.
std::optional<std::string> base64Decoded(std::string_view text);

/// A base-16 whole number: one optional sign, then digits of either case, and nothing else. 0 where the text
/// is no such number or the number does not fit 64 bits.
std::int64_t parseHexadecimal(std::string_view text);

/// A decimal number with a point: optional sign, digits with at most one point and at least one digit,
/// optional exponent, and nothing else. 0.0 where the text is no such number or is too large for a double.
double parseDecimal(std::string_view text);

}  // namespace corvane
