#include "sessions/script_line.h"

#include <charconv>
#include <limits>

namespace corvane::sessions {
namespace {

[[noreturn]] void fail(std::string_view key, std::string_view what) {
    throw ScriptError("\"" + std::string(key) + "\" " + std::string(what));
}

// No line of a script comes near these.
constexpr int deepestNesting = 8;
constexpr std::size_t mostKeys = 64;

/// Refuses what the library itself would take: an object that has a key twice, and nesting or numbers of keys
/// that are costly to read.
class LineGuard {
public:
    bool operator()(int depth, Json::parse_event_t event, Json& parsed) {
        if (depth > deepestNesting) throw ScriptError("is nested more than 8 deep");
        if (event == Json::parse_event_t::key) keyCame(depth, parsed.get_ref<const std::string&>());
        return true;
    }

private:
    void keyCame(int depth, const std::string& key) {
        if (++keys_ > mostKeys) throw ScriptError("has more than 64 keys");
        if (depth == 1 && !seen_.insert(key).second) fail(key, "is there twice");
    }

    std::set<std::string> seen_;
    std::size_t keys_ = 0;
};

CBUUID uuidFrom(const Json& value, std::string_view key) {
    const auto uuid = value.is_string() ? CBUUID::parse(value.get_ref<const std::string&>()) : std::nullopt;
    if (!uuid) fail(key, "is no UUID");
    return *uuid;
}

std::uint8_t byteFrom(std::string_view digits, std::string_view key) {
    std::uint8_t byte = 0;
    if (std::from_chars(digits.data(), digits.data() + 2, byte, 16).ptr != digits.data() + 2)
        fail(key, "has a digit that is not hexadecimal");
    return byte;
}

}  // namespace

ScriptLine ScriptLine::parse(std::string_view text) {
    if (text.substr(0, 3) == "\xEF\xBB\xBF") throw ScriptError("begins with a byte order mark");
    // The library takes a zero byte for the end of the text, and would never see what follows it.
    if (text.find('\0') != text.npos) throw ScriptError("has a zero byte");
    try {
        Json object = Json::parse(text, LineGuard());
        if (!object.is_object()) throw ScriptError("is no JSON object");
        return ScriptLine(std::move(object));
    } catch (const Json::parse_error& error) {
        throw ScriptError("is not valid JSON at byte " + std::to_string(error.byte));
    } catch (const Json::out_of_range&) {
        throw ScriptError("has a number that is too large");
    }
}

const Json* ScriptLine::find(const std::string& key) {
    asked_.insert(key);
    const auto found = object_.find(key);
    return found == object_.end() ? nullptr : &*found;
}

const Json& ScriptLine::at(const std::string& key) {
    const Json* value = find(key);
    if (!value) fail(key, "is missing");
    return *value;
}

std::string ScriptLine::text(const std::string& key) {
    const Json& value = at(key);
    if (!value.is_string()) fail(key, "is no text");
    return value;
}

std::optional<std::string> ScriptLine::textOrNull(const std::string& key) {
    if (at(key).is_null()) return std::nullopt;
    return text(key);
}

bool ScriptLine::flag(const std::string& key) {
    const Json& value = at(key);
    if (!value.is_boolean()) fail(key, "is neither true nor false");
    return value;
}

double ScriptLine::number(const std::string& key) {
    const Json& value = at(key);
    if (!value.is_number()) fail(key, "is no number");
    return value;
}

std::int64_t ScriptLine::wholeNumber(const std::string& key) {
    const Json& value = at(key);
    const bool tooLarge =
        value.is_number_unsigned() &&
        value.get<std::uint64_t>() > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    if (!value.is_number_integer() || tooLarge) fail(key, "is no whole number");
    return value;
}

std::size_t ScriptLine::count(const std::string& key, std::size_t first) {
    const std::int64_t value = wholeNumber(key);
    if (value < 0 || static_cast<std::size_t>(value) < first)
        fail(key, "is less than " + std::to_string(first));
    return static_cast<std::size_t>(value);
}

CBUUID ScriptLine::uuid(const std::string& key) { return uuidFrom(at(key), key); }

std::optional<std::vector<CBUUID>> ScriptLine::uuids(const std::string& key) {
    const Json& value = at(key);
    if (value.is_null()) return std::nullopt;
    if (!value.is_array()) fail(key, "is neither a list nor null");
    std::vector<CBUUID> list;
    for (const Json& element : value) list.push_back(uuidFrom(element, key));
    return list;
}

std::optional<std::vector<std::uint8_t>> ScriptLine::bytes(const std::string& key) {
    const auto digits = textOrNull(key);
    if (!digits) return std::nullopt;
    if (digits->size() % 2 != 0) fail(key, "has an odd number of digits");
    std::vector<std::uint8_t> bytes;
    for (std::size_t i = 0; i < digits->size(); i += 2)
        bytes.push_back(byteFrom(std::string_view(*digits).substr(i, 2), key));
    return bytes;
}

void ScriptLine::finish() const {
    for (const auto& [key, value] : object_.items()) {
        if (!asked_.contains(key)) throw ScriptError("has an unknown key \"" + key + "\"");
    }
}

}  // namespace corvane::sessions
