#include "data_output.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include "failure.h"

namespace corvane::tool {

DataOutput::DataOutput() : file_(stdout), name_("standard output") {}

DataOutput::DataOutput(const std::string& path) : file_(std::fopen(path.c_str(), "w")), name_(path) {
    if (!file_) throw Failure(ExitStatus::wrongUsage, "cannot write " + path + ": " + std::strerror(errno));
}

DataOutput::~DataOutput() {
    if (file_ && file_ != stdout) std::fclose(file_);
}

void DataOutput::line(std::string_view text) {
    std::string whole(text);
    whole += '\n';
    this->text(whole);
}

void DataOutput::text(std::string_view text) {
    const bool written = std::fwrite(text.data(), 1, text.size(), file_) == text.size();
    if (!written || std::fflush(file_) != 0) fail(errno);
}

void DataOutput::close() {
    if (std::fclose(std::exchange(file_, nullptr)) != 0) fail(errno);
}

void DataOutput::fail(int error) const {
    throw Failure(ExitStatus::internalError, "cannot write to " + name_ + ": " + std::strerror(error));
}

}  // namespace corvane::tool
