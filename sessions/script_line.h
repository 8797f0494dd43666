// Reading one line of a script, strictly: what is not understood is an error, never a guess.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "corvane/platform/central.h"
#include "sessions/json.h"

namespace corvane::sessions {

/// Says what is wrong with a line.
class ScriptError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A JSON object whose keys are asked for one by one. Every question throws `ScriptError` where the key is
/// missing or its value is of another type; `finish` throws where a key was never asked for.
class ScriptLine {
public:
    /// Throws where the text is no JSON object, or has a key twice.
    static ScriptLine parse(std::string_view text);

    explicit ScriptLine(Json object) : object_(std::move(object)) {}

    bool has(const std::string& key) const { return object_.contains(key); }

    /// Null when the key is absent.
    const Json* find(const std::string& key);
    const Json& at(const std::string& key);

    std::string text(const std::string& key);
    /// Nothing for null. The key must be there.
    std::optional<std::string> textOrNull(const std::string& key);
    bool flag(const std::string& key);
    double number(const std::string& key);
    /// A whole number that is written as one.
    std::int64_t wholeNumber(const std::string& key);
    /// A whole number from `first` on.
    std::size_t count(const std::string& key, std::size_t first);
    CBUUID uuid(const std::string& key);
    /// Nothing for null.
    std::optional<std::vector<CBUUID>> uuids(const std::string& key);
    /// Pairs of hexadecimal digits; nothing for null.
    std::optional<std::vector<std::uint8_t>> bytes(const std::string& key);

    void finish() const;

private:
    Json object_;
    std::set<std::string> asked_;
};

}  // namespace corvane::sessions
