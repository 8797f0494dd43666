#include "corvane/framework/text_decoding.h"

#include <array>
#include <cfloat>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <limits>

namespace corvane {
namespace {

constexpr bool isDigit(char c) { return c >= '0' && c <= '9'; }
constexpr bool isSign(char c) { return c == '+' || c == '-'; }

// Values of the base64 digits, and -1 for what is none.
constexpr auto base64Values = [] {
    std::array<int, 256> values{};
    values.fill(-1);
    int value = 0;
    for (const char c :
         std::string_view("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/")) {
        values[static_cast<unsigned char>(c)] = value++;
    }
    return values;
}();

// Value of a hexadecimal digit, or -1.
constexpr int hexadecimalDigit(char c) {
    if (isDigit(c)) return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

std::size_t skipDigits(std::string_view text, std::size_t at) {
    while (at < text.size() && isDigit(text[at])) ++at;
    return at;
}

bool isDecimalNumber(std::string_view text) {
    std::size_t at = !text.empty() && isSign(text[0]) ? 1 : 0;
    const std::size_t whole = skipDigits(text, at);
    std::size_t digits = whole - at;
    at = whole;
    if (at < text.size() && text[at] == '.') {
        const std::size_t fraction = skipDigits(text, at + 1);
        digits += fraction - (at + 1);
        at = fraction;
    }
    if (digits == 0) return false;
    if (at < text.size() && (text[at] == 'e' || text[at] == 'E')) {
        ++at;
        if (at < text.size() && isSign(text[at])) ++at;
        const std::size_t exponent = skipDigits(text, at);
        if (exponent == at) return false;
        at = exponent;
    }
    return at == text.size();
}

// The value of a short decimal number without an exponent: its digits and the power of ten below them are
// both whole numbers that a double holds, so that their quotient is rounded once and is as good as the
// library's.
std::optional<double> shortDecimal(std::string_view text) {
    constexpr double powersOfTen[] = {1e0, 1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                      1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
    if (FLT_EVAL_METHOD != 0 || text.size() >= std::size(powersOfTen)) return std::nullopt;
    const bool negative = text.starts_with('-');
    if (!text.empty() && isSign(text[0])) text.remove_prefix(1);
    std::int64_t digits = 0;
    std::size_t decimals = 0;
    bool point = false;
    for (const char c : text) {
        if (isDigit(c)) {
            digits = digits * 10 + (c - '0');
            if (point) ++decimals;
        } else if (c == '.' && !point) {
            point = true;
        } else {
            return std::nullopt;
        }
    }
    if (text.size() == (point ? 1 : 0)) return std::nullopt;
    const double value = static_cast<double>(digits) / powersOfTen[decimals];
    return negative ? -value : value;
}

}  // namespace

std::size_t utf8CharacterLength(std::string_view text) {
    if (text.empty()) return 0;
    const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = byte(0);
    if (first < 0x80) return 1;

    // The second byte's range keeps out overlong forms, surrogates and what lies beyond U+10FFFF.
    std::size_t length = 0;
    unsigned char lowest = 0x80;
    unsigned char highest = 0xBF;
    if (first >= 0xC2 && first <= 0xDF) {
        length = 2;
    } else if (first >= 0xE0 && first <= 0xEF) {
        length = 3;
        if (first == 0xE0) lowest = 0xA0;
        if (first == 0xED) highest = 0x9F;
    } else if (first >= 0xF0 && first <= 0xF4) {
        length = 4;
        if (first == 0xF0) lowest = 0x90;
        if (first == 0xF4) highest = 0x8F;
    } else {
        return 0;
    }
    if (text.size() < length || byte(1) < lowest || byte(1) > highest) return 0;
    for (std::size_t i = 2; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) return 0;
    }
    return length;
}

bool isUtf8(std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = utf8CharacterLength(text);
        if (length == 0) return false;
        text.remove_prefix(length);
    }
    return true;
}

std::optional<std::string_view> utf8Text(Bytes bytes) {
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    return isUtf8(text) ? std::optional(text) : std::nullopt;
}

std::optional<std::string> base64Decoded(std::string_view text) {
    if (text.size() % 4 != 0) return std::nullopt;
    std::string_view digits = text;
    for (int i = 0; i < 2 && !digits.empty() && digits.back() == '='; ++i) digits.remove_suffix(1);

    std::string out(digits.size() * 3 / 4, '\0');
    std::size_t at = 0;
    unsigned pending = 0;
    int bits = 0;
    for (const char c : digits) {
        const int digit = base64Values[static_cast<unsigned char>(c)];
        if (digit < 0) return std::nullopt;
        pending = (pending << 6 | static_cast<unsigned>(digit)) & 0xFFFF;
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            out[at++] = static_cast<char>(pending >> bits & 0xFF);
        }
    }
    return out;
}

std::int64_t parseHexadecimal(std::string_view text) {
    const bool negative = !text.empty() && text[0] == '-';
    if (!text.empty() && isSign(text[0])) text.remove_prefix(1);
    if (text.empty()) return 0;

    // Counted downwards: the lowest number has no positive counterpart.
    constexpr auto lowest = std::numeric_limits<std::int64_t>::min();
    std::int64_t value = 0;
    for (const char c : text) {
        const int digit = hexadecimalDigit(c);
        if (digit < 0 || value < lowest / 16 || value * 16 < lowest + digit) return 0;
        value = value * 16 - digit;
    }
    if (negative) return value;
    return value == lowest ? 0 : -value;
}

double parseDecimal(std::string_view text) {
    if (const auto value = shortDecimal(text)) return *value;
    if (!isDecimalNumber(text)) return 0.0;
    // strtod reads the point that the host's locale uses.
    std::string local(text);
    if (const auto point = local.find('.'); point != std::string::npos) {
        local.replace(point, 1, std::localeconv()->decimal_point);
    }
    const double value = std::strtod(local.c_str(), nullptr);
    return std::isfinite(value) ? value : 0.0;
}

}  // namespace corvane
