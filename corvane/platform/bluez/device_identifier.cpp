#include "corvane/platform/bluez/device_identifier.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cassert>
#include <cstdint>

namespace corvane::bluez {
namespace {

// Made once for this purpose; another name space would give every device another identifier.
constexpr CBUUID deviceNameSpace{"6C1D6A0E-3F57-4B0B-9B7E-3D1C6E5A9F24"};

using Block = std::array<std::uint8_t, 64>;
using Digest = std::array<std::uint32_t, 5>;

// SHA-1 of a message that fits one block with its padding. Nothing secret depends on it: version 5 UUIDs are
// defined with it, and any tool can compute them.
Digest sha1(const Block& padded) {
    std::array<std::uint32_t, 80> words{};
    for (std::size_t i = 0; i < padded.size(); ++i) words[i / 4] = words[i / 4] << 8 | padded[i];
    for (std::size_t i = 16; i < words.size(); ++i)
        words[i] = std::rotl(words[i - 3] ^ words[i - 8] ^ words[i - 14] ^ words[i - 16], 1);

    constexpr Digest start{0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476, 0xC3D2E1F0};
    auto [a, b, c, d, e] = start;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const auto [mixed, constant] = i < 20   ? std::pair((b & c) | (~b & d), 0x5A827999U)
                                       : i < 40 ? std::pair(b ^ c ^ d, 0x6ED9EBA1U)
                                       : i < 60 ? std::pair((b & c) | (b & d) | (c & d), 0x8F1BBCDCU)
                                                : std::pair(b ^ c ^ d, 0xCA62C1D6U);
        const std::uint32_t next = std::rotl(a, 5) + mixed + e + constant + words[i];
        e = d;
        d = c;
        c = std::rotl(b, 30);
        b = a;
        a = next;
    }
    return {start[0] + a, start[1] + b, start[2] + c, start[3] + d, start[4] + e};
}

}  // namespace

CBUUID deviceIdentifier(std::string_view address, std::string_view addressType) {
    Block block{};
    auto at = std::copy(deviceNameSpace.bytes().begin(), deviceNameSpace.bytes().end(), block.begin());
    at = std::copy(address.begin(), address.end(), at);
    *at++ = '/';
    at = std::copy(addressType.begin(), addressType.end(), at);
    const auto length = at - block.begin();
    assert(length < 56);
    *at = 0x80;
    block[62] = static_cast<std::uint8_t>(length * 8 >> 8);
    block[63] = static_cast<std::uint8_t>(length * 8);

    const Digest digest = sha1(block);
    std::array<std::uint8_t, 16> bytes{};
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<std::uint8_t>(digest[i / 4] >> (24 - 8 * (i % 4)));
    bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x50);
    bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80);
    return CBUUID::fromBytes(bytes);
}

}  // namespace corvane::bluez
