// The error-log service with its real store: what it writes, and what it answers when it cannot.

#include "storefixture.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <algorithm>
#include <ctime>
#include <functional>
#include <set>

#include "support/failingnew.h"
#include "zelqplatform/errorlog_service.h"

namespace storetest {
namespace {

std::string decodeBase64(std::string const& text) {
    static std::string const digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    EXPECT_EQ(text.size() % 4, 0U);
    std::string bytes;
    unsigned bits = 0;
    int have = 0;
    for (char const c : text) {
        if (c == '=') {
            break;
        }
        bits = bits << 6 | static_cast<unsigned>(digits.find(c));
        have += 6;
        if (have >= 8) {
            have -= 8;
            bytes += static_cast<char>(bits >> have & 0xFF);
        }
    }
    return bytes;
}

/// The bytes that a stored item stands for.
std::string bytesOf(Value const& item) {
    std::string bytes = item.HasMember("text") ? text(item["text"]) : decodeBase64(text(item["base64"]));
    bytes.resize(item["size"].GetUint());
    return bytes;
}

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

TEST_F(StoreTest, timeIsNowAndIdsDiffer) {
    std::set<std::string> ids;
    for (int i = 0; i < 20; ++i) {
        time_t const before = time(nullptr);
        ASSERT_EQ(TestRecord().store(), "0 0");
        Document const record = lastRecord();
        tm moment = {};
        ASSERT_NE(strptime(record["time"].GetString(), "%Y-%m-%dT%H:%M:%S", &moment), nullptr);
        EXPECT_GE(timegm(&moment), before);
        timespec now = {};  // by the finer clock: time() lags behind it by up to a tick
        clock_gettime(CLOCK_REALTIME, &now);
        EXPECT_LE(timegm(&moment), now.tv_sec);
        EXPECT_EQ(record["pid"].GetInt(), getpid());
        EXPECT_EQ(record["time"].GetStringLength(), std::strlen("2026-11-22T10:00:00.123456Z"));
        EXPECT_EQ(record["time"].GetString()[26], 'Z');
        std::string const id = text(record["id"]);
        EXPECT_TRUE(id.size() == 16 && id.find_first_not_of("0123456789abcdef") == std::string::npos) << id;
        ids.insert(id);
    }
    EXPECT_EQ(ids.size(), 20U);
}

TEST_F(StoreTest, everyByteComesBack) {
    std::string all;
    for (int byte = 0; byte < 256; ++byte) {
        all += static_cast<char>(byte);
        std::string const one(1, static_cast<char>(byte));
        std::string const among = "0123456789" + one + "abcdefghi";
        ASSERT_EQ(TestRecord({{1, one}, {2, among}, {3, among + '\0'}, {4, all}}, "e" + one, "l" + one).store(), "0 0");
        Document const record = lastRecord();
        Value const& items = record["items"];
        bool const isText = (byte >= 0x20 && byte < 0x7F) || byte == '\n' || byte == '\t' || byte == '\r';
        EXPECT_EQ(items[1].HasMember("text"), isText) << byte;
        EXPECT_EQ(bytesOf(items[0]), one);
        EXPECT_EQ(bytesOf(items[1]), among);
        EXPECT_EQ(bytesOf(items[2]), among + '\0');
        EXPECT_EQ(bytesOf(items[3]), all);
        for (std::string const name : {"event", "log_id"}) {
            std::string const expected = name.substr(0, 1) + (byte == 0 ? "" : one);
            std::string const exact = name + "_base64";
            EXPECT_EQ(record.HasMember(exact.c_str()), byte >= 0x80) << byte;
            EXPECT_EQ(byte >= 0x80 ? decodeBase64(text(record[exact.c_str()])) : text(record[name.c_str()]), expected);
        }
    }
}

TEST_F(StoreTest, textOrNot) {
    struct Row {
        std::string bytes;
        bool isText;
    };
    std::string const nul(1, '\0');
    Row const rows[] = {
        {"\u00e4\u20ac\U0001F600 and more", true},
        {"end \u00e4" + nul, true},
        {"two" + nul + nul, false},
        {nul, false},
        {"in" + nul + "side", false},
        {"\xC0\xAF", false},          // overlong
        {"\xE0\x80\x80", false},      // overlong
        {"\xF0\x8F\xBF\xBF", false},  // overlong
        {"\xED\xA0\x80", false},      // surrogate
        {"\xF4\x90\x80\x80", false},  // beyond the last character
        {"\xF8\x88\x80\x80\x80", false},
        {"cut \xE2\x82", false},
        {"\xE2\x82 cut", false},
        {"cut \xF0\x9F\x98" + nul, false},
        {"\xC2\x85", false},  // a control character of two bytes
        {"\xC2\xA0", true},
        {"\xEF\xBF\xBF", true},
        {"\xF4\x8F\xBF\xBF", true},
        {std::string(300000, 'x') + "\"\n", true},
        {std::string(300001, '\xFF'), false},
    };
    for (Row const& row : rows) {
        ASSERT_EQ(TestRecord({{1, row.bytes}}).store(), "0 0");
        Document const record = lastRecord();
        EXPECT_EQ(record["items"][0].HasMember("text"), row.isText) << row.bytes.substr(0, 20);
        EXPECT_EQ(bytesOf(record["items"][0]), row.bytes);
    }
}

TEST_F(StoreTest, fullNamesEndWithTheirFields) {
    TestRecord record({{1, "x"}}, "ABCDEFGHIJKL", std::string(2049, 'i'));
    ASSERT_EQ(record.store(), "0 0");
    Document const stored = lastRecord();
    EXPECT_EQ(text(stored["event"]), "ABCDEFGHIJKL");
    EXPECT_EQ(text(stored["log_id"]), std::string(2049, 'i'));
}

TEST_F(StoreTest, itemWithoutDataIsEmpty) {
    TestRecord record({{1, "abc"}});
    record->details->data = nullptr;
    ASSERT_EQ(record.store(), "0 0");
    EXPECT_EQ(bytesOf(lastRecord()["items"][0]), "");
}

TEST_F(StoreTest, resultsWhenTheStoreIsUnusable) {
    struct Row {
        char const* what;
        std::function<void()> spoil;
        std::string outcome;
    };
    auto const replace = [this](fs::path const& path, std::function<void(fs::path const&)> const& make) {
        return [path, make] {
            fs::remove_all(path);
            make(path);
        };
    };
    auto const folder = [](fs::path const& path) { fs::create_directory(path); };
    auto const link = [this](fs::path const& path) { fs::create_symlink(root_ / "elsewhere", path); };
    auto const fifo = [](fs::path const& path) { mkfifo(path.c_str(), 0600); };
    auto const file = [](fs::path const& path) { append(path, ""); };
    auto const open = [](fs::path const& path) {
        fs::create_directory(path);
        chmod(path.c_str(), 0770);
    };
    auto const give = [](fs::path const& path) {
        return [path] {
            append(path, "");
            ASSERT_EQ(chown(path.c_str(), 12345, 12345), 0);
        };
    };
    std::vector<Row> rows = {
        {"folder is a file", replace(folder_, file), failure(XLOG_NO_FOLDER, ENOTDIR)},
        {"folder is a link", replace(folder_, link), failure(XLOG_NO_FOLDER, ENOTDIR)},
        {"others may write into the folder", replace(folder_, open), failure(XLOG_NO_FOLDER, EPERM)},
        {"store is a folder", replace(store(), folder), failure(XLOG_NO_STORE, EISDIR)},
        {"store is a link", replace(store(), link), failure(XLOG_NO_STORE, ELOOP)},
        {"store is a fifo", replace(store(), fifo), failure(XLOG_NO_STORE, ENXIO)},
        {"lock is a folder", replace(lock(), folder), failure(XLOG_NO_LOCK, EISDIR)},
        {"lock is a link", replace(lock(), link), failure(XLOG_NO_LOCK, ELOOP)},
        {"lock is a fifo", replace(lock(), fifo), failure(XLOG_NO_LOCK, ENXIO)},
    };
    if (geteuid() == 0) {
        rows.push_back({"somebody else's folder", give(folder_), failure(XLOG_NO_FOLDER, EPERM)});
        rows.push_back({"somebody else's store", give(store()), failure(XLOG_NO_STORE, EPERM)});
        rows.push_back({"somebody else's lock", give(lock()), failure(XLOG_NO_LOCK, EPERM)});
    }
    unsigned failures = 0;
    for (Row const& row : rows) {
        fs::remove_all(folder_);
        fs::create_directory(folder_);
        chmod(folder_.c_str(), 0700);
        row.spoil();
        EXPECT_EQ(TestRecord().store(), row.outcome) << row.what;
        ++failures;
        EXPECT_FALSE(fs::exists(root_ / "elsewhere")) << row.what;
    }
    int crc = -1;
    EXPECT_EQ(xlog_record(nullptr, &crc), XLOG_NO_RECORD);
    EXPECT_EQ(crc, EINVAL);
    EXPECT_EQ(xlog_record(nullptr, nullptr), XLOG_NO_RECORD);

    fs::remove_all(folder_);  // and all is well again
    EXPECT_EQ(TestRecord().store(), "0 0");
    EXPECT_EQ(lostBefore(), failures);
    EXPECT_EQ(TestRecord().store(), "0 0");
    EXPECT_EQ(lostBefore(), 0U);
}

TEST_F(StoreTest, onlyTheOwnerMayRead) {
    setenv("ZELQ_DIR", (root_ / "new" / "nested").c_str(), 1);
    ASSERT_EQ(TestRecord().store(), "0 0");
    for (char const* const name : {"new/nested/errors.jsonl", "new/nested/errors.lock"}) {
        EXPECT_EQ(fs::status(root_ / name).permissions(), fs::perms(0600)) << name;
    }
}

TEST_F(StoreTest, childDoesNotRepeatItsParentsLosses) {
    fs::create_directory(store());
    TestRecord().store();
    fs::remove(store());
    pid_t const child = fork();
    if (child == 0) {
        TestRecord().store();
        _exit(lostBefore() == 0 ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    TestRecord().store();
    EXPECT_EQ(lostBefore(), 1U);
}

TEST_F(StoreTest, rotationKeepsOrderAndBounds) {
    setenv("ZELQ_STORE_SIZE", "4K", 1);
    setenv("ZELQ_STORE_FILES", "3", 1);
    for (int i = 0; i < 60; ++i) {
        ASSERT_EQ(TestRecord({{1, std::string(300, 'x')}}, std::to_string(i)).store(), "0 0");
    }
    EXPECT_FALSE(fs::exists(store(3)));
    int expected = -1;
    for (int index = 2; index >= 0; --index) {
        EXPECT_LE(fs::file_size(store(index)), 4096U);
        EXPECT_GE(fs::file_size(store(index)), index == 0 ? 1U : 3000U);
        for (std::string const& line : linesOf(store(index))) {
            Document record;
            record.Parse(line.data(), line.size());
            int const number = std::stoi(text(record["event"]));
            EXPECT_TRUE(expected < 0 || number == expected) << number << " after " << expected;
            expected = number + 1;
        }
    }
    EXPECT_EQ(expected, 60);
    setenv("ZELQ_STORE_FILES", "2", 1);
    ASSERT_EQ(TestRecord({{1, std::string(5000, 'x')}}).store(), "0 0");  // longer than a file may be
    EXPECT_EQ(linesOf(store()).size(), 1U);
    EXPECT_FALSE(fs::exists(store(2)));
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
