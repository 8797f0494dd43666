#include "replay_command.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>

#include "corvane/platform/platform.h"
#include "data_output.h"
#include "failure.h"
#include "sessions/replayer.h"

namespace corvane::tool {
namespace {

ExitStatus exitStatus(sessions::ReplayStatus status) {
    switch (status) {
    case sessions::ReplayStatus::done:
        return ExitStatus::done;
    case sessions::ReplayStatus::faultyScript:
        return ExitStatus::wrongUsage;
    case sessions::ReplayStatus::preconditionFailed:
        return ExitStatus::preconditionFailed;
    }
    return ExitStatus::internalError;
}

ExitStatus replay(std::istream& script, const std::string& name) {
    DataOutput out;
    std::ostringstream messages;
    const sessions::ReplayStatus status = sessions::replay(script, std::cout, messages);
    out.close();
    if (!messages.view().empty())
        std::fprintf(stderr, "corvane: %s: %s", printable(name).c_str(), messages.str().c_str());
    return exitStatus(status);
}

}  // namespace

ExitStatus replay(const std::string& path) {
    if (path == "-") return replay(std::cin, "standard input");
    std::ifstream file(path);
    if (!file) throw Failure(ExitStatus::wrongUsage, "cannot read " + path + ": " + std::strerror(errno));
    return replay(file, path);
}

}  // namespace corvane::tool
