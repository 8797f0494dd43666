// Each device read in the usual way: the value as hexadecimal text, fields cut out of it by position, numbers
// through the standard conversions. Written apart from the drivers, so that it serves as a second opinion on
// their decoding and as the yardstick of their speed.
#pragma once

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "corvane/corvane.h"

namespace corvane::text {

inline const auto pairs = [] {
    std::array<std::array<char, 2>, 256> table{};
    for (unsigned i = 0; i < 256; ++i) table[i] = {"0123456789abcdef"[i / 16], "0123456789abcdef"[i % 16]};
    return table;
}();

inline std::string hexadecimal(Bytes bytes) {
    std::string text(2 * bytes.size(), '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        text[2 * i] = pairs[bytes[i]][0];
        text[2 * i + 1] = pairs[bytes[i]][1];
    }
    return text;
}

inline const auto digits = [] {
    std::array<std::int8_t, 256> table{};
    for (std::int8_t i = 0; i < 16; ++i) table[static_cast<unsigned char>("0123456789abcdef"[i])] = i;
    return table;
}();

/// 0 where the text is no number, or too large.
template <class Number>
Number number(std::string_view text, auto how) {
    if (text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
    Number value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, how);
    return error == std::errc() && end == text.data() + text.size() ? value : 0;
}
inline std::int64_t base16(std::string_view text) { return number<std::int64_t>(text, 16); }

/// The shortest text that reads back as the same number, with at least one decimal.
inline std::string decimal(double value) {
    char buffer[32];
    std::string text(buffer, std::to_chars(buffer, buffer + sizeof buffer, value).ptr);
    return text.find('.') == std::string::npos ? text + ".0" : text;
}

inline std::optional<std::string> base64(std::string_view text) {
    constexpr std::string_view alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    if (text.size() % 4 != 0) return std::nullopt;
    for (int padding = 0; padding < 2 && text.ends_with('='); ++padding) text.remove_suffix(1);
    std::string bytes;
    std::uint32_t bits = 0;
    int count = 0;
    for (const char c : text) {
        const std::size_t digit = alphabet.find(c);
        if (digit == std::string_view::npos) return std::nullopt;
        bits = bits << 6 | static_cast<std::uint32_t>(digit);
        count += 6;
        if (count >= 8) bytes += static_cast<char>(bits >> (count -= 8));
    }
    return bytes;
}

/// Decodes each character, and refuses what its number could have been written shorter, or is none.
inline bool wellFormed(std::string_view text) {
    for (std::size_t at = 0; at < text.size();) {
        const auto lead = static_cast<unsigned char>(text[at++]);
        const int more = lead < 0x80       ? 0
                         : lead >> 5 == 6  ? 1
                         : lead >> 4 == 14 ? 2
                         : lead >> 3 == 30 ? 3
                                           : -1;
        if (more < 0) return false;
        unsigned code = more == 0 ? lead : lead & (0x3Fu >> more);
        for (int i = 0; i < more; ++i, ++at) {
            if (at >= text.size() || (text[at] & 0xC0) != 0x80) return false;
            code = code << 6 | (static_cast<unsigned char>(text[at]) & 0x3Fu);
        }
        constexpr unsigned least[] = {0, 0x80, 0x800, 0x10000};
        if (code < least[more] || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return false;
    }
    return true;
}

/// `read` takes the next value that a fresh driver, made with its default flags, is notified of, and gives
/// the record that the driver reports; none where it reports none. The value is as long as a driver asks.
template <class Driver>
struct Reader;

template <>
struct Reader<GlucoseTD4257Device> {
    static constexpr std::size_t shortest = 4;
    std::optional<GlucoseInfo> read(Bytes value, const std::string& uuid) {
        const std::string t = hexadecimal(value);
        return GlucoseInfo{base16(t.substr(6, 2) + t.substr(4, 2)), uuid};
    }
};

template <>
struct Reader<GlucoseTGHGLC01Device> {
    static constexpr std::size_t shortest = 0;
    std::optional<GlucoseInfo> read(Bytes value, const std::string& uuid) {
        const std::string sent(value.begin(), value.end());
        if (!wellFormed(sent)) return std::nullopt;
        std::string fields = base64(sent).value_or("");
        if (!wellFormed(fields)) fields = "";
        return GlucoseInfo{base16(std::string_view(fields).substr(0, fields.find("||"))), uuid};
    }
};

template <>
struct Reader<BloodPressureTD3140Device> {
    static constexpr std::size_t shortest = 6;
    std::optional<BloodPressureInfo> read(Bytes value, const std::string& uuid) {
        const std::string t = hexadecimal(value);
        if (t == "515400000000a54a") return std::nullopt;
        return BloodPressureInfo{base16(t.substr(10, 2)), base16(t.substr(6, 2)), base16(t.substr(8, 2)),
                                 uuid};
    }
};

template <>
struct Reader<OximeterADFB05Device> {
    static constexpr std::size_t shortest = 0;
    bool loading = false;
    std::optional<OximeterInfo> read(Bytes value, const std::string& uuid) {
        const std::string t = hexadecimal(value);
        if (t == "807f7f7f7f7f7f7f7f7f7f") return std::nullopt;
        if (!loading && t.starts_with("80")) {
            loading = true;
            return std::nullopt;
        }
        if (t.size() != 8 || t == "81ff7f00") return std::nullopt;
        return OximeterInfo{base16(t.substr(4, 2)), base16(t.substr(2, 2)), uuid};
    }
};

template <>
struct Reader<OximeterTD8255Device> {
    static constexpr std::size_t shortest = 6;
    std::optional<OximeterInfo> read(Bytes value, const std::string& uuid) {
        const std::string t = hexadecimal(value);
        return OximeterInfo{base16(t.substr(6, 2) + t.substr(4, 2)), base16(t.substr(10, 2)), uuid};
    }
};

template <>
struct Reader<TemperatureAOJ20ADevice> {
    static constexpr std::size_t shortest = 6;
    std::optional<TemperatureInfo> read(Bytes value, const std::string& uuid) {
        const std::string t = hexadecimal(value);
        const auto raw = static_cast<double>(base16(t.substr(9, 3)));
        return TemperatureInfo{decimal(std::round(raw / 100.0 * 10.0) / 10.0), uuid};
    }
};

template <>
struct Reader<TemperatureTD1241Device> {
    static constexpr std::size_t shortest = 4;
    std::optional<TemperatureInfo> read(Bytes value, const std::string& uuid) {
        const std::string t = hexadecimal(value);
        const auto raw = static_cast<double>(base16(t.substr(6, 2) + t.substr(4, 2)));
        return TemperatureInfo{decimal(raw / 10.0), uuid};
    }
};

template <>
struct Reader<BodyCompositionADFB885TDevice> {
    static constexpr std::size_t shortest = 20;
    std::vector<std::string> holder{};
    std::string printed{};
    std::optional<BodyCompositionInfo> read(Bytes value, const std::string& uuid) {
        const std::string t = printed = hexadecimal(value);
        if (t.starts_with("4200")) holder.insert(holder.begin(), t);
        if (!t.starts_with("4201") || holder.empty()) return std::nullopt;
        holder.insert(holder.begin() + 1, t);
        printed = "hex array = [";
        for (const std::string& each : holder)
            printed += (printed.back() == '[' ? "\"" : ", \"") + each + '"';
        printed += ']';
        const std::string& f0 = holder[0];
        const std::string& f1 = holder[1];
        const auto tenths = [](const std::string& from, std::size_t at) {
            return static_cast<double>(base16(from.substr(at, 3))) / 10.0;
        };
        const DriverArguments with;
        return BodyCompositionInfo{
            tenths(f0, 27), static_cast<double>(base16(f0.substr(38, 2) + f1.substr(4, 2)) / 10),
            tenths(f1, 23), tenths(f1, 27),
            tenths(f1, 15), tenths(f0, 31),
            with.height,    with.age,
            with.gender,    uuid};
    }
};

template <>
struct Reader<BodyTapeDevice> {
    static constexpr std::size_t shortest = 0;
    std::optional<BodyTapeInfo> read(Bytes value, const std::string& uuid) {
        const std::string t(value.begin(), value.end());
        if (!wellFormed(t)) return std::nullopt;
        const bool inches = t.find("PI") != std::string::npos;
        const std::size_t at = t.find(inches ? "PI" : "PM");
        if (at == std::string::npos) return std::nullopt;
        // No words: infinity and such are no lengths.
        const std::string_view measure = std::string_view(t).substr(0, at);
        const bool plain = measure.find_first_not_of("+-.0123456789eE") == std::string_view::npos;
        return BodyTapeInfo{plain ? number<double>(measure, std::chars_format::general) : 0.0,
                            inches ? BodyTapeUnitType::inch : BodyTapeUnitType::cm, uuid};
    }
};

template <>
struct Reader<MultiMonitoringBeneCheckDevice> {
    static constexpr std::size_t shortest = 0;
    std::optional<MultiMonitoringBeneCheckInfo> read(Bytes value, const std::string& uuid) {
        using Type = MultiMonitoringBeneCheckType;
        const std::string t = hexadecimal(value);
        if (t.size() != 26) return std::nullopt;
        const auto code = number<std::int64_t>(t.substr(2, 2), 10);
        const Type type = code == 51 ? Type::uric : code == 61 ? Type::cholesterol : Type::glucose;
        const std::int64_t sent = base16(t.substr(23, 1) + t.substr(20, 2));
        return MultiMonitoringBeneCheckInfo{type, type == Type::cholesterol ? sent / 10 : sent, uuid};
    }
};

template <>
struct Reader<ECGTD4257Device> {
    static constexpr std::size_t shortest = 0;
    std::string receiveData{};
    std::string infoData{};
    bool isComing = false;
    std::optional<ECGInfo> read(Bytes value, const std::string& uuid) {
        const std::string t = hexadecimal(value);
        const std::string header = t.size() >= 3 ? t.substr(0, 2) : "";
        if (header == "d0") isComing = true;
        if (header == "e0") isComing = false;
        if (header == "e1") infoData = t;
        if (isComing) receiveData += t;
        if (header == "e0" && infoData.size() == 128) {
            if (receiveData.starts_with("e0")) receiveData.clear();
            return std::nullopt;
        }
        if (value.size() < 4 || t.substr(t.size() - 4, 2) != "7f") return std::nullopt;
        isComing = false;
        if (infoData.size() < 32 || receiveData.size() < 128) return std::nullopt;
        ECGInfo info;
        info.pulse = std::to_string(base16(infoData.substr(28, 2)) * 128 + base16(infoData.substr(30, 2)));
        info.uuid = uuid;
        for (std::size_t frame = 0; frame + 128 <= receiveData.size(); frame += 128) {
            for (std::size_t at = frame + 20; at <= frame + 116; at += 4) {
                int sample = 0;
                for (const std::size_t digit : {2u, 3u, 0u, 1u}) {
                    sample = sample << 4 | digits[static_cast<unsigned char>(receiveData[at + digit])];
                }
                info.graph.push_back(sample - 0x4000);
            }
        }
        return info;
    }
};

}  // namespace corvane::text
