// Replays every script in tests/golden and compares what comes out with the trace that lies beside it, line
// by line as JSON values, the order of a record's fields included. A session is
//
//   <model>/<name>.session.jsonl   the script
//   <model>/<name>.trace.jsonl     the trace; lines that begin with '#' are comments
//   <model>/<name>.status          the exit status, where it is neither 0 nor, after a trace that ends with
//                                  "fatal" in a script that stops there, 3
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "sessions/json.h"
#include "sessions/replayer.h"

namespace corvane::sessions {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view scriptEnding = ".session.jsonl";

std::string contents(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// The path of a script without its ending.
std::vector<std::string> goldenSessions() {
    std::vector<std::string> found;
    if (!fs::exists(CORVANE_GOLDEN)) return found;
    for (const auto& entry : fs::recursive_directory_iterator(CORVANE_GOLDEN)) {
        const std::string path = entry.path().string();
        if (path.ends_with(scriptEnding)) found.push_back(path.substr(0, path.size() - scriptEnding.size()));
    }
    std::sort(found.begin(), found.end());
    return found;
}

std::vector<Json> lines(const std::string& text) {
    std::vector<Json> parsed;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        if (!line.empty() && line[0] != '#') parsed.push_back(Json::parse(line));
    }
    return parsed;
}

int expectedStatus(const std::string& session, const std::vector<Json>& trace) {
    if (const std::string status = contents(session + ".status"); !status.empty()) return std::stoi(status);
    const bool ignores =
        lines(contents(session + std::string(scriptEnding))).at(0).value("onPrecondition", "") == "ignore";
    return !trace.empty() && trace.back().contains("fatal") && !ignores ? 3 : 0;
}

/// The text of a fatal line is for people, and no more than a hint to the test.
bool isSame(const Json& actual, const Json& expected) {
    if (actual.contains("fatal") && expected.contains("fatal")) return true;
    const nlohmann::json anyOrder = actual;
    return anyOrder == nlohmann::json(expected) &&
           actual.value("record", Json()) == expected.value("record", Json()) &&
           actual.value("result", Json()) == expected.value("result", Json());
}

class GoldenSession : public testing::TestWithParam<std::string> {};

TEST_P(GoldenSession, replaysToItsTrace) {
    std::istringstream script(contents(GetParam() + std::string(scriptEnding)));
    std::ostringstream trace;
    std::ostringstream messages;
    const auto status = replay(script, trace, messages);

    const std::vector<Json> actual = lines(trace.str());
    const std::vector<Json> expected = lines(contents(GetParam() + ".trace.jsonl"));
    for (std::size_t i = 0; i < std::min(actual.size(), expected.size()); ++i)
        ASSERT_TRUE(isSame(actual[i], expected[i])) << "line " << i + 1 << " of the trace is\n  " << actual[i]
                                                    << "\nand should be\n  " << expected[i];
    ASSERT_EQ(actual.size(), expected.size()) << "the trace is\n" << trace.str() << messages.str();
    EXPECT_EQ(static_cast<int>(status), expectedStatus(GetParam(), expected)) << messages.str();
}

std::string caseName(const testing::TestParamInfo<std::string>& session) {
    std::string name = fs::relative(session.param, CORVANE_GOLDEN).string();
    for (char& c : name)
        if (std::isalnum(static_cast<unsigned char>(c)) == 0) c = '_';
    return name;
}

INSTANTIATE_TEST_SUITE_P(Golden, GoldenSession, testing::ValuesIn(goldenSessions()), caseName);

}  // namespace
}  // namespace corvane::sessions
