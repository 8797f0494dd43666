// What the replayer makes of lines that are wrong, of time, and of calls inside callbacks. What it makes of
// ordinary sessions is the business of the golden ones.
#include "sessions/replayer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

namespace corvane::sessions {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

struct Replayed {
    ReplayStatus status;
    std::string trace;
    std::string message;
};

Replayed replayed(const std::string& script) {
    std::istringstream in(script);
    std::ostringstream trace;
    std::ostringstream messages;
    const ReplayStatus status = replay(in, trace, messages);
    return {status, trace.str(), messages.str()};
}

std::string repeated(std::size_t count, const std::string& text) {
    std::string all;
    while (count-- > 0) all += text;
    return all;
}

std::size_t occurrences(const std::string& text, const std::string& of) {
    std::size_t count = 0;
    for (auto at = text.find(of); at != text.npos; at = text.find(of, at + 1)) ++count;
    return count;
}

std::vector<std::string> linesOfFile(const std::string& name) {
    std::ifstream file(CORVANE_SESSIONS_TESTS "/" + name);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        if (!line.starts_with('#')) lines.push_back(line);
    }
    EXPECT_FALSE(lines.empty()) << name;
    return lines;
}

/// Six lines, after which one task waits.
const std::string linked = R"({"device":"temperature-aoj20a"}
{"call":"startScan"}
{"event":"state","state":"poweredOn"}
{"event":"discovered","peripheral":"p1","identifier":"6E400001-B5A3-F393-E0A9-E50E24DCCA9E","name":"AOJ-20A"}
{"event":"services","peripheral":"p1","services":["180a","ffe0"]}
{"event":"characteristics","peripheral":"p1","service":1,"characteristics":["FFE1"]}
)";

/// After these the oximeter is asked every second.
const std::string polling = R"({"device":"oximeter-td8255"}
{"call":"startScan"}
{"event":"state","state":"poweredOn"}
{"event":"discovered","peripheral":"p","identifier":"180d","name":"TAIDOC TD8255"}
{"event":"services","peripheral":"p","services":["00001523-1212-efde-1523-785feabcd123"]}
{"event":"characteristics","peripheral":"p","service":0,"characteristics":["00001524-1212-efde-1523-785feabcd123"]}
)";

