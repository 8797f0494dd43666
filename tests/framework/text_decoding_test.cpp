#include "corvane/framework/text_decoding.h"

#include <gtest/gtest.h>

#include <clocale>
#include <limits>

#include "corvane/framework/hexadecimal_text.h"
#include "corvane/platform/platform.h"

namespace corvane {
namespace {

Bytes bytesOf(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

TEST(Hexadecimal, TakesOneSignAndDigitsOfEitherCase) {
    EXPECT_EQ(parseHexadecimal("7b"), 123);
    EXPECT_EQ(parseHexadecimal("+7B"), 123);
    EXPECT_EQ(parseHexadecimal("-7b"), -123);
    EXPECT_EQ(parseHexadecimal("7fffffffffffffff"), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(parseHexadecimal("-8000000000000000"), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(parseHexadecimal("00000000000000000000000000000001"), 1);
}

TEST(Hexadecimal, GivesZeroForWhatIsNoNumberOrDoesNotFit) {
    for (const char* text : {"", "+", "-", "--1", "+-1", " 7b", "7b ", "0x7b", "7g", "8000000000000000",
                             "-8000000000000001", "ffffffffffffffff", "10000000000000000"}) {
        EXPECT_EQ(parseHexadecimal(text), 0) << text;
    }
}

TEST(Base64, IsStrictInAlphabetAndPadding) {
    EXPECT_EQ(base64Decoded("N2J8fDIwMjM="), "7b||2023");
    EXPECT_EQ(base64Decoded("N2I="), "7b");
    EXPECT_EQ(base64Decoded("Nw=="), "7");
    EXPECT_EQ(base64Decoded("Nx=="), "7") << "unused bits are not tested";
    EXPECT_EQ(base64Decoded(""), "");
    for (const char* text : {"N", "N2", "N2I", "N===", "N2I=N2I=", "N2 I", "N2I=\n", "hello!", "N-_="}) {
        EXPECT_FALSE(base64Decoded(text)) << text;
    }
}

TEST(Decimal, AcceptsTheDocumentedForms) {
    EXPECT_EQ(parseDecimal("12.5"), 12.5);
    EXPECT_EQ(parseDecimal("-31.8"), -31.8);
    EXPECT_EQ(parseDecimal("+.5"), 0.5);
    EXPECT_EQ(parseDecimal("5."), 5.0);
    EXPECT_EQ(parseDecimal("1e2"), 100.0);
    EXPECT_EQ(parseDecimal("1.5E-3"), 0.0015);
    EXPECT_EQ(parseDecimal("5e-324"), 5e-324);
}

TEST(Decimal, GivesZeroForWhatIsNoNumberOrTooLarge) {
    using namespace std::string_view_literals;
    for (const std::string_view text :
         {""sv, "."sv, "+"sv, "e5"sv, ".e5"sv, "1e"sv, "1e+"sv, " 1"sv, "1 "sv, "12,5"sv, "1.2.3"sv, "0x10"sv,
          "inf"sv, "nan"sv, "1\0"sv, "1e999"sv, "-1e999"sv}) {
        EXPECT_EQ(parseDecimal(text), 0.0) << text;
    }
}

TEST(Decimal, DoesNotFollowTheHostsLocale) {
    if (!std::setlocale(LC_NUMERIC, "de_DE.UTF-8")) GTEST_SKIP() << "no locale with a decimal comma here";
    EXPECT_EQ(parseDecimal("12.5"), 12.5);
    EXPECT_EQ(parseDecimal("12,5"), 0.0);
    std::setlocale(LC_NUMERIC, "C");
}

TEST(Utf8, RefusesWhatIsNotWellFormed) {
    for (const char* text : {"", "12.5PI", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x92\x89", "\xEF\xBF\xBF"}) {
        EXPECT_EQ(utf8Text(bytesOf(text)), text);
    }
    for (const char* text :
         {"\x80", "\xC0\x80", "\xC1\xBF", "\xC3", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xE2\x82",
          "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF", "a\xE9z"}) {
        EXPECT_FALSE(utf8Text(bytesOf(text)));
    }
}

TEST(Printable, LeavesATerminalAlone) {
    EXPECT_EQ(printable("AOJ-20A \xC3\xA9"), "AOJ-20A \xC3\xA9");
    EXPECT_EQ(printable("\x1B[31m\x07\n"), "\\x1b[31m\\x07\\x0a");
    EXPECT_EQ(printable("a\\b\x7F"), "a\\x5cb\\x7f");
    EXPECT_EQ(printable("\xC2\x9B"
                        "2J"),
              "\\xc2\\x9b2J")
        << "C1 controls, in UTF-8";
    EXPECT_EQ(printable("\xFFz"), "\\xffz") << "bytes that are no UTF-8";
}

TEST(HexadecimalText, HasTwoLowerCaseDigitsAByte) {
    const std::uint8_t bytes[] = {0x00, 0x0E, 0x42, 0xFF};
    EXPECT_EQ(hexadecimalText(bytes), "000e42ff");
    EXPECT_EQ(hexadecimalText({}), "");
}

TEST(Uuid, ReadsTheLongAndTheShortForms) {
    constexpr CBUUID assigned("ffe0");
    static_assert(assigned == CBUUID("0000FFE0-0000-1000-8000-00805f9b34fb"));
    static_assert(assigned == CBUUID("0000ffe0"));
    EXPECT_EQ(assigned.uuidString(), "0000FFE0-0000-1000-8000-00805F9B34FB");
    for (const char* text :
         {"", "ffe", "ffe0x", "gfe0", "0000ffe0-0000-1000-8000-00805f9b34f",
          "0000ffe0x0000-1000-8000-00805f9b34fb", "0000ffe0-0000-1000-8000-00805f9b34fg"}) {
        EXPECT_FALSE(CBUUID::parse(text)) << text;
    }
}

}  // namespace
}  // namespace corvane
