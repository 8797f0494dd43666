#pragma once

#include <cstdio>
#include <string>
#include <string_view>

namespace corvane::tool {

/// Lines of data, to standard output or to a file. Each line is on its way when the call returns, so that a
/// program at the other end of a pipe sees a reading when it is taken.
///
/// Writing never throws: it happens inside callbacks of drivers. What could not be written is kept in mind,
/// and `close`, with which everybody has to end, makes a Failure of it: data is not lost in silence.
class DataOutput {
public:
    /// Standard output.
    DataOutput();
    /// A file that is made anew; a Failure where that cannot be.
    explicit DataOutput(const std::string& path);
    ~DataOutput();
    DataOutput(const DataOutput&) = delete;
    DataOutput& operator=(const DataOutput&) = delete;

    void line(std::string_view text);
    /// Text with line ends of its own.
    void write(std::string_view text);

    bool failed() const { return error_ != 0; }

    void close();

private:
    std::FILE* file_;
    std::string name_;
    int error_ = 0;  ///< The first one, as in errno.
};

}  // namespace corvane::tool
