#include "corvane/framework/hexadecimal_text.h"

#include <array>
#include <cstddef>

namespace corvane {
namespace {

constexpr auto digitPairs = [] {
    std::array<std::array<char, 2>, 256> pairs{};
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        pairs[i] = {"0123456789abcdef"[i >> 4], "0123456789abcdef"[i & 0x0F]};
    }
    return pairs;
}();

}  // namespace

void appendHexadecimalText(std::string& text, Bytes bytes) {
    std::size_t at = text.size();
    text.resize(at + 2 * bytes.size());
    for (const std::uint8_t byte : bytes) {
        text[at++] = digitPairs[byte][0];
        text[at++] = digitPairs[byte][1];
    }
}

}  // namespace corvane
