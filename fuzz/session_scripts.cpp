// Whole session scripts. Whatever the bytes are, a replay ends with a status and leaves a trace that is
// well-formed, and the same script gives the same trace again.
#include <sstream>
#include <string>

#include "fuzz/input.h"
#include "sessions/json.h"
#include "sessions/replayer.h"

namespace corvane {
namespace {

using sessions::ReplayStatus;

struct Outcome {
    ReplayStatus status;
    std::string trace;
    std::string messages;
    bool operator==(const Outcome&) const = default;
};

Outcome replayed(const std::string& script) {
    std::istringstream in(script);
    std::ostringstream trace;
    std::ostringstream messages;
    const ReplayStatus status = sessions::replay(in, trace, messages);
    return {status, trace.str(), messages.str()};
}

// A week of polling is a script that is well and slow: not what is looked for here.
bool takesLong(const std::string& script) {
    double seconds = 0.0;
    for (std::size_t at = 0; (at = script.find("advance", at)) != std::string::npos; ++at) {
        const std::size_t digits = script.find_first_of("0123456789", at);
        if (digits != std::string::npos) seconds += std::strtod(script.c_str() + digits, nullptr);
    }
    return seconds > 1000.0;
}

void check(const std::string& script) {
    if (takesLong(script)) return;
    const Outcome outcome = replayed(script);
    must(outcome == replayed(script));
    must((outcome.status == ReplayStatus::faultyScript) == !outcome.messages.empty());

    std::istringstream lines(outcome.trace);
    std::string line;
    bool fatalLast = false;
    while (std::getline(lines, line)) {
        const sessions::Json parsed = sessions::Json::parse(line, nullptr, false);
        must(parsed.is_object() && parsed.size() > 0);
        fatalLast = parsed.contains("fatal");
    }
    must(outcome.status != ReplayStatus::preconditionFailed || fatalLast);
}

}  // namespace
}  // namespace corvane

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    corvane::check(std::string(data, data + size));
    return 0;
}
