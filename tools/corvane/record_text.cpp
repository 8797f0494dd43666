#include "record_text.h"

#include "corvane/platform/platform.h"
#include "sessions/json.h"

namespace corvane::tool {
namespace {

std::string valueText(const sessions::Json& value) {
    if (value.is_array()) return std::to_string(value.size()) + " values";
    if (value.is_string()) return printable(value.get_ref<const std::string&>());
    return value.dump();
}

}  // namespace

std::string recordText(const sessions::Json& record) {
    std::string text;
    for (const auto& [field, value] : record.items()) {
        if (field == "uuid") continue;
        if (!text.empty()) text += ", ";
        text += field + ' ' + valueText(value);
    }
    return text;
}

std::string jsonLine(const sessions::Json& value) {
    constexpr bool escapeAllButAscii = true;
    return value.dump(-1, ' ', escapeAllButAscii, sessions::Json::error_handler_t::replace);
}

}  // namespace corvane::tool
