#include "session_file.h"

#include <cerrno>
#include <cstring>

#include "failure.h"

namespace corvane::tool {

SessionFile::SessionFile(const std::string& path) : path_(path) {
    if (path_.empty()) return;
    file_.open(path_);
    if (!file_) throw Failure(ExitStatus::wrongUsage, "cannot write " + path_ + ": " + std::strerror(errno));
}

void SessionFile::close() {
    if (path_.empty()) return;
    file_.close();
    if (!file_) throw Failure(ExitStatus::internalError, path_ + " could not be written completely");
}

}  // namespace corvane::tool
