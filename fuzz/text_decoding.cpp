// The readers of texts and numbers, against plain second readings and against themselves.
#include "corvane/framework/text_decoding.h"

#include <cerrno>
#include <cstdio>

#include "corvane/framework/hexadecimal_text.h"
#include "fuzz/input.h"
#include "tests/support/text_readers.h"

namespace corvane {
namespace {

// The C library's number readers skip blanks and stop where a number ends; here the whole text must be one.
double libraryDecimal(const std::string& text) {
    if (text.empty() || text.find_first_not_of("+-.0123456789eE") != std::string::npos) return 0.0;
    char* end = nullptr;
    errno = 0;
    const double value = std::strtod(text.c_str(), &end);
    const bool tooLarge = errno == ERANGE && std::abs(value) > 1.0;
    return end == text.c_str() + text.size() && !tooLarge ? value : 0.0;
}

std::int64_t libraryHexadecimal(const std::string& text) {
    if (text.empty() || text.find_first_not_of("+-0123456789abcdefABCDEF") != std::string::npos) return 0;
    char* end = nullptr;
    errno = 0;
    const long long value = std::strtoll(text.c_str(), &end, 16);
    return end == text.c_str() + text.size() && errno == 0 ? value : 0;
}

void check(Bytes bytes) {
    const std::string text(bytes.begin(), bytes.end());

    must(parseDecimal(text) == libraryDecimal(text));
    must(parseHexadecimal(text) == libraryHexadecimal(text));
    must(base64Decoded(text) == text::base64(text));
    must(utf8Text(bytes).has_value() == text::wellFormed(text));
    must(hexadecimalText(bytes) == text::hexadecimal(bytes));

    const std::string shown = printable(text);
    must(text::wellFormed(shown) && printable(shown).size() >= shown.size());
    for (const char c : shown) must(static_cast<unsigned char>(c) >= 0x20 && c != 0x7F);

    if (const auto uuid = CBUUID::parse(text)) must(CBUUID::parse(uuid->uuidString()) == uuid);
}

}  // namespace
}  // namespace corvane

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    corvane::check({data, size});
    return 0;
}
