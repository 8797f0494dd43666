#pragma once

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace corvane {

using Json = nlohmann::ordered_json;

/// What a command left behind.
struct Ran {
    int status = -1;  ///< -1 when a signal ended it.
    std::string out;
    std::string err;
};

/// Where this test's files are.
std::filesystem::path folderOfTest();

/// Runs a shell command that calls the program as its users do: "corvane models". The files it names are
/// there.
Ran sh(const std::string& command);

std::vector<std::string> linesOf(const std::string& text);

/// One value a line.
std::vector<Json> jsonLinesOf(const std::string& text);

}  // namespace corvane
