#pragma once

#include <fstream>
#include <string>

namespace corvane::tool {

/// A file for a recording, made anew. Where it cannot be, or something could not be written, a Failure says
/// so; without a path there is no file.
class SessionFile {
public:
    explicit SessionFile(const std::string& path);

    /// Null without a file.
    std::ostream* stream() { return path_.empty() ? nullptr : &file_; }

    void close();

private:
    const std::string path_;
    std::ofstream file_;
};

}  // namespace corvane::tool
