#include "data_output.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include "failure.h"

namespace corvane::tool {

DataOutput::DataOutput() : file_(stdout), name_("standard output") {}

DataOutput::DataOutput(const std::string& path) : file_(std::fopen(path.c_str(), "we")), name_(path) {
    if (!file_) throw Failure(ExitStatus::wrongUsage, "cannot write " + path + ": " + std::strerror(errno));
}

DataOutput::~DataOutput() {
    if (file_ && file_ != stdout) std::fclose(file_);
}

void DataOutput::line(std::string_view text) {
    std::string whole(text);
    whole += '\n';
    write(whole);
}

void DataOutput::write(std::string_view text) {
    if (failed()) return;
    const bool written = std::fwrite(text.data(), 1, text.size(), file_) == text.size();
    if (!written || std::fflush(file_) != 0) error_ = errno;
}

void DataOutput::close() {
    // Others may have written to the same stream, and some systems tell only now that the disk is full.
    const bool spoiled = std::ferror(file_) != 0;
    const bool closed = std::fclose(std::exchange(file_, nullptr)) == 0;
    if (!failed() && (spoiled || !closed)) error_ = errno != 0 ? errno : EIO;
    if (failed())
        throw Failure(ExitStatus::internalError, "cannot write to " + name_ + ": " + std::strerror(error_));
}

}  // namespace corvane::tool
