// The JSON library, for those who make or read JSON; other headers only name the type.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace corvane::sessions {

/// Keeps the keys of an object in the order in which they were set.
using Json = nlohmann::ordered_json;

/// The value on one line, floating point as the shortest decimal that reads back the same.
std::string jsonText(const Json& value);

}  // namespace corvane::sessions
