#include "zelqcood/trace.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <string>

#include "support/fakeservices.h"
#include "trace/message.h"

namespace {

std::string repeated(char c, std::size_t count) {
    return std::string(count, c);
}

TEST(Trace, LaysOutScopes) {
    struct {
        char const* mask;
        std::string name;
        std::string rest;  // of both lines, behind the marker
        std::string prefix;
    } const cases[] = {
        {"XLIBBLK", "findBlock", "findBlock", "XLIBBLKF: "},
        {"ABC", "", "", "ABC    F: "},
        {"", "x", "x", "       F: "},
        {"ABCDEFGHIJKL", repeated('n', 187), repeated('n', 187), "ABCDEFGF: "},
        {"ABCDEFG", repeated('n', 188), repeated('n', 187), "ABCDEFGF: "},
        {"ABCDEFG", repeated('n', 300), repeated('n', 187), "ABCDEFGF: "},
    };
    for (auto const& c : cases) {
        clearTrace();
        { XTrace scope(c.mask, 'F', c.name.c_str()); }
        try {
            XTrace scope(7, c.mask, 'F', c.name.c_str());
            throw 1;  // which closes it too
        } catch (int) {
        }
        ASSERT_EQ(traceCalls().size(), 4u);
        TraceCall const* call = traceCalls().data();
        EXPECT_EQ(call[0].function, TraceCall::trace);
        EXPECT_EQ(call[0].line, c.prefix + "> " + c.rest);
        EXPECT_EQ(call[1].function, TraceCall::traceCb);
        EXPECT_EQ(call[1].handle, 0u);
        EXPECT_EQ(call[1].line, c.prefix + "< " + c.rest);
        EXPECT_EQ(call[2].function, TraceCall::traceCb);
        EXPECT_EQ(call[2].handle, 7u);
        EXPECT_EQ(call[2].line, call[0].line);
        EXPECT_EQ(call[3].handle, 7u);
        EXPECT_EQ(call[3].line, call[1].line);
    }
}

TEST(Trace, LaysOutSingleLines) {
    clearTrace();
    XTrace::write("XLIBBLK", 'D', "Returning 0");
    XTrace::write(9, "AB", 'T', "");
    XTrace::write("XLIBBLK", 'D', repeated('t', 189).c_str());
    XTrace::write("XLIBBLK", 'D', repeated('t', 300).c_str());
    ASSERT_EQ(traceCalls().size(), 4u);
    EXPECT_EQ(traceCalls()[0].function, TraceCall::traceCb);
    EXPECT_EQ(traceCalls()[0].line, "XLIBBLKD: Returning 0");
    EXPECT_EQ(traceCalls()[1].handle, 9u);
    EXPECT_EQ(traceCalls()[1].line, "AB     T: ");
    EXPECT_EQ(traceCalls()[2].line, "XLIBBLKD: " + repeated('t', 189));
    EXPECT_EQ(traceCalls()[3].line, traceCalls()[2].line);
}

TEST(Trace, LaysOutDumpLabels) {
    struct {
        char const* title;
        std::string label;
    } const cases[] = {
        {nullptr, "XLIBLGDD:"},
        {"", "XLIBLGDD:"},
        {"input", "XLIBLGDD: input"},
        {"0123456789012345678901234567890123456789", "XLIBLGDD: 012345678901234567890123456789"},
    };
    char const data[] = "abc";
    for (auto const& c : cases) {
        clearTrace();
        XTrace::dumpBytes("XLIBLGD", 'D', c.title, data, 3);
        XTrace::dumpBytes(5, "XLIBLGD", 'D', c.title, data, 2);
        ASSERT_EQ(traceCalls().size(), 2u);
        for (TraceCall const& call : traceCalls()) {
            EXPECT_EQ(call.function, TraceCall::dumpBytesCb);
            EXPECT_EQ(call.line, c.label);
            EXPECT_EQ(call.data, data);
        }
        EXPECT_EQ(traceCalls()[0].length, 3ul);
        EXPECT_EQ(traceCalls()[1].length, 2ul);
        EXPECT_EQ(traceCalls()[1].handle, 5u);
    }
}

void expectRendered(unsigned long number) {
    clearTrace();
    traceLine("XLIBBLK", 'D', number, " ", hexadecimal(number), " ", hexadecimal(number, 8), " ",
              hexadecimal(number, 16));
    char expected[100];
    std::snprintf(expected, sizeof expected, "XLIBBLKD: %lu %lX %08lX %016lX", number, number, number & 0xFFFFFFFF,
                  number);
    ASSERT_EQ(traceCalls().at(0).line, expected);
}

TEST(Trace, RendersNumbersOfAllLengths) {
    for (unsigned long power = 1; power != 0; power = power > ~0UL / 10 ? 0 : power * 10) {
        for (unsigned long digit = 1; digit < 10; ++digit) {
            expectRendered(power * digit - 1);
            expectRendered(power * digit);
            expectRendered(power * digit + power / 7);
        }
    }
    for (unsigned long power = 1; power != 0; power *= 2) {
        expectRendered(power);
        expectRendered(~power);
    }
    EXPECT_EQ(message(0, " ", -1, " ", INT_MIN, " ", 65535), "0 -1 -2147483648 65535");
}

TEST(Trace, CutsALineThatIsPutTogetherAtAnyPiece) {
    for (std::size_t length = 150; length < 200; ++length) {
        clearTrace();
        std::string const text = repeated('t', length);
        traceLine("XLIBBLK", 'D', "text=", text.c_str(), ", number=", ~0UL, ", ", text.c_str());
        std::string const whole = "XLIBBLKD: text=" + text + ", number=" + std::to_string(~0UL) + ", " + text;
        EXPECT_EQ(traceCalls().at(0).line, whole.substr(0, 199));
    }
}

}  // namespace
