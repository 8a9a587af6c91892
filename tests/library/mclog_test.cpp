#include "zelqcood/mclog.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "support/failingnew.h"
#include "support/sampleblocks.h"

namespace {

char word[] = "hello";

std::string text(ZoString const& string) {
    return std::string(static_cast<char const*>(string));
}

std::string bytesOf(XLogData const& item) {
    return std::string(static_cast<char const*>(item.data()), item.size());
}

PlainMicrocodeLog exampleLog() {
    return PlainMicrocodeLog(0x0A, 0xDE, 0x3000, 0x0030, 0x12345678, "EV", "T", XLog::error, 1, "ID");
}
TEST(MicrocodeLog, KeepsTheBacktraceOfItsBuilding) {
    std::exchange(fake.backtraceRequests, {});
    fake.backtrace = "0 main\n1 start";
    PlainMicrocodeLog log(exampleLog());
    XMicrocodeLog const& defaulted = PlainMicrocodeLog();
    XEndMicrocodeLog const end;
    EXPECT_EQ(std::exchange(fake.backtraceRequests, {}), (std::vector<int>{3, 3, 3}));
    EXPECT_EQ(text(log.backtrace()), "0 main\n1 start");
    EXPECT_EQ(text(defaulted.backtrace()), text(end.backtrace()));
    fake.backtrace = "0 other";
    Block block(log.asBinary());
    EXPECT_EQ(text(PlainMicrocodeLog(log).backtrace()), "0 main\n1 start");
    EXPECT_EQ(text(PlainMicrocodeLog(block.get()).backtrace()), "0 main\n1 start\nDeserialized\n0 other");
    EXPECT_EQ(std::exchange(fake.backtraceRequests, {}), std::vector<int>{3});
    block[4] = 9;
    EXPECT_EQ(text(PlainMicrocodeLog(block.get()).backtrace()), "");
    EXPECT_EQ(std::exchange(fake.backtraceRequests, {}), std::vector<int>());
    fake.backtrace = nullptr;
    block[4] = 3;
    EXPECT_EQ(text(PlainMicrocodeLog(block.get()).backtrace()), "0 main\n1 start");
    fake.backtrace = "";
    EXPECT_EQ(text(PlainMicrocodeLog(block.get()).backtrace()), "0 main\n1 start\nDeserialized\n");
    fake.backtrace = nullptr;
}

TEST(MicrocodeLog, WritesItsTextsToTheirEnds) {
    struct ZeroesLog : PlainMicrocodeLog {
        ZoString text() const override { return ZoString("a\0b", 3); }
        ZoString backtrace() const override { return ZoString("\0", 1); }
    };
    Block const block(ZeroesLog().asBinary());
    EXPECT_EQ(toHex(block.get() + 26, 12), "0C 00 00 00 01 00 01 00 61 00 62 00");
    EXPECT_EQ(toHex(block.get() + 38, 10), "0A 00 00 00 02 00 01 00 00 00");
}

TEST(MicrocodeLog, AddsItsFlagsToTheAttributes) {
    PlainMicrocodeLog log(0, 0, 0, 0, 0, nullptr, nullptr, XLog::informational, 0, nullptr);
    EXPECT_EQ(log.isStandardBlock(), 1);
    EXPECT_EQ(log.isError(), 0);
    EXPECT_EQ(log.isThreadTrace() + log.isProcessTrace() + log.isSystemTrace() + log.isBacktrace(), 4);
    EXPECT_EQ(log.isRebootSystem(), 0);
    EXPECT_EQ(log.enableBacktrace(0).isBacktrace(), 0);
    EXPECT_EQ(log.enableRebootSystem(5).isRebootSystem(), 1);
    Block const block(log.asBinary());
    EXPECT_EQ(toHex(block.get() + 64, 4), "40 12 00 00");
    EXPECT_EQ(log.enableBacktrace(5).isBacktrace(), 1);
    EXPECT_EQ(log.enableRebootSystem(0).isRebootSystem(), 0);
    EXPECT_EQ(XMicrocodeLog::omitAllTraces.asUnsignedLong(), 0xE000ul);
    EXPECT_EQ((~XMicrocodeLog::omitBacktrace).asUnsignedLong(), 0xFFFFFFBFul);
    EXPECT_EQ((~XMicrocodeLog::omitBacktrace).asExtendedUnsignedLong(), 0xFFFFFFFFul);
    EXPECT_EQ((XMicrocodeLog::omitBacktrace | XLog::error).asUnsignedLong(), 0x140ul);
    PlainMicrocodeLog const omitting(0, 0, 0, 0, 0, "", "", XLog::informational | XMicrocodeLog::omitProcessTrace, 0,
                                     "");
    EXPECT_EQ(omitting.isThreadTrace() * 100 + omitting.isProcessTrace() * 10 + omitting.isSystemTrace(), 101);
}

// One row for each way in which a merge can go. Refcodes are "id/reason", "-" for none.
TEST(MicrocodeLog, MergesByTheRules) {
    struct {
        char const* why;
        int owned;
        unsigned short id;
        char const* text;
        unsigned short otherId;
        char const* otherText;
        unsigned short resultId;
        char const* resultText;
        char const* secondary;
    } const cases[] = {
        {"both codes, both texts", 0, 1, "a", 2, "b", 2, "b\n\nSecondary text:\na", "1 "},
        {"no codes, no text", 0, 0, "a", 0, "", 0, "a", ""},
        {"other code, no text", 0, 1, "a", 2, "", 2, "a", "1 2 "},
        {"own code only", 0, 1, "", 0, "b", 1, "b\n\nSecondary text:\n", "1 "},
        {"other code only", 0, 0, "a", 2, "b", 2, "b\n\nSecondary text:\na", ""},
        {"owned, other text", 1, 1, "a", 2, "b", 1, "b\n\nSecondary text:\na", ""},
        {"owned, no other text", 1, 1, "a", 2, "", 1, "a", "2 "},
        {"owned, nothing comes in", 1, 1, "a", 0, "", 1, "a", ""},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.why);
        PlainMicrocodeLog log(1, 1, 1, c.id, 0, "A", c.text, XLog::error | XMicrocodeLog::rebootSystem, c.owned, "a");
        PlainMicrocodeLog other(2, 2, 2, c.otherId, 0, "B", c.otherText, XLog::logModifyBlock, 5, "b");
        other.enableStandardBlock(0);
        EXPECT_EQ(&(log += other), &log);
        bool const takenOver = c.owned == 0;
        bool const codeTakenOver = takenOver && c.otherId != 0;
        EXPECT_EQ(log.errorId(), c.resultId);
        EXPECT_EQ(log.logClass(), codeTakenOver ? 2 : 1);
        EXPECT_EQ(log.logType(), codeTakenOver ? 2 : 1);
        EXPECT_EQ(log.user(), codeTakenOver ? 2 : 1);
        EXPECT_STREQ(log.eventName(), takenOver ? "B" : "A");
        EXPECT_EQ(log.isError(), takenOver ? 0 : 1);
        EXPECT_EQ(log.isStandardBlock(), takenOver ? 0 : 1);
        EXPECT_EQ(log.isModifyBlock(), takenOver ? 1 : 0);
        EXPECT_EQ(log.isOwned(), takenOver ? 5 : 1);
        EXPECT_STREQ(log.logId(), "a");
        EXPECT_EQ(log.isRebootSystem(), 1);
        EXPECT_EQ(text(log.text()), c.resultText);
        std::string secondary;
        for (auto const& refcode : *log.secondaryRefcodes()) {
            secondary += std::to_string(refcode.errorId()) + " ";
            EXPECT_EQ(refcode.logClass(), refcode.errorId());
        }
        EXPECT_EQ(secondary, c.secondary);
    }
    PlainMicrocodeLog merged(exampleLog());
    merged.setOwned(0) += exampleLog();
    PlainMicrocodeLog copy(merged);
    copy.setOwned(0) += exampleLog();
    EXPECT_EQ(copy.secondaryRefcodes()->size(), 2u);
    EXPECT_EQ(merged.secondaryRefcodes()->size(), 1u) << "a copy shares its codes";
    // A reason alone is a reference code too.
    PlainMicrocodeLog log(1, 1, 1, 0, 8, "", "", XLog::error, 0, "");
    log += PlainMicrocodeLog(2, 2, 2, 0, 9, "", "x", XLog::error, 0, "");
    EXPECT_EQ(log.errorReason(), 9);
    EXPECT_EQ(log.secondaryRefcodes()->front().errorReason(), 8);
}

