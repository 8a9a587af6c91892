// What the library's operations write into the trace, all of it; and how lines are put together.

#include <gtest/gtest.h>

#include <climits>

#include "support/files.h"
#include "support/sampleblocks.h"
#include "trace/message.h"
#include "zelqcood/block.h"
#include "zelqcood/trace.h"
#include "zelqcood/trap.h"

namespace {

// What a line or a label is made in was used before.
[[gnu::noinline]] void fillTheStack() {
    char volatile used[4096];
    for (char volatile& byte : used) {
        byte = 'x';
    }
}

class Listing {
public:
    template <class Operation>
    void add(char const* title, Operation operation) {
        clearTrace();
        fillTheStack();
        operation();
        for (TraceCall const& call : traceCalls()) {
            EXPECT_EQ(call.last, '\0') << call.line;
        }
        text_ += text_.empty() ? "" : "\n";
        text_ += "# " + std::string(title) + "\n" + tracedText();
    }
    std::string const& text() const { return text_; }

private:
    std::string text_;
};

TEST(Trace, ListsEachOperation) {
    Listing listing;
    listing.add("Scopes: a mask fills its field, a name what is left of the line", [] {
        std::string const longName(188, 'n');
        std::pair<char const*, char const*> const scopes[] = {{"XLIBBLK", "findBlock"},
                                                              {"ABC", ""},
                                                              {"", "x"},
                                                              {"ABCDEFGHIJKL", longName.c_str() + 1},
                                                              {"ABCDEFG", longName.c_str()}};
        for (auto const& [mask, name] : scopes) {
            XTrace const scope(mask, 'F', name);
            try {
                XTrace const inner(7, mask, 'F', name);
                throw 1;  // which closes it too
            } catch (int) {
            }
        }
        EXPECT_EQ(traceCalls()[0].function, TraceCall::trace);
        EXPECT_EQ(traceCalls()[1].function, TraceCall::traceCb);
        EXPECT_EQ(traceCalls()[3].function, TraceCall::traceCb);
    });
    listing.add("Single lines", [] {
        XTrace::write("XLIBBLK", 'D', "Returning 0");
        XTrace::write(9, "AB", 'T', "");
        XTrace::write("XLIBBLK", 'D', std::string(189, 't').c_str());
        XTrace::write("XLIBBLK", 'D', std::string(300, 't').c_str());
    });
    listing.add("Dumps", [] {
        XTrace::dumpBytes("XLIBLGD", 'D', nullptr, "abc", 3);
        XTrace::dumpBytes("XLIBLGD", 'D', "", "abc", 2);
        XTrace::dumpBytes(5, "XLIBLGD", 'D', "input", "abc", 2);
        XTrace::dumpBytes("XLIBLGD", 'D', "0123456789012345678901234567890123456789", "abc", 0);
    });
    unsigned char* block = nullptr;
    listing.add("Blocks: create, append a child without and with a block of its own, search", [&] {
        unsigned char bytes[] = {1, 2};
        block = createBlock(0x8005, 1);
        addHeaderBlock(&block, 2, 0, 1, bytes);
        Block const child(createBlock(65535, 1));
        addBlock(&block, child.get());
        findBlock(block, 3);
    });
    delete[] block;

    GuardedBlock const rich(richBlock(endMicrocodeLog));
    std::unique_ptr<XEndMicrocodeLog> log;
    listing.add("A microcode log is read", [&] { log = std::make_unique<XEndMicrocodeLog>(rich.get()); });
    listing.add("It is written", [&] { Block(log->asBinary()); });
    listing.add("It is recorded", [&] { log->log(); });
    XLog target(*log);
    listing.add("A log is assigned", [&] { target = *log; });
    listing.add("A log is assigned to itself", [&, &self = target] { target = self; });
    fake.record = [](xlog_record_interface*, int*) -> int { throw 1; };
    listing.add("The service throws", [&] { EXPECT_THROW(target.log(), int); });
    fake.record = nullptr;

    listing.add("An exception begins and ends", [] { XException("open failed", ZoException::recoverable, 0); });
    listing.add("One without a text", [] { XTrapException(static_cast<char*>(nullptr), 1); });
    XException thrown("open failed", ZoException::recoverable, 0);
    fake.backtrace = "#0 main\n#1 start";
    XEndMicrocodeLog backtraced(1, 2, 3, 4, "EV", "", XMicrocodeLog::omitAllTraces, 0, "ID");
    fake.backtrace = nullptr;
    thrown.addLocation(ZoExceptionLocation("mod_a", "f", 42));
    thrown.addLocation(ZoExceptionLocation("mod_b", nullptr, 1234567));
    thrown.setLogInfo(&backtraced);
    listing.add("It is written into the trace", [&] { EXPECT_EQ(&thrown.asTrace("MYCOMP", 'W'), &thrown); });
    EXPECT_STREQ(thrown.asString(),
                 "XException: open failed\n#0 main\n#1 start\n\nException Location Information\n"
                 "  at Line:    42 in File: mod_a\n  at Line: 34567 in File: mod_b\n");
    thrown.setLogged(1);
    listing.add("It is recorded, but has been before", [&] { thrown.asLog(); });

    struct TracedLog : XEndMicrocodeLog {
        XEndMicrocodeLog* clone() override {
            XTrace::write("MYCOMP", 'W', "clone");
            return new TracedLog(*this);
        }
    } traced;
    thrown.setLogInfo(&traced);
    std::unique_ptr<XException> copy;
    listing.add("It is copied, with a log of a class of the program's own",
                [&] { copy = std::make_unique<XException>(thrown); });

    listing.add("A trap handler begins and ends",
                [] { XTrapHandler const handler(XTrapHandler::serviceProcess, [](int, siginfo*, void*) {}); });
    EXPECT_EQ(listing.text(), contents(EXPECTED_FILES "/trace.txt"));
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
        std::string const text = std::string(length, 't');
        traceLine("XLIBBLK", 'D', "text=", text.c_str(), ", number=", ~0UL, ", ", text.c_str());
        std::string const whole = "XLIBBLKD: text=" + text + ", number=" + std::to_string(~0UL) + ", " + text;
        EXPECT_EQ(traceCalls().at(0).line, whole.substr(0, 199));
    }
}

}  // namespace
