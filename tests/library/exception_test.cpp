#include "zelqcood/exception.h"

#include <gtest/gtest.h>

#include <exception>
#include <memory>
#include <string>
#include <thread>

#include "support/failingnew.h"
#include "support/fakeservices.h"
#include "support/guardedblock.h"

namespace {

std::string text(ZoString const& string) {
    return std::string(static_cast<char const*>(string));
}

XEndMicrocodeLog exampleLog(char const* logText) {
    return XEndMicrocodeLog(0xDE, 0x3000, 0x30, 7, "EV", logText, XMicrocodeLog::omitAllTraces, 0, "ID");
}

// The example of the block layout, with its fixed fields filled in.
XBaseException exampleException() {
    XBaseException exception("abc", ZoException::recoverable, 0);
    exception.setErrorId(0x1234);
    exception.addLocation(ZoExceptionLocation("mod_a", "f", 42));
    return exception;
}
std::string const exampleBlock =
    "6C 00 00 00 08 80 01 00 2C 00 00 00 00 00 01 00 01 00 00 00 00 00 00 00 34 12 00 00 "
    "58 42 61 73 65 45 78 63 65 70 74 69 6F 6E 00 00 00 00 00 00 00 00 00 00 "
    "0C 00 00 00 01 00 01 00 61 62 63 00 2C 00 00 00 02 00 01 00 0E 00 00 00 03 00 01 00 6D 6F 64 5F 61 00 "
    "0A 00 00 00 04 00 01 00 66 00 0C 00 00 00 05 00 01 00 2A 00 00 00";

TEST(Exception, TracesItsLife) {
    clearTrace();
    { XException exception("open failed", ZoException::recoverable, 0); }
    std::string lines = tracedText();
    std::size_t const address = lines.find("this=0x") + 7;
    EXPECT_EQ(lines.substr(address + 8, 1), "\n");
    EXPECT_EQ(lines.replace(address, 8, "@"), R"(XLIBEXCT: > XBaseException
XLIBEXCF: errorText=open failed
XLIBEXCF: severity=recoverable, logged=false
XLIBEXCT: < XBaseException
XLIBEXCD: > XException
XLIBEXCD: < XException
XLIBEXCD: > ~XException
XLIBEXCD: < ~XException
XLIBEXCD: > ~XBaseException
XLIBEXCD: this=0x@
XLIBEXCD: < ~XBaseException
)");
    clearTrace();
    XTrapException const trap(static_cast<char*>(nullptr), 1);
    EXPECT_EQ(traceCalls()[1].line, "XLIBEXCF: errorText=NULL");
    EXPECT_EQ(traceCalls()[2].line, "XLIBEXCF: severity=nonrecoverable, logged=true");
    EXPECT_STREQ(trap.name(), "XTrapException");
    EXPECT_FALSE(trap.isRecoverable());
}

TEST(Exception, ReachesItsItemsThroughItsLog) {
    XException exception("text", ZoException::recoverable, 5);
    char word[] = "item";
    XMicrocodeLogData const item(word, 4, XMicrocodeLogData::textFormat);
    exception.addData(item);
    EXPECT_EQ(exception.dataCount(), 0u);
    XLogData const* const none = exception.data(1);
    EXPECT_EQ(none->size(), 0ul);
    EXPECT_EQ(none->blockId(), XMicrocodeLogData::binaryFormat);
    XEndMicrocodeLog log = exampleLog("");
    exception.setLogInfo(&log);
    EXPECT_EQ(exception.data(0), none);
    exception.addData(item).addData(item).addData(item);
    EXPECT_EQ(log.data()->size(), 0u);
    EXPECT_EQ(exception.dataCount(), 3u);
    EXPECT_EQ(exception.data(0), exception.logInfo()->data()->front());
    EXPECT_EQ(exception.data(1), exception.data(0));
    EXPECT_EQ(exception.data(3), exception.logInfo()->data()->back());
    EXPECT_EQ(exception.data(4), none);
    exception.setLogInfo(exception.logInfo());
    EXPECT_EQ(exception.dataCount(), 3u);
    EXPECT_EQ(exception.isLogged(), 5);
}

// Catching by value is what is tried here.
#pragma GCC diagnostic ignored "-Wcatch-value"

// However it is caught, the caught exception has everything of its own, and nothing leaks.
TEST(Exception, SharesNothingWhenThrown) {
    long const live = liveAllocations();
    {
        auto source = std::make_unique<XException>("abc", ZoException::recoverable, 0);
        XEndMicrocodeLog log = exampleLog("log text");
        source->addLocation(ZoExceptionLocation("mod_a", nullptr, 42));
        source->setLogInfo(&log);
        auto rebuilt = std::make_unique<XException>(Block(source->asBinary()).get());
        source.reset();
        std::exception_ptr carried;
        auto const check = [](XBaseException const& caught) {
            EXPECT_STREQ(caught.text(), "abc");
            EXPECT_STREQ(caught.name(), "XException");
            EXPECT_STREQ(caught.locationAtIndex(0)->fileName(), "mod_a");
            EXPECT_EQ(caught.locationAtIndex(0)->functionName(), nullptr);
            EXPECT_EQ(text(caught.logInfo()->text()), "log text");
        };
        try {
            try {
                XException const copy(*rebuilt);
                EXPECT_NE(copy.logInfo(), rebuilt->logInfo());
                EXPECT_NE(copy.locationAtIndex(0)->fileName(), rebuilt->locationAtIndex(0)->fileName());
                rebuilt.reset();
                throw XException(copy);
            } catch (XBaseException const& caught) {
                check(caught);
                throw;
            }
        } catch (XException caught) {
            check(caught);
            carried = std::current_exception();
        }
        std::thread([&] {
            try {
                std::rethrow_exception(carried);
            } catch (ZoException const& caught) {
                check(dynamic_cast<XBaseException const&>(caught));
                XException const sliced(caught);
                EXPECT_STREQ(sliced.name(), "XException");
                EXPECT_EQ(sliced.logInfo(), nullptr);
            }
        }).join();
    }
    EXPECT_EQ(liveAllocations(), live);
}

TEST(Exception, WritesAndRebuildsItsBlock) {
    EXPECT_EQ(toHex(Block(exampleException().asBinary())), exampleBlock);
    XException exception("abc", ZoException::recoverable, 9);
    exception.addLocation(ZoExceptionLocation("mod_a", "f", 42));
    exception.addLocation(ZoExceptionLocation("mod_b", nullptr, 43));
    EXPECT_EQ(toHex(Block(exception.asBinary()).get(), 16), "9E 00 00 00 00 80 01 00 96 00 00 00 08 80 01 00");
    XEndMicrocodeLog log = exampleLog("log text");
    exception.setLogInfo(&log);
    exception.setErrorCodeGroup("group");
    Block block(exception.asBinary());
    clearTrace();
    auto const rebuilt = std::make_unique<XException>(block.get());
    EXPECT_EQ(reportedLines(), std::vector<std::string>());
    EXPECT_EQ(toHex(Block(rebuilt->asBinary())), toHex(block));
    EXPECT_EQ(rebuilt->errorCodeGroup(), sizeof(void*) == 4 ? exception.errorCodeGroup() : nullptr);
    Block const text(XTrapException(static_cast<char*>(nullptr), 0).asBinary());
    EXPECT_EQ(toHex(Block(XTrapException(text.get()).asBinary())), toHex(text));
    EXPECT_EQ(XTrapException(text.get()).text(), nullptr);
    // Another kind's block is read, and complained of.
    clearTrace();
    XTrapException const other(block.get());
    EXPECT_EQ(reportedLines(), std::vector<std::string>{"XLIBEXCF: Invalid data type (got 32768, expecting 0x8001)"});
    EXPECT_STREQ(other.name(), "XException");
    EXPECT_EQ(other.locationCount(), 2ul);
}

TEST(Exception, ReportsDamageInOneLine) {
    std::string const fields = "01000000 00000000 34120000 58000000 00000000 00000000 00000000 00000000 00000000";
    std::string const textChild = "0A000000 0100 0100 54 00";
    struct {
        std::string block;
        char const* line;
        char const* rendering;
    } const cases[] = {
        {"08000000 0280 0100", "Invalid data type (got 32770, expecting 0x8008)", ": DummyText"},
        {"08000000 0880 0200", "Invalid data format (got 2, expecting 1)", ": DummyText"},
        {"07000000 0880 0100", "Invalid data size (got 7, expecting at least 8)", ": DummyText"},
        {"3E000000 0880 0100 2C000000 0000 0200" + fields + textChild,
         "Invalid baseBlock data format (got 2, expecting 1)", ": T"},
        {"3D000000 0880 0100 2B000000 0000 0100" + fields.substr(0, fields.size() - 2) + textChild,
         "Invalid baseBlock data size (got 43, expecting at least 44)", ": T"},
        {"12000000 0880 0100 0A000000 0100 0300 54 00", "Invalid textBlock data format (got 3, expecting 1)",
         ": DummyText"},
        {"1A000000 0880 0100 08000000 0200 0300" + textChild, "Invalid locationBlock data format (got 3, expecting 1)",
         ": T"},
        {"1A000000 0880 0100 08000000 0900 0100" + textChild, "Unknown data type (0x9)", ": T"},
        {"1A000000 0880 0100 12000000 0200 0100 0A000000 0300 0200 41 00",
         "Invalid locFileBlock data format (got 2, expecting 1)",
         ": DummyText\n\nException Location Information\n  at Line:     0 in File: \n"},
        {"18000000 0880 0100 10000000 0200 0100 08000000 0700 0100", "Unknown location data type (0x7)",
         ": DummyText\n\nException Location Information\n  at Line:     0 in File: \n"},
        {"1B000000 0880 0100 13000000 0200 0100 0B000000 0500 0100 010203",
         "Invalid locLineBlock data size (got 11, expecting at least 12)",
         ": DummyText\n\nException Location Information\n  at Line:     0 in File: \n"},
        {"1A000000 0880 0100 12000000 0200 0100 0A000000 0300 0100 41 42",
         "Invalid locFileBlock data (no zero byte in 2 bytes)",
         ": DummyText\n\nException Location Information\n  at Line:     0 in File: AB\n"},
    };
    for (auto const& c : cases) {
        GuardedBlock const block(fromHex(c.block));
        clearTrace();
        XBaseException const exception(block.get());
        EXPECT_EQ(reportedLines(), std::vector<std::string>{std::string("XLIBEXCF: ") + c.line});
        EXPECT_EQ(text(exception.asString()), c.rendering);
    }
    // A location without a line has that of the one before it.
    GuardedBlock const lines(
        fromHex("24000000 0880 0100 14000000 0200 0100 0C000000 0500 0100 2A000000 08000000 0200 0100"));
    EXPECT_EQ(XBaseException(lines.get()).locationAtIndex(1)->lineNumber(), 42ul);
    // A name without a zero byte ends with its field; an unreadable block is not touched.
    Bytes named = fromHex("34000000 0880 0100 2C000000 0000 0100" + fields);
    std::fill(named.begin() + 28, named.begin() + 48, static_cast<unsigned char>('N'));
    EXPECT_EQ(std::string(XBaseException(GuardedBlock(named).get()).name()), std::string(20, 'N'));
    setUnreadable(named.data());
    clearTrace();
    char expected[64];
    std::snprintf(expected, sizeof expected, "XLIBEXCF: Invalid data pointer: 0x%08lX",
                  reinterpret_cast<unsigned long>(named.data()) & 0xFFFFFFFF);
    XException const unreadable(named.data());
    EXPECT_EQ(reportedLines(), (std::vector<std::string>{"XLIBEXCF: Invalid data pointer: 0x00000000", expected}));
    setUnreadable(nullptr);
    EXPECT_STREQ(unreadable.text(), "DummyText");
}

TEST(Exception, RendersItself) {
    XException exception("open failed", ZoException::recoverable, 0);
    EXPECT_EQ(text(exception.asString()), "XException: open failed");
    exception.addLocation(ZoExceptionLocation("mod_a", "f", 42));
    exception.addLocation(ZoExceptionLocation("mod_b", nullptr, 1234567));
    setBacktrace("#0 main\n#1 start");
    XEndMicrocodeLog log = exampleLog("x");
    setBacktrace(nullptr);
    exception.setLogInfo(&log);
    EXPECT_EQ(text(exception.asString()),
              "XException: open failed\n#0 main\n#1 start\n\nException Location Information\n"
              "  at Line:    42 in File: mod_a\n  at Line: 34567 in File: mod_b\n");
    clearTrace();
    EXPECT_EQ(&exception.asTrace("MYCOMP", 'W'), &exception);
    EXPECT_EQ(tracedText(),
              "MYCOMP W: XException: open failed\nMYCOMP W: #0 main\nMYCOMP W: #1 start\n"
              "MYCOMP W: Exception Location Information\nMYCOMP W:   at Line:    42 in File: mod_a\n"
              "MYCOMP W:   at Line: 34567 in File: mod_b\n");
}

TEST(Exception, IsRecordedOnce) {
    std::vector<std::string> items;
    int records = 0;
    setRecordService([&](xlog_record_interface* given, int*) {
        ++records;
        items.clear();
        for (auto const* entry = given->details; entry != nullptr; entry = entry->next) {
            items.push_back(toHex(&entry->id, 1) + " " +
                            std::string(static_cast<char const*>(entry->data), entry->size));
        }
        return 12;
    });
    XException exception("abc", ZoException::recoverable, 0);
    EXPECT_EQ(&exception.asLog(), &exception);
    ASSERT_EQ(items.size(), 3u);
    EXPECT_EQ(items[0], std::string("E0 XException: abc") + '\0');
    EXPECT_EQ(items[1], "E1 Exception logged without a log object");
    EXPECT_EQ(exception.isLogged(), 1);
    ASSERT_NE(exception.logInfo(), nullptr);
    EXPECT_STREQ(exception.logInfo()->eventName(), "LocalLib");
    EXPECT_EQ(text(exception.logInfo()->text()), "Exception logged without a log object");
    EXPECT_EQ(exception.dataCount(), 1u);
    clearTrace();
    exception.asLog();
    EXPECT_EQ(records, 1);
    EXPECT_EQ(tracedText(), "XLIBEXCF: > asLog\nXLIBEXCF: < asLog\n");

    XEndMicrocodeLog silent = exampleLog("");
    exception.setLogInfo(&silent).setLogged(0);
    exception.asLog();
    EXPECT_EQ(records, 2);
    EXPECT_EQ(items.size(), 2u);
    EXPECT_EQ(text(exception.logInfo()->text()), "");

    setRecordService([](xlog_record_interface*, int*) -> int { throw 1; });
    XEndMicrocodeLog telling = exampleLog("own text");
    exception.setLogInfo(&telling).setLogged(0);
    EXPECT_THROW(exception.asLog(), int);
    setRecordService(nullptr);
    EXPECT_EQ(exception.isLogged(), 0);
    EXPECT_EQ(text(exception.logInfo()->text()), "XException: abc");
}

}  // namespace