TEST(MicrocodeLog, KeepsOneTraceItemOfAKind) {
    PlainMicrocodeLog log(1, 1, 1, 1, 1, "", "", XMicrocodeLog::omitAllTraces, 1, "");
    log.addData(XLogData(word, 1, 238)).addData(XLogData(word, 1, 7));
    PlainMicrocodeLog other(exampleLog());
    for (int blockId : {237, 238, 239, 7, 239}) {
        other.addData(XLogData(word, 2, static_cast<unsigned short>(blockId)));
    }
    log += other;
    std::string items;
    for (XLogData const* item : *log.data()) {
        items += std::to_string(item->blockId()) + ":" + std::to_string(item->size()) + " ";
    }
    EXPECT_EQ(items, "238:1 7:1 237:2 239:2 7:2 ");
    EXPECT_EQ(log.isThreadTrace() * 100 + log.isProcessTrace() * 10 + log.isSystemTrace(), 101);
    log += log;  // not useful, but it ends
    EXPECT_EQ(log.data()->size(), 7u);
}

struct RecordedItem {
    int id;
    std::string bytes;
    bool operator==(RecordedItem const& other) const { return id == other.id && bytes == other.bytes; }
};

// Records the log and gives what the service saw.
std::vector<RecordedItem> record(XMicrocodeLog& log) {
    std::vector<RecordedItem> items;
    fake.record = [&](xlog_record_interface* given, int*) {
        for (auto const* entry = given->details; entry != nullptr; entry = entry->next) {
            items.push_back({entry->id, std::string(static_cast<char const*>(entry->data), entry->size)});
        }
        return 0;
    };
    EXPECT_EQ(&log.log(), &log);
    fake.record = nullptr;
    return items;
}

