#pragma once

#include <cstdio>
#include <string>
#include <string_view>

namespace corvane::tool {

/// Lines of data, to standard output or to a file. Each line is on its way when the call returns, so that a
/// program at the other end of a pipe sees a reading when it is taken. What cannot be written is a Failure:
/// data is never lost in silence.
class DataOutput {
public:
    /// Standard output.
    DataOutput();
    /// A file that is made anew.
    explicit DataOutput(const std::string& path);
    ~DataOutput();
    DataOutput(const DataOutput&) = delete;
    DataOutput& operator=(const DataOutput&) = delete;

    void line(std::string_view text);
    /// Text with line ends of its own.
    void text(std::string_view text);

    /// Some systems tell only now that the disk is full.
    void close();

private:
    [[noreturn]] void fail(int error) const;

    std::FILE* file_;
    std::string name_;
};

}  // namespace corvane::tool
