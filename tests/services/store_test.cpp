// The error-log service with its real store: what it writes, and what it answers when it cannot.

#include "storefixture.h"

#include <algorithm>
#include <stdexcept>

#include "common/text.h"
#include "support/failingnew.h"
#include "zelqplatform/errorlog_service.h"

namespace storetest {
namespace {

/// The line with "@" in place of what the first such field of it holds.
std::string withoutValue(std::string line, std::string const& key) {
    std::size_t const found = line.find("\"" + key + "\":");
    std::size_t const value = found == std::string::npos ? line.size() : found + key.size() + 3;
    return line.substr(0, value) + "@" + line.substr(std::min(line.find(',', value), line.size()));
}

TEST_F(StoreTest, lineOfARecord) {
    TestRecord record({{1, "hello\n\"world\"\\"}, {2, std::string("text\0", 5)}, {255, "\x01\xFE"}, {4, ""}});
    record->attributes = 0xFFFF;
    EXPECT_EQ(record.store(), "0 0");
    std::string line = contents(store());
    for (char const* const key : {"id", "time", "host", "program", "pid", "tid"}) {
        line = withoutValue(line, key);
    }
    EXPECT_EQ(
        line,
        R"({"v":1,"id":@,"time":@,"host":@,"program":@,"pid":@,"tid":@,"class":10,"type":2,"user":4660,"severity":"error",)"
        R"("flags":["component_log_only","component_log_both","omit_backtrace","standard_block","modify_block",)"
        R"("reboot_system","omit_thread_trace","omit_process_trace","omit_system_trace"],"attributes":65535,)"
        R"("event":"EVENT","log_id":"a log","items":[{"id":1,"size":14,"text":"hello\n\"world\"\\"},)"
        R"({"id":2,"size":5,"text":"text"},{"id":255,"size":2,"base64":"Af4="},{"id":4,"size":0,"base64":""}]})"
        "\n");
    record->attributes = 0;
    record.store();
    EXPECT_STREQ(lastRecord()["severity"].GetString(), "informational");
}

TEST_F(StoreTest, fullNamesEndWithTheirFields) {
    TestRecord record({{1, "x"}}, "ABCDEFGHIJKL", std::string(2049, 'i'));
    ASSERT_EQ(record.store(), "0 0");
    Document const stored = lastRecord();
    EXPECT_EQ(text(stored["event"]), "ABCDEFGHIJKL");
    EXPECT_EQ(text(stored["log_id"]), std::string(2049, 'i'));
}

// So many that their digits cannot be counted, or not together with what there is. None of the bytes is touched.
TEST(Base64, RefusesTooManyBytes) {
    std::size_t const most = SIZE_MAX / 4 * 3;
    for (std::size_t const size : {most + 1, most, most / 2}) {
        std::string text = "0123";
        EXPECT_THROW(zelq::appendBase64({text.data(), size}, text), std::length_error) << size;
        EXPECT_EQ(text, "0123");
    }
}

TEST_F(StoreTest, takesNullPointers) {
    TestRecord record({{1, "abc"}});
    record->details->data = nullptr;
    ASSERT_EQ(record.store(), "0 0");
    EXPECT_EQ(lastRecord()["items"][0]["size"].GetInt(), 0);
    int crc = -1;
    EXPECT_EQ(xlog_record(nullptr, &crc), XLOG_NO_RECORD);
    EXPECT_EQ(crc, EINVAL);
    EXPECT_EQ(xlog_record(nullptr, nullptr), XLOG_NO_RECORD);
}

TEST_F(StoreTest, childDoesNotRepeatItsParentsLosses) {
    fs::create_directory(store());
    TestRecord().store();
    fs::remove(store());
    EXPECT_EQ(0, inChild([&] {
                  TestRecord().store();
                  EXPECT_EQ(lostBefore(), 0U);
              }));
    TestRecord().store();
    EXPECT_EQ(lostBefore(), 1U);
}

TEST_F(StoreTest, everyAllocationMayFail) {
    unsigned failures = 0;
    TestRecord record({{1, std::string(5000, 'x')}, {2, std::string(500, '\xFF')}}, "\xFF\xFF",
                      std::string(99, '\xFE'));
    for (unsigned n = 1;; ++n) {
        int crc = -1;
        long const live = liveAllocations();
        failAllocation(n);
        int const result = xlog_record(record.operator->(), &crc);
        bool const failed = hasFailed();
        failAllocation(0);
        EXPECT_EQ(liveAllocations(), live);
        if (!failed) {
            EXPECT_EQ(result, XLOG_OK);
            break;
        }
        ++failures;
        EXPECT_EQ(failure(result, crc), failure(XLOG_NO_MEMORY, ENOMEM)) << n;
        EXPECT_FALSE(fs::exists(store())) << n;
    }
    EXPECT_GE(failures, 2U);
    EXPECT_EQ(lostBefore(), failures);
}

}  // namespace
}  // namespace storetest