std::string const exampleCode("\x30\x00\x78\x56\x34\x12", 6);

TEST(MicrocodeLog, RecordsItsTextAndCodes) {
    PlainMicrocodeLog log(exampleLog());
    EXPECT_EQ(record(log), (std::vector<RecordedItem>{{0xE0, std::string("T\n\0", 3)}, {240, exampleCode}}));
    ASSERT_EQ(log.data()->size(), 1u);
    EXPECT_EQ(log.data()->front()->blockId(), 240);
    // The second recording carries the item of the first.
    EXPECT_EQ(record(log).size(), 3u);

    fake.backtrace = "0 main";
    PlainMicrocodeLog merged(10, 0xDE, 1, 0x30, 0, "", "", XLog::error, 0, "");
    fake.backtrace = nullptr;
    merged += PlainMicrocodeLog(11, 0xDF, 1, 0xABCD, -1, "", "", XLog::error, 0, "");
    merged.setErrorId(0x30).setErrorReason(0x12345678);
    EXPECT_EQ(record(merged),
              (std::vector<RecordedItem>{{0xE0, std::string("\n0 main\0", 8)},
                                         {0xE1, std::string("Secondary Reference Codes:\n\nA0DE0030 00000000\n"
                                                            "0BDFABCD FFFFFFFF") +
                                                    '\0'},
                                         {240, exampleCode}}));
    merged.enableBacktrace(0).removeAllData();
    EXPECT_EQ(record(merged)[0].id, 0xE0);  // no text, so that the codes get its number
    EXPECT_EQ(merged.data()->size(), 1u);
}

TEST(MicrocodeLog, NumbersItsItems) {
    PlainMicrocodeLog log(exampleLog());
    log.addData(XMicrocodeLogData(word, 1, XMicrocodeLogData::binaryFormat));
    for (int i = 0; i < 14; ++i) {
        log.addData(XMicrocodeLogData(word, 1, XMicrocodeLogData::textFormat));
    }
    log.addData(XMicrocodeLogData(word, 0, XMicrocodeLogData::textFormat)).addData(XLogData(word, 1, 0x42));
    log.addData(XMicrocodeLogData(word, 1, XMicrocodeLogData::binaryFormat));
    auto const numbers = [&] {
        record(log);
        std::string ids;
        for (XLogData const* item : *log.data()) {
            ids += std::to_string(item->blockId()) + " ";
        }
        return ids;
    };
    std::string const expected = "3 225 226 227 228 229 230 231 232 233 234 235 236 4 5 257 66 6 240 ";
    EXPECT_EQ(numbers(), expected);
    EXPECT_EQ(numbers(), expected + "240 ");
}

