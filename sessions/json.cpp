#include "sessions/json.h"

#include <charconv>
#include <utility>

namespace corvane::sessions {
namespace {

void append(std::string& text, const Json& value);

// JSON lets DEL and the C1 control characters stand as they are; some terminals obey U+009B.
void appendWithoutControls(std::string& text, std::string_view json) {
    const auto escape = [&](unsigned code) {
        constexpr std::string_view digits = "0123456789abcdef";
        text += "\\u00";
        text += digits[code >> 4];
        text += digits[code & 0x0F];
    };
    for (std::size_t i = 0; i < json.size(); ++i) {
        const auto byte = static_cast<unsigned char>(json[i]);
        const unsigned next = i + 1 < json.size() ? static_cast<unsigned char>(json[i + 1]) : 0U;
        if (byte == 0x7F) {
            escape(byte);
        } else if (byte == 0xC2 && next >= 0x80 && next < 0xA0) {
            escape(next);
            ++i;
        } else {
            text += json[i];
        }
    }
}

template <class Number>
std::string_view appendNumber(std::string& text, Number value) {
    char buffer[32];
    const auto end = std::to_chars(std::begin(buffer), std::end(buffer), value).ptr;
    text.append(buffer, end);
    return std::string_view(text).substr(text.size() - static_cast<std::size_t>(end - buffer));
}

void appendDecimal(std::string& text, double value) {
    const bool isWhole = appendNumber(text, value).find_first_of(".e") == std::string_view::npos;
    if (isWhole) text += ".0";
}

void appendList(std::string& text, const Json& list) {
    text += '[';
    for (std::size_t i = 0; i < list.size(); ++i) {
        if (i > 0) text += ',';
        append(text, list[i]);
    }
    text += ']';
}

void appendObject(std::string& text, const Json& object) {
    text += '{';
    bool first = true;
    for (const auto& [key, value] : object.get_ref<const Json::object_t&>()) {
        if (!std::exchange(first, false)) text += ',';
        append(text, key);
        text += ':';
        append(text, value);
    }
    text += '}';
}

void append(std::string& text, const Json& value) {
    switch (value.type()) {
    case Json::value_t::object:
        return appendObject(text, value);
    case Json::value_t::array:
        return appendList(text, value);
    case Json::value_t::number_float:
        return appendDecimal(text, value.get<double>());
    case Json::value_t::number_integer:
        appendNumber(text, value.get<std::int64_t>());
        return;
    default:
        appendWithoutControls(text, value.dump(-1, ' ', false, Json::error_handler_t::replace));
    }
}

}  // namespace

std::string jsonText(const Json& value) {
    std::string text;
    append(text, value);
    return text;
}

}  // namespace corvane::sessions
