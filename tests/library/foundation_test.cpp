#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "support/failingnew.h"
#include "zelqplatform/zobitflag.h"
#include "zelqplatform/zoexception.h"
#include "zelqplatform/zostring.h"

namespace {

std::string text(ZoString const& string) {
    return std::string(static_cast<char const*>(string));
}

TEST(ZoString, RendersNumbersInDecimal) {
    EXPECT_EQ(text(ZoString(-2147483647 - 1)), "-2147483648");
    EXPECT_EQ(text(ZoString(4294967295u)), "4294967295");
    EXPECT_EQ(text(ZoString(static_cast<unsigned short>(65535))), "65535");
    EXPECT_EQ(text(ZoString(~0ul)), std::to_string(~0ul));
    EXPECT_EQ(text(ZoString(0)), "0");
}

TEST(ZoString, TurnsDecimalIntoHexadecimalDigits) {
    struct {
        char const* decimal;
        char const* hexadecimal;
    } const cases[] = {
        {"0", "0"},
        {"26", "1A"},
        {"32773", "8005"},
        {"4294967295", "FFFFFFFF"},
        {"-1", "FFFFFFFF"},
        {"-2147483648", "80000000"},
        {"18446744073709551615", "FFFFFFFFFFFFFFFF"},
        {"18446744073709551616", "18446744073709551616"},
        {"12x", "12x"},
        {"", ""},
        {"-", "-"},
    };
    for (auto const& c : cases) {
        EXPECT_EQ(text(ZoString(c.decimal).d2x()), c.hexadecimal) << c.decimal;
    }
}

TEST(ZoString, JustifiesToExactlyTheWidth) {
    EXPECT_EQ(text(ZoString("1A").rightJustify(4, '0')), "001A");
    EXPECT_EQ(text(ZoString("12345").rightJustify(5, ' ')), "12345");
    EXPECT_EQ(text(ZoString("1234567").rightJustify(5, ' ')), "34567");
    EXPECT_EQ(text(ZoString("x").rightJustify(0, ' ')), "");
    EXPECT_EQ(text(ZoString("x").rightJustify(200, '.')), std::string(199, '.') + "x");
}

// The edge between inline and heap storage lies at 127; each operation crosses it here.
TEST(ZoString, KeepsItsTextAcrossTheInlineLimit) {
    for (unsigned length : {0u, 1u, 126u, 127u, 128u, 300u}) {
        std::string const expected(length, 'a');
        ZoString string(expected.c_str());
        ASSERT_EQ(text(string), expected);
        EXPECT_EQ(string.length(), length);
        ZoString copy(string);
        copy += "b";
        EXPECT_EQ(text(copy), expected + "b");
        EXPECT_EQ(text(string + copy), expected + expected + "b");
        EXPECT_EQ(text("c" + string), "c" + expected);
        string += string;
        EXPECT_EQ(text(string), expected + expected);
        string = static_cast<char*>(string) + length / 2;
        EXPECT_EQ(text(string), expected + std::string(length - length / 2, 'a'));
        ZoString moved(std::move(copy));
        EXPECT_EQ(text(moved), expected + "b");
        moved = copy = string;
        EXPECT_EQ(text(moved), text(string));
        moved = ZoString("short");
        EXPECT_TRUE(moved == "short");
        EXPECT_TRUE(moved != static_cast<char*>(string) || length == 0);
    }
    EXPECT_EQ(ZoString(static_cast<char const*>(nullptr)).length(), 0u);
}

TEST(ZoString, AllocatesNothingUpTo127Characters) {
    long const before = liveAllocations();
    failAllocation(1);
    ZoString string(std::string_view("0123456789").data());
    string += ZoString(4294967295u);
    string += ZoString(~0ul).d2x().rightJustify(40, '0');
    string = string + "end";
    ZoString const other(string);
    failAllocation(0);
    EXPECT_EQ(liveAllocations(), before);
    EXPECT_EQ(text(other), text(string));
}

TEST(ZoString, IsUnchangedWhenMemoryRunsOut) {
    ZoString string("start");
    std::string const more(500, 'x');
    for (int operation = 0; operation < 3; ++operation) {
        failAllocation(1);
        EXPECT_THROW(operation == 0   ? string += more.c_str()
                     : operation == 1 ? string = more.c_str()
                                      : string.rightJustify(500, ' '),
                     std::bad_alloc);
        failAllocation(0);
        EXPECT_EQ(text(string), "start");
    }
}

TEST(ZoBitFlag, KeepsTwoWordsOf32Bits) {
    ZoBitFlag flag(0x1FFFFFFFFull & ~0ul, 2);
    EXPECT_EQ(flag.asUnsignedLong(), 0xFFFFFFFFul);
    EXPECT_EQ(&flag.setValue(3, ~0ul), &flag);
    EXPECT_EQ(flag.asUnsignedLong(), 3ul);
    EXPECT_EQ(flag.asExtendedUnsignedLong(), 0xFFFFFFFFul);
    EXPECT_EQ(sizeof(ZoBitFlag), 8u);
}

TEST(ZoException, KeepsTextsAndLocations) {
    ZoException exception("first", 7, ZoException::recoverable);
    exception.appendText("second").setText("changed").setErrorCodeGroup("group");
    exception.addLocation(ZoExceptionLocation("file.cpp", "function", 42));
    ZoException const copy(exception);
    exception.setText(nullptr).setSeverity(ZoException::unrecoverable);
    EXPECT_STREQ(copy.text(), "changed");
    EXPECT_STREQ(copy.text(1), "second");
    EXPECT_EQ(copy.text(2), nullptr);
    EXPECT_STREQ(exception.text(0), "second");
    EXPECT_TRUE(copy.isRecoverable());
    EXPECT_FALSE(exception.isRecoverable());
    ASSERT_EQ(copy.locationCount(), 1ul);
    EXPECT_EQ(copy.locationAtIndex(0)->lineNumber(), 42ul);
    EXPECT_EQ(copy.locationAtIndex(1), nullptr);
    EXPECT_EQ(ZoException(nullptr, 0, ZoException::recoverable).text(0), nullptr);
}

TEST(ZoException, KeepsTextsWhereTheyAre) {
    ZoException exception("first", 7, ZoException::recoverable);
    char const* const first = exception.text(0);
    for (int i = 0; i < 9; ++i) {
        exception.appendText("more");
        EXPECT_EQ(exception.text(0), first);
    }
    EXPECT_STREQ(first, "first");
}

TEST(ZoExceptionDeathTest, TerminatesAfterWritingItsData) {
    ZoException exception("open failed", 0, ZoException::unrecoverable);
    exception.addLocation(ZoExceptionLocation("mod_a", nullptr, 42));
    EXPECT_DEATH(exception.terminate(), "ZoException: open failed\n  at mod_a:42\n");
}

}  // namespace
