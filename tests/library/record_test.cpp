#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "support/allocationtrial.h"
#include "support/failingnew.h"
#include "support/fakeservices.h"
#include "zelqcood/log.h"

namespace {

// What the service saw, copied during the call since nothing of it outlives the call.
struct Seen {
    xlog_record_interface record;
    std::vector<xlog_detail_entry> entries;
    std::vector<std::string> data;
    bool allocationFailed;
};

Seen record(XLog& log, int src = 0, int crc = 0, unsigned failing = 0) {
    Seen seen = {};
    fake.record = [&](xlog_record_interface* given, int* crcResult) {
        NoFailingNew const allowed;
        seen.record = *given;
        for (xlog_detail_entry const* entry = given->details; entry != nullptr; entry = entry->next) {
            seen.entries.push_back(*entry);
            seen.data.emplace_back(static_cast<char const*>(entry->data), entry->size);
        }
        *crcResult = crc;
        return src;
    };
    clearTrace();
    failAllocation(failing);
    XLog const* const result = &log.log();
    seen.allocationFailed = hasFailed();
    failAllocation(0);
    EXPECT_EQ(result, &log);
    fake.record = nullptr;
    return seen;
}

std::string hexOf(Seen const& seen, std::size_t from, std::size_t to) {
    auto const* const bytes = reinterpret_cast<unsigned char const*>(&seen.record);
    return toHex(bytes + from, to - from);
}

TEST(Record, FillsTheServicesRecord) {
    XLog log(0x11, 0x22, 0x0304, "EV", XLog::error, "ID");
    Seen const seen = record(log);
    EXPECT_EQ(hexOf(seen, 0, 26), "00 01 11 22 04 03 00 00 00 00 00 45 56 00 00 00 00 00 00 00 00 00 00 49 44 00");
    EXPECT_EQ(std::string(seen.record.logId + 2, sizeof seen.record.logId - 2),
              std::string(sizeof seen.record.logId - 2, '\0'));
    EXPECT_EQ(seen.record.details, nullptr);
}

TEST(Record, CutsTextsToTheirFields) {
    for (std::size_t length : {11u, 12u, 13u}) {
        XLog log;
        log.setEventName(std::string(length, 'e').c_str());
        Seen const seen = record(log);
        EXPECT_EQ(std::string(seen.record.eventName, 12),
                  std::string(std::min<std::size_t>(length, 12), 'e') + std::string(length < 12 ? 1 : 0, '\0'));
        EXPECT_EQ(seen.record.logId[0], '\0');
        EXPECT_EQ(std::strlen(log.eventName()), length);
    }
    for (std::size_t length : {2046u, 2047u, 2048u, 3000u}) {
        XLog log;
        log.setLogId(std::string(length, 'i').c_str());
        Seen const seen = record(log);
        std::size_t const kept = std::min<std::size_t>(length, 2047);
        EXPECT_EQ(std::string(seen.record.logId, 2049), std::string(kept, 'i') + std::string(2049 - kept, '\0'));
        EXPECT_EQ(std::strlen(log.logId()), length);
    }
}

TEST(Record, ChainsItemsThatHaveData) {
    XLog log(1, 2, 3, "EV", XLog::Attribute(0x10103, 0), "");
    log.addData(XLogData(someBytes, 0, 1)).addData(XLogData(someBytes, 10, 0x1FE));
    log.addData(XMicrocodeLogData(someBytes, 3, XMicrocodeLogData::textFormat)).addData(XLogData(someBytes, 0, 4));
    log.addData(XLogData(someBytes + 5, 1, 5));
    Seen const seen = record(log);
    EXPECT_EQ(seen.record.attributes, 0x0103);
    ASSERT_EQ(seen.entries.size(), 3u);
    EXPECT_EQ(seen.entries[0].id, 0xFE);
    EXPECT_EQ(seen.entries[1].id, 0x01);
    EXPECT_EQ(seen.entries[2].id, 0x05);
    EXPECT_EQ(seen.data, (std::vector<std::string>{"0123456789", "0123", "5"}));
    auto item = log.data()->begin();
    EXPECT_EQ(seen.entries[0].data, (*++item)->data());
    // The entries are one array, filled from its start.
    EXPECT_EQ(seen.record.details + 1, seen.entries[0].next);
    EXPECT_EQ(seen.entries[0].next + 1, seen.entries[1].next);
    EXPECT_EQ(toHex(seen.entries[0].reserved, 3), "00 00 00");
}

TEST(Record, TracesBothCodes) {
    auto const traced = [](int src, int crc) {
        XLog log;
        record(log, src, crc);
        return reportedLines().at(0);
    };
    EXPECT_EQ(traced(0, 0x1A), "XLIBLOGF: xlog_record: src=0, crc=0x001A");
    EXPECT_EQ(traced(7, 0x12345), "XLIBLOGF: xlog_record: src=7, crc=0x2345");
    EXPECT_EQ(traced(-1, -1), "XLIBLOGF: xlog_record: src=-1, crc=0xFFFF");
}

TEST(Record, GoesOutWithoutItsDataWhenMemoryRunsOut) {
    XLog log(1, 2, 3, "EV", XLog::error, "");
    log.addData(XLogData(someBytes, 10, 1));
    Block const before(log.asBinary());
    long const live = liveAllocations();
    {
        Seen const seen = record(log, 0, 0, 2);  // the first is the line buffer of the scope
        EXPECT_TRUE(seen.allocationFailed);
        EXPECT_EQ(seen.record.user, 3);
        EXPECT_EQ(seen.record.details, nullptr);
    }
    EXPECT_EQ(liveAllocations(), live);
    expectBalancedScopes();
    ASSERT_EQ(reportedLines().size(), 2u);
    EXPECT_EQ(reportedLines()[0], "XLIBLOGF: Error allocation error for detlog");
    EXPECT_EQ(toHex(Block(log.asBinary())), toHex(before));
    EXPECT_EQ(record(log).entries.size(), 1u);
    EXPECT_FALSE(record(log.removeAllData(), 0, 0, 2).allocationFailed) << "without items there is nothing to allocate";
}

#if UINTPTR_MAX > UINT32_MAX
// The service counts an item's bytes in 32 bits. The size alone is changed, behind the item's back.
TEST(Record, LeavesOutAnItemOf4GiB) {
    XLog log(1, 2, 3, "EV", XLog::error, "");
    log.addData(XLogData(someBytes, 10, 1)).addData(XLogData(someBytes, 3, 2));
    unsigned long* const size = reinterpret_cast<unsigned long*>(log.data()->front()) + 2;
    ASSERT_EQ(std::exchange(*size, (1ul << 32) + 5), 10ul);
    EXPECT_EQ(record(log).data, std::vector<std::string>{"012"});
    EXPECT_EQ(reportedLines(),
              (std::vector<std::string>{"XLIBLOGF: Error item of 4294967301 bytes is too large for detlog",
                                        "XLIBLOGF: xlog_record: src=0, crc=0x0000"}));
}
#endif

struct OverridingLog : XLog {
    using XLog::log;
    unsigned char logClass() const override { return 0x77; }
    XLog& log(xlog_record_interface* given, int* src, int* crc) override {
        given->user = 0x4242;
        return XLog::log(given, src, crc);
    }
};

TEST(Record, ReadsItsOwnFieldsAndCallsThroughTheTable) {
    OverridingLog log;
    Seen const seen = record(log);
    EXPECT_EQ(seen.record.logClass, 0);
    EXPECT_EQ(seen.record.user, 0x4242);
}

}  // namespace
