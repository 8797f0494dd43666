#include "corvane/platform/platform.h"

#include <cstdio>
#include <cstdlib>

#include "corvane/framework/text_decoding.h"

namespace corvane {
namespace {

void appendEscape(std::string& out, unsigned char byte) {
    constexpr std::string_view digits = "0123456789abcdef";
    out += "\\x";
    out += digits[byte >> 4];
    out += digits[byte & 0x0F];
}

bool mustEscape(std::string_view character) {
    const auto first = static_cast<unsigned char>(character[0]);
    if (character.size() == 1) return first < 0x20 || first == 0x7F || first == '\\';
    // C1 controls, as UTF-8 writes them.
    return first == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0;
}

}  // namespace

std::string printable(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        const std::size_t length = utf8CharacterLength(text);
        const std::string_view character = text.substr(0, length == 0 ? 1 : length);
        if (length != 0 && !mustEscape(character)) {
            out += character;
        } else {
            for (const char c : character) appendEscape(out, static_cast<unsigned char>(c));
        }
        text.remove_prefix(character.size());
    }
    return out;
}

void writeConsoleLine(std::string_view line) {
    std::string text = printable(line);
    text += '\n';
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

void stopProcess(std::string_view driver, std::string_view what) {
    std::fprintf(stderr, "%.*s: precondition failed: %.*s\n", static_cast<int>(driver.size()), driver.data(),
                 static_cast<int>(what.size()), what.data());
    std::abort();
}

}  // namespace corvane