TEST(Replayer, refusesAFaultyLineByItsNumberAndAppliesNothingOfIt) {
    const Replayed before = replayed(linked);
    ASSERT_EQ(before.status, ReplayStatus::done) << before.message;
    std::vector<std::string> faulty = linesOfFile("faulty_lines.txt");
    faulty.insert(faulty.end(), {
                                    "\xEF\xBB\xBF{\"run\":0}",
                                    " # a comment",
                                    "\xC2\xA0",
                                    std::string("{\"run\":0}\0", 10),
                                    "{\"call\":\"get\xFFResult\"}",
                                    repeated(100'000, "["),
                                    repeated(100'000, "{\"run\":"),
                                });
    for (const std::string& line : faulty) {
        const Replayed with = replayed(linked + line + "\n" + R"({"call":"getResult"})");
        EXPECT_EQ(with.status, ReplayStatus::faultyScript) << line.substr(0, 100);
        EXPECT_THAT(with.message, StartsWith("line 7: ")) << line.substr(0, 100);
        EXPECT_EQ(with.trace, before.trace) << line.substr(0, 100);
    }
}

TEST(Replayer, refusesAScriptWhoseFirstLineMakesNoDriver) {
    std::vector<std::pair<std::string, const char*>> faulty = {
        {"", "line 1: "},
        {"# nothing\n\n \r\n", "line 3: "},
        {"\n{\"call\":\"startScan\"}", "line 2: "},
        {"\n{\"during\":1,\"call\":\"startScan\"}", "line 2: "},
    };
    for (const std::string& line : linesOfFile("faulty_first_lines.txt"))
        faulty.emplace_back(line, "line 1: ");
    for (const auto& [script, message] : faulty) {
        const Replayed result = replayed(script);
        EXPECT_EQ(result.status, ReplayStatus::faultyScript) << script;
        EXPECT_THAT(result.message, StartsWith(message)) << script;
        EXPECT_EQ(result.trace, "") << script;
    }
}

TEST(Replayer, takesWhatIsUnusualButRight) {
    const std::string lines[] = {
        "{\"call\":\"getResult\"}\r",
        " \t{ \"run\" : 0 } ",
        "#\xFF",
        R"({"advance":-0.0})",
        R"({"advance":1E-400})",
        R"({"advance":1000000})",
        R"({"event":"discovered","peripheral":"p1"})",
        R"({"event":"discovered","peripheral":"p1","identifier":"6e400001-b5a3-f393-e0a9-e50e24dcca9e"})",
        R"({"event":"discovered","peripheral":"","identifier":"180D","name":null})",
        R"({"event":"disconnected","peripheral":"p1","error":""})",
        R"({"event":"services","peripheral":"p1","services":null,"error":null})",
        R"({"during":999999999999,"destroy":true})",
    };
    for (const std::string& line : lines) {
        const Replayed result = replayed(linked + line + "\n" + R"({"call":"stopScan"})");
        EXPECT_EQ(result.status, ReplayStatus::done) << line << "\n" << result.message;
    }
    // A driver without a central has no peripherals, before and after its end; with one it goes on.
    EXPECT_EQ(replayed(linked + R"({"destroy":true}
{"event":"discovered","peripheral":"p2","identifier":"180d","name":"AOJ-20A"}
{"event":"value","peripheral":"p1","service":1,"characteristic":0,"value":null}
{"run":1})")
                  .status,
              ReplayStatus::done);
    for (const char* after : {R"({"call":"getResult"})", R"({"destroy":true})", R"({"set":"stateLoading"})",
                              R"({"during":1,"call":"getResult"})"}) {
        EXPECT_THAT(replayed(linked + "{\"destroy\":true}\n" + after).message, StartsWith("line 8: "))
            << after;
    }
}

TEST(Replayer, readsNoLineThatIsCostlyToRead) {
    std::string keys = R"({"run":0)";
    for (int i = 0; i < 100; ++i) keys += ",\"" + std::to_string(i) + "\":0";
    const std::pair<std::string, const char*> lines[] = {
        {keys + '}', "has more than 64 keys"},
        {"{\"run\":" + repeated(20, "[") + repeated(20, "]") + '}', "is nested more than 8 deep"},
        {'#' + repeated(1'048'576, "x"), "is longer than 1 MiB"},
    };
    for (const auto& [line, message] : lines)
        EXPECT_EQ(replayed(linked + line + "\n").message, "line 7: " + std::string(message) + "\n");
    EXPECT_EQ(replayed(linked + '#' + repeated(1'048'575, "x")).status, ReplayStatus::done);
}

TEST(Replayer, printsNoCharacterThatSteersATerminal) {
    const std::string name = "a\x7F\xC2\x9B\xC2\xA0z";
    const std::string line = R"({"event":"discovered","peripheral":"p2","identifier":"180D","name":")" + name;
    EXPECT_THAT(replayed(linked + line + "\"}\n").trace, HasSubstr("\"a\\u007f\\u009b\xC2\xA0z\""));
}

TEST(Replayer, addsUpTimeExactly) {
    const std::pair<std::string, std::size_t> cases[] = {
        {repeated(10, "{\"advance\":0.1}\n"), 1},
        {repeated(30, "{\"advance\":0.1}\n"), 3},
        {"{\"advance\":0.9999999994}\n", 0},
        {"{\"advance\":0.9999999995}\n", 1},
        {repeated(3, "{\"advance\":0.333333333}\n"), 0},
        {repeated(3, "{\"advance\":0.333333333}\n") + "{\"advance\":1e-9}\n", 1},
        {repeated(2, "{\"advance\":0.4999999999}\n"), 1},
        {"{\"advance\":1e0}\n{\"advance\":2.5}\n", 3},
        {"{\"advance\":1000}\n", 1000},
        // Two centuries: more nanoseconds than a whole number holds.
        {"{\"event\":\"disconnected\",\"peripheral\":\"p\"}\n" + repeated(10'000, "{\"advance\":1000000}\n"),
         0},
    };
    for (const auto& [lines, polls] : cases) {
        const Replayed result = replayed(polling + lines);
        EXPECT_EQ(result.status, ReplayStatus::done) << result.message;
        EXPECT_EQ(occurrences(result.trace, "\"write\""), polls) << lines.substr(0, 60);
    }
}

TEST(Replayer, appliesHeldLinesInsideTheCallbacksThatTheNextLineCauses) {
    const Replayed before = replayed(linked);
    const Replayed result = replayed(linked + R"({"during":2,"clear":"stateCentralManager"}
{"during":1,"call":"getResult"}
{"during":9,"destroy":true}

# What is held is for the next line that does something.
{"during":1,"call":"startScan"}
{"during":2,"call":"startScan"}
{"run":1}
{"call":"startScan"}
{"during":1,"destroy":true}
{"during":1,"call":"getResult"}
{"event":"value","peripheral":"p1","service":1,"characteristic":0,"value":"000000000e42","error":"late"}
{"advance":3})");
    EXPECT_EQ(result.status, ReplayStatus::done) << result.message;
    EXPECT_EQ(result.trace, before.trace + R"({"callback":"stateLoading","state":"loading"}
{"console":"temperatureInfo not found"}
{"result":null}
{"platform":"cancelConnection","peripheral":"p1"}
{"callback":"stateCentralManager","state":"poweredOn"}
{"platform":"cancelConnection","peripheral":"p1"}
{"platform":"scan"}
{"platform":"scan"}
{"platform":"setNotify","peripheral":"p1","service":1,"characteristic":0,"enabled":true}
{"platform":"cancelConnection","peripheral":"p1"}
{"platform":"scan"}
{"callback":"stateLoading","state":"success","record":{"temperature":"36.5","uuid":"6E400001-B5A3-F393-E0A9-E50E24DCCA9E"}}
)");
}

TEST(Replayer, endsWhereThePreconditionFailsUnlessItIsToGoOn) {
    const std::string rest =
        R"({"event":"value","peripheral":"p1","service":1,"characteristic":0,"value":"00","error":"e"}
{"call":"getResult"}
{"broken)";
    const Replayed stopped = replayed(linked + rest);
    EXPECT_EQ(stopped.status, ReplayStatus::preconditionFailed);
    EXPECT_EQ(stopped.message, "");
    EXPECT_EQ(occurrences(stopped.trace.substr(stopped.trace.find("\"fatal\"")), "\n"), 1U);

    std::string ignoring = linked + rest;
    ignoring.insert(ignoring.find('}'), R"(,"onPrecondition":"ignore")");
    const Replayed going = replayed(ignoring);
    EXPECT_EQ(going.status, ReplayStatus::faultyScript);
    EXPECT_THAT(going.trace.substr(going.trace.find("\"fatal\"")), HasSubstr("\"result\":null"));
}

TEST(Replayer, stopsWhereScansNestWithoutEnd) {
    std::string script = linked;
    for (int i = 1; i < 100; ++i)
        script += R"({"during":)" + std::to_string(i) +
                  R"(,"call":"startScan"})"
                  "\n";
    const Replayed result = replayed(script + R"({"call":"startScan"})");
    EXPECT_EQ(result.status, ReplayStatus::preconditionFailed);
    EXPECT_EQ(occurrences(result.trace, "\"fatal\""), 1U);
}

}  // namespace
}  // namespace corvane::sessions
