#pragma once

#include <string>
#include <string_view>

namespace corvane::tool {

/// Messages for the person, on standard error: what is data goes elsewhere. All text may hold what strangers'
/// radios sent; it is escaped here.
class Console {
public:
    Console();
    ~Console();
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    void message(std::string_view text);
    void warning(std::string_view text);

    /// How things stand, in one line that the next one replaces. Only on a terminal.
    void progress(std::string_view text);

    /// Removes the progress line; to be called before standard output is written, which may be the same
    /// terminal.
    void clearProgress();

private:
    void print(std::string_view text);

    const bool terminal_;
    const bool colour_;
    bool progressShown_ = false;
};

}  // namespace corvane::tool
