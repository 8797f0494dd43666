// CBUUID: a Bluetooth UUID as a plain value.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace corvane {

/// A 128-bit UUID. The 4- and 8-digit spellings stand for a UUID on the Bluetooth base and equal its long
/// form.
class CBUUID {
public:
    /// All zero.
    constexpr CBUUID() = default;

    /// A UUID known when the program is written; a text that is no UUID does not compile.
    consteval explicit CBUUID(std::string_view text) : CBUUID(parse(text).value()) {}

    /// Reads the 36-character form, or 4 or 8 hexadecimal digits. Letter case does not matter.
    /// Nothing when the text is none of these.
    static constexpr std::optional<CBUUID> parse(std::string_view text) {
        if (text.size() == 36) return parseLong(text);
        if (text.size() != 4 && text.size() != 8) return std::nullopt;
        CBUUID uuid = bluetoothBase();
        for (std::size_t i = 0; i < text.size(); i += 2) {
            if (!uuid.setByte((8 - text.size() + i) / 2, text[i], text[i + 1])) return std::nullopt;
        }
        return uuid;
    }

    /// From 16 bytes, the first being the leftmost of the text.
    static constexpr CBUUID fromBytes(const std::array<std::uint8_t, 16>& bytes) {
        CBUUID uuid;
        uuid.bytes_ = bytes;
        return uuid;
    }

    constexpr const std::array<std::uint8_t, 16>& bytes() const { return bytes_; }

    /// Always the 36-character form in upper case.
    std::string uuidString() const {
        constexpr std::string_view digits = "0123456789ABCDEF";
        std::string text;
        text.reserve(36);
        for (std::size_t i = 0; i < bytes_.size(); ++i) {
            if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
            text += digits[bytes_[i] >> 4];
            text += digits[bytes_[i] & 0x0F];
        }
        return text;
    }

    friend constexpr bool operator==(const CBUUID&, const CBUUID&) = default;
    /// An order for containers; it means nothing else.
    friend constexpr bool operator<(const CBUUID& a, const CBUUID& b) { return a.bytes_ < b.bytes_; }

private:
    static constexpr CBUUID bluetoothBase() {
        return fromBytes({0, 0, 0, 0, 0, 0, 0x10, 0, 0x80, 0, 0, 0x80, 0x5F, 0x9B, 0x34, 0xFB});
    }

    static constexpr std::optional<CBUUID> parseLong(std::string_view text) {
        CBUUID uuid;
        std::size_t at = 0;
        for (std::size_t i = 0; i < 16; ++i) {
            const bool dashed = i == 4 || i == 6 || i == 8 || i == 10;
            if (dashed && text[at++] != '-') return std::nullopt;
            if (!uuid.setByte(i, text[at], text[at + 1])) return std::nullopt;
            at += 2;
        }
        return uuid;
    }

    constexpr bool setByte(std::size_t index, char high, char low) {
        const int h = digit(high);
        const int l = digit(low);
        if (h < 0 || l < 0) return false;
        bytes_[index] = static_cast<std::uint8_t>(h << 4 | l);
        return true;
    }

    static constexpr int digit(char c) {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        return -1;
    }

    std::array<std::uint8_t, 16> bytes_{};
};

}  // namespace corvane