TEST(MicrocodeLog, OwnsItsTemporaryItemsWhenRecordingThrows) {
    long const live = liveAllocations();
    {
        PlainMicrocodeLog log(exampleLog());
        log.secondaryRefcodes()->emplace_back(1, 2, 3, 4);
        fake.record = [](xlog_record_interface*, int*) -> int { throw 1; };
        EXPECT_THROW(log.log(), int);
        fake.record = nullptr;
        EXPECT_EQ(log.data()->size(), 3u);
    }
    EXPECT_EQ(liveAllocations(), live);
}

TEST(MicrocodeLog, TakesSnapshotsOfTheTraces) {
    std::string calls;
    std::string fill = "one\ntwo\n";
    int result = 0;
    fake.fetch = [&](char which, char* buffer, unsigned size) {
        calls += which + std::to_string(size) + " ";
        fill.resize(std::min<std::size_t>(fill.size(), size));
        std::copy(fill.begin(), fill.end(), buffer);
        return result;
    };
    auto const take = [&](XMicrocodeLog::Attribute attributes, unsigned system, unsigned process, unsigned thread) {
        calls.clear();
        PlainMicrocodeLog log(1, 1, 1, 1, 1, "", "", attributes, 1, "");
        log.addTraceBlocks(system, process, thread);
        std::string items;
        for (XLogData const* item : *log.data()) {
            items += std::to_string(item->blockId()) + ":" + std::to_string(item->size()) + " ";
        }
        return calls + items;
    };
    XLog::Attribute const all = XLog::informational;
    EXPECT_EQ(take(all, 250, 2, 1), "s20000 p160 t80 239:9 238:9 237:9 ");
    EXPECT_EQ(take(all, 0, 0, 0), "");
    EXPECT_EQ(take(XMicrocodeLog::omitAllTraces, 5, 5, 5), "");
    EXPECT_EQ(take(XMicrocodeLog::omitProcessTrace, 0, 5, 5), "t400 237:9 ");
    fill.clear();
    EXPECT_EQ(take(all, 1, 0, 0), "s80 239:1 ");
    fill.assign(160, 'x');
    EXPECT_EQ(take(all, 2, 0, 0), "s160 239:161 ");
    result = 5;
    EXPECT_EQ(take(all, 1, 1, 1), "s80 p80 t80 ");
    unsigned const tooMany = 0x4000000;  // the service counts bytes in 32 bits
    EXPECT_THROW(take(all, tooMany, 0, 0), std::bad_alloc);
    EXPECT_THROW(take(all, 0, tooMany, 0), std::bad_alloc);
    EXPECT_THROW(take(all, 0, 0, tooMany), std::bad_alloc);
    EXPECT_EQ(calls, "");
    result = 0;
    fill = "one\n";
    XEndMicrocodeLog const end(1, 2, 3, 4, "EV", "text", XLog::informational, 0, "id");
    ASSERT_EQ(end.data()->size(), 3u);
    EXPECT_EQ(bytesOf(*end.data()->front()), std::string("one\n\0", 5));
    fake.fetch = nullptr;
}

TEST(EndMicrocodeLog, HasDefaultsOfItsOwn) {
    XEndMicrocodeLog const log;
    EXPECT_EQ(log.subclassLevel(), 1);
    EXPECT_EQ(log.logClass(), 10);
    EXPECT_EQ(log.isOwned(), 1);
    EXPECT_EQ(log.data()->size(), 0u);
    EXPECT_EQ(toHex(Block(log.asBinary()).get() + 8 + 8 + 18 + 9 + 9 + 16, 8), "0A 00 00 00 00 03 00 00");
    std::unique_ptr<XMicrocodeLog> const clone(XEndMicrocodeLog(log).clone());
    ASSERT_NE(dynamic_cast<XEndMicrocodeLog*>(clone.get()), nullptr);
    EXPECT_EQ(toHex(Block(clone->asBinary())), toHex(Block(log.asBinary())));
}

}  // namespace
