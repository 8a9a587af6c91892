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

std::string bytesOf(XLogData const& item) {
    return std::string(static_cast<char const*>(item.data()), item.size());
}

XEndMicrocodeLog exampleLog(char const* logText) {
    return XEndMicrocodeLog(0xDE, 0x3000, 0x30, 7, "EV", logText, XMicrocodeLog::omitAllTraces, 0, "ID");
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

// The names that came out of its block stay behind then.
TEST(Exception, IsCopiedAfterAnAssignmentOverItsLocations) {
    XException source("abc", ZoException::recoverable, 0);
    source.addLocation(ZoExceptionLocation("mod_a", "f", 1));
    source.addLocation(ZoExceptionLocation("mod_b", "g", 2));
    Block const block(source.asBinary());
    for (unsigned long const count : {0ul, 1ul, 3ul}) {
        ZoException other("other", 0, ZoException::recoverable);
        for (unsigned long line = 1; line <= count; ++line) {
            other.addLocation(ZoExceptionLocation("new", nullptr, line));
        }
        auto rebuilt = std::make_unique<XException>(block.get());
        static_cast<ZoException&>(*rebuilt) = other;
        XException const copy(*rebuilt);
        rebuilt.reset();
        ASSERT_EQ(copy.locationCount(), count);
        for (unsigned long i = 0; i < count; ++i) {
            EXPECT_STREQ(copy.locationAtIndex(i)->fileName(), "new");
            EXPECT_EQ(copy.locationAtIndex(i)->functionName(), nullptr);
            EXPECT_EQ(copy.locationAtIndex(i)->lineNumber(), i + 1);
        }
    }
}

TEST(Exception, ReadsWhatIsOdd) {
    XException exception("abc", ZoException::recoverable, 9);
    exception.addLocation(ZoExceptionLocation("mod_a", "f", 42));
    exception.setErrorCodeGroup("group");
    Block block(exception.asBinary());
    EXPECT_EQ(XException(block.get()).errorCodeGroup(), sizeof(void*) == 4 ? exception.errorCodeGroup() : nullptr);
    // Another kind's block is read, and complained of.
    clearTrace();
    XTrapException const other(block.get());
    EXPECT_EQ(reportedLines(), std::vector<std::string>{"XLIBEXCF: Invalid data type (got 32768, expecting 0x8001)"});
    EXPECT_STREQ(other.name(), "XException");
    EXPECT_EQ(other.locationCount(), 1ul);
    Block const textless(XTrapException(static_cast<char*>(nullptr), 0).asBinary());
    EXPECT_EQ(XTrapException(textless.get()).text(), nullptr);
    // A name without a zero byte ends with its field.
    GuardedBlock const named(
        withSizes("..0880 0100 2C000000 0000 0100 01000000 00000000 34120000 4E4E4E4E 4E4E4E4E"
                  "4E4E4E4E 4E4E4E4E 4E4E4E4E 41414141"));
    EXPECT_EQ(std::string(XBaseException(named.get()).name()), std::string(20, 'N'));
    fake.unreadable = block.get();  // and not touched
    clearTrace();
    char expected[64];
    std::snprintf(expected, sizeof expected, "XLIBEXCF: Invalid data pointer: 0x%08lX",
                  reinterpret_cast<unsigned long>(block.get()) & 0xFFFFFFFF);
    XException const unreadable(block.get());
    EXPECT_EQ(reportedLines(), (std::vector<std::string>{"XLIBEXCF: Invalid data pointer: 0x00000000", expected}));
    fake.unreadable = nullptr;
    EXPECT_STREQ(unreadable.text(), "DummyText");
}

TEST(Exception, IsRecordedOnce) {
    std::vector<std::string> items;
    int records = 0;
    fake.record = [&](xlog_record_interface* given, int*) {
        ++records;
        items.clear();
        for (auto const* entry = given->details; entry != nullptr; entry = entry->next) {
            items.push_back(toHex(&entry->id, 1) + " " +
                            std::string(static_cast<char const*>(entry->data), entry->size));
        }
        return 12;
    };
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
    exception.asLog();
    EXPECT_EQ(records, 1);

    struct LookingException : XException {
        using XException::XException;
        ZoString asString() const override {
            seen = bytesOf(*data(1));
            return XException::asString();
        }
        mutable std::string seen;
    } looking("abc", ZoException::recoverable, 0);
    looking.asLog();
    EXPECT_EQ(looking.seen, "Exception logged without a log object");
    EXPECT_EQ(records, 2);

    XEndMicrocodeLog silent = exampleLog("");
    exception.setLogInfo(&silent).setLogged(0);
    exception.asLog();
    EXPECT_EQ(records, 3);
    EXPECT_EQ(items.size(), 2u);
    EXPECT_EQ(text(exception.logInfo()->text()), "");

    fake.record = [](xlog_record_interface*, int*) -> int { throw 1; };
    XEndMicrocodeLog telling = exampleLog("own text");
    exception.setLogInfo(&telling).setLogged(0);
    EXPECT_THROW(exception.asLog(), int);
    fake.record = nullptr;
    EXPECT_EQ(exception.isLogged(), 0);
    EXPECT_EQ(text(exception.logInfo()->text()), "XException: abc");
}

}  // namespace
