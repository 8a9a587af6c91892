// Exhausted memory: each operation is repeated with its first, second, third ... allocation
// failing, until one run needs no more. Each time nothing may leak, no scope stay open and nothing
// be half-changed.

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "support/failingnew.h"
#include "support/fakeservices.h"
#include "support/hex.h"
#include "zelqcood/block.h"
#include "zelqcood/exception.h"

namespace {

char someBytes[] = "0123456789";
char const longText[] =
    "a text that does not fit into the place that a string has inside, since it is much longer than one hundred and "
    "twenty-seven characters";

XLog richLog(char const* eventName) {
    XLog log(1, 2, 3, eventName, XLog::error, longText);
    log.addData(XLogData(someBytes, 5, 1)).addData(XMicrocodeLogData(someBytes, 5, XMicrocodeLogData::textFormat));
    return log;
}

std::string hexOf(XLog const& log) {
    return toHex(Block(log.asBinary()));
}

void expectBalancedScopes() {
    std::vector<std::string> open;
    for (TraceCall const& call : traceCalls()) {
        std::string const key = call.line.substr(0, 10) + call.line.substr(std::min<std::size_t>(12, call.line.size()));
        if (call.line.compare(10, 2, "> ") == 0) {
            open.push_back(key);
        } else if (call.line.compare(10, 2, "< ") == 0) {
            ASSERT_FALSE(open.empty());
            EXPECT_EQ(open.back(), key);
            open.pop_back();
        }
    }
    EXPECT_TRUE(open.empty());
}

// Whether an operation destroys logs of its own on its way: a destructor keeps a failure to itself.
enum class Destroys { nothing, logs };

// Runs the operation with each of its allocations failing once. `unchanged` describes what the
// operation works on and must answer the same after every failure.
void failEach(
    std::string const& name, std::function<void()> const& operation,
    std::function<std::string()> const& unchanged = [] { return std::string(); },
    Destroys destroys = Destroys::nothing) {
    SCOPED_TRACE(name);
    std::string const before = unchanged();
    unsigned failures = 0;
    for (bool failed = true; failed; ++failures) {
        clearTrace();
        long const live = liveAllocations();
        bool thrown = false;
        failAllocation(failures + 1);
        try {
            operation();
        } catch (std::bad_alloc const&) {
            thrown = true;
        }
        failed = hasFailed();
        failAllocation(0);
        EXPECT_TRUE(thrown == failed || destroys == Destroys::logs) << "allocation " << failures + 1;
        expectBalancedScopes();
        if (thrown) {
            EXPECT_EQ(liveAllocations(), live) << "allocation " << failures + 1;
            ASSERT_EQ(unchanged(), before) << "allocation " << failures + 1;
        }
        ASSERT_LT(failures, 1000u);
    }
    EXPECT_GT(failures, 1u) << "nothing failed";
}

TEST(Allocation, OfBlocks) {
    unsigned char* block = createBlock(1, 1);
    Block const child(createBlock(2, 1));
    unsigned char const* address = block;
    auto const whole = [&] { return (address == block ? "same " : "other ") + toHex(block, sizeOf(block)); };
    failEach("createBlock", [] { delete[] createBlock(1, 1); });
    failEach("findBlock", [&] { findBlock(block, 1); });
    failEach(
        "addHeaderBlock", [&] { addHeaderBlock(&block, 3, 1, 1, nullptr); }, whole);
    address = block;
    failEach(
        "addBlock", [&] { addBlock(&block, child.get()); }, whole);
    delete[] block;
}

TEST(Allocation, OfDataItems) {
    XLogData item(someBytes, 5, 1);
    XLogData const other(someBytes, 9, 2);
    XMicrocodeLogData const text(someBytes, 5, XMicrocodeLogData::textFormat);
    Block const itemBlock(item.asBinary());
    Block const textBlock(text.asBinary());
    auto const whole = [&] { return toHex(Block(item.asBinary())); };
    failEach("construct", [] { XLogData(someBytes, 5, 1); });
    failEach("copy", [&] { XLogData copy(item); });
    failEach("clone", [&] { delete text.clone(); });
    failEach(
        "asBinary", [&] { Block(item.asBinary()); }, whole);
    failEach("asBinary of text", [&] { Block(text.asBinary()); });
    failEach("rebuild", [&] { XLogData rebuilt(itemBlock.get()); });
    failEach("rebuild text", [&] { XMicrocodeLogData rebuilt(textBlock.get()); });
    failEach(
        "setData", [&] { item.setData(someBytes, 7); }, whole);
    failEach(
        "assign", [&] { item = other; }, whole);
}

TEST(Allocation, OfLogs) {
    XLog log(richLog("event"));
    XLog const other(richLog(longText));
    Block const block(log.asBinary());
    auto const whole = [&] { return hexOf(log); };
    std::unique_ptr<XLog> made;  // a destructor would swallow the failure
    failEach("construct", [&] { made.reset(new XLog(1, 2, 3, longText, XLog::error, longText)); });
    made.reset();
    failEach("copy", [&] { made.reset(new XLog(other)); });
    made.reset();
    failEach(
        "asBinary", [&] { Block(log.asBinary()); }, whole);
    failEach("rebuild", [&] { made.reset(new XLog(block.get())); });
    failEach(
        "data", [&] { log.data(); }, whole);
    failEach(
        "addData", [&] { log.addData(XLogData(someBytes, 1, 1)); }, whole);
    failEach(
        "setEventName", [&] { log.setEventName(longText); }, whole);
    failEach(
        "setLogId", [&] { log.setLogId((std::string(longText) + longText).c_str()); }, whole);
    log = richLog("event");
    failEach(
        "assign", [&] { log = other; }, whole);
    failEach(
        "removeAllData", [&] { log.removeAllData(); }, whole);
}

TEST(Allocation, OfMicrocodeLogs) {
    setBacktrace(longText);
    setFetchService([](char, char* buffer, unsigned) {
        buffer[0] = 'x';
        return 0;
    });
    XMicrocodeLog::Attribute const all = XLog::informational;
    XEndMicrocodeLog log(1, 2, 3, 4, "event", longText, XMicrocodeLog::omitAllTraces, 0, longText);
    XEndMicrocodeLog other(5, 6, 7, 8, "other", longText, all, 0, "");
    other.addData(XLogData(someBytes, 5, 1));
    other.secondaryRefcodes()->emplace_back(1, 2, 3, 4);
    Block const block(other.asBinary());
    auto const whole = [&] { return toHex(Block(log.asBinary())); };
    std::unique_ptr<XMicrocodeLog> made;
    failEach("construct", [&] { made.reset(new XEndMicrocodeLog(1, 2, 3, 4, longText, longText, all, 0, longText)); });
    made.reset();
    failEach("construct by default", [&] { made.reset(new XEndMicrocodeLog()); });
    made.reset();
    failEach("clone", [&] { made.reset(other.clone()); });
    made.reset();
    failEach("rebuild", [&] { made.reset(new XEndMicrocodeLog(block.get())); });
    failEach("asBinary", [&] { Block(other.asBinary()); });
    failEach(
        "merge", [&] { log += other; }, whole);
    failEach(
        "setText", [&] { log.setText((std::string(longText) + longText).c_str()); }, whole);
    failEach(
        "addTraceBlocks", [&] { log.addTraceBlocks(3, 3, 3); }, whole);
    failEach(
        "secondaryRefcodes", [&] { log.secondaryRefcodes(); }, whole);
    setBacktrace(nullptr);
    setFetchService(nullptr);
}

TEST(Allocation, OfExceptions) {
    XEndMicrocodeLog log(1, 2, 3, 4, "event", longText, XMicrocodeLog::omitAllTraces, 0, longText);
    XMicrocodeLogData const item(someBytes, 5, XMicrocodeLogData::textFormat);
    XException exception(longText, ZoException::recoverable, 0);
    exception.addLocation(ZoExceptionLocation("file", longText, 42));
    exception.setLogInfo(&log);
    Block const block(exception.asBinary());
    XException const rebuilt(block.get());
    auto const whole = [&] { return toHex(Block(exception.asBinary())); };
    std::unique_ptr<XBaseException> made;
    failEach("construct", [&] { made.reset(new XException(longText, ZoException::recoverable, 0)); });
    made.reset();
    failEach("copy", [&] { made.reset(new XException(rebuilt)); });
    made.reset();
    failEach("convert", [&] { made.reset(new XException(static_cast<ZoException const&>(rebuilt))); });
    made.reset();
    failEach(
        "rebuild", [&] { XException const again(block.get()); }, [] { return std::string(); }, Destroys::logs);
    failEach("asBinary", [&] { Block(rebuilt.asBinary()); });
    failEach("asString", [&] { rebuilt.asString(); });
    failEach("asTrace", [&] { rebuilt.asTrace(longText, 'F'); });
    failEach(
        "setLogInfo", [&] { exception.setLogInfo(&log); }, whole, Destroys::logs);
    failEach(
        "addData", [&] { exception.addData(item); }, whole);
    failEach(
        "data", [&] { exception.data(1); }, whole);
}

// Records an object again and again, with each allocation of the recording failing once. The items
// that go in front for the recording may stay, but then they belong to the log.
template <class Make, class Record>
void failEachRecording(Make make, Record record) {
    bool failed = true;
    for (unsigned n = 1; failed; ++n) {
        long const live = liveAllocations();
        {
            auto const object = make();
            clearTrace();
            failAllocation(n);
            bool thrown = false;
            try {
                record(*object);
            } catch (std::bad_alloc const&) {
                thrown = true;
            }
            failed = hasFailed();
            failAllocation(0);
            expectBalancedScopes();
            if (auto const* const exception = dynamic_cast<XBaseException const*>(object.get())) {
                EXPECT_EQ(exception->isLogged(), thrown ? 0 : 1) << n;
            }
        }
        EXPECT_EQ(liveAllocations(), live) << n;
        ASSERT_LT(n, 100u);
    }
}

std::unique_ptr<ZoException> newException() {
    auto exception = std::make_unique<XException>(longText, ZoException::recoverable, 0);
    XEndMicrocodeLog log(1, 2, 3, 4, "event", longText, XMicrocodeLog::omitAllTraces, 0, "");
    log.secondaryRefcodes()->emplace_back(1, 2, 3, 4);
    exception->setLogInfo(&log);
    return exception;
}

TEST(Allocation, OfRecordings) {
    failEachRecording(newException, [](ZoException& exception) {
        XBaseException& base = dynamic_cast<XBaseException&>(exception);
        base.asLog();
    });
    failEachRecording(newException, [](ZoException& exception) {
        XBaseException& base = dynamic_cast<XBaseException&>(exception);
        base.logInfo()->log();
        base.setLogged(1);
    });
}

// Without its array of entries a log goes out without its data: that failure throws nothing.
TEST(Allocation, OfTheRecordedEntries) {
    XLog log(richLog("event"));
    std::string const before = hexOf(log);
    for (unsigned n = 1; n <= 2; ++n) {
        clearTrace();
        long const live = liveAllocations();
        failAllocation(n);
        if (n == 1) {
            EXPECT_THROW(log.log(), std::bad_alloc);
        } else {
            EXPECT_NO_THROW(log.log());
        }
        EXPECT_TRUE(hasFailed());
        failAllocation(0);
        EXPECT_EQ(liveAllocations(), live);
        expectBalancedScopes();
        EXPECT_EQ(hexOf(log), before);
    }
}

// A destructor cannot pass the failure on: the items go, without their trace lines.
TEST(Allocation, OfTheDestructorsScope) {
    long const live = liveAllocations();
    auto* const log = new XLog(richLog("event"));
    clearTrace();
    failAllocation(1);
    delete log;
    EXPECT_TRUE(hasFailed());
    failAllocation(0);
    EXPECT_EQ(liveAllocations(), live);
    EXPECT_EQ(tracedText(), "");
}

}  // namespace
