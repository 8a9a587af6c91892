#ifndef ZELQ_TEST_STOREFIXTURE_H
#define ZELQ_TEST_STOREFIXTURE_H

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include <rapidjson/document.h>

#include "support/children.h"
#include "support/files.h"
#include "zelqplatform/errorlog_service.h"

// Records, and a store of the test's own to put them into.

namespace storetest {

using rapidjson::Document;
using rapidjson::Value;

struct Item {
    std::uint8_t id;
    std::string bytes;
};

/// A record that owns what it points to.
class TestRecord {
public:
    explicit TestRecord(std::vector<Item> items = {}, std::string const& event = "EVENT",
                        std::string const& logId = "a log")
        : items_(std::move(items)), entries_(items_.size()) {
        std::memset(&record_, 0, sizeof record_);
        record_.attributes = XLOG_ERROR | XLOG_STANDARD_BLOCK;
        record_.logClass = 10;
        record_.logType = 2;
        record_.user = 0x1234;
        event.copy(record_.eventName, sizeof record_.eventName);
        logId.copy(record_.logId, sizeof record_.logId);
        for (std::size_t i = 0; i < items_.size(); ++i) {
            std::string const& bytes = items_[i].bytes;
            xlog_detail_entry* const next = i + 1 < items_.size() ? &entries_[i + 1] : nullptr;
            entries_[i] = {static_cast<std::uint32_t>(bytes.size()), items_[i].id, {}, bytes.data(), next};
        }
        record_.details = items_.empty() ? nullptr : entries_.data();
    }

    xlog_record_interface* operator->() { return &record_; }

    /// Result and crc, for instance "0 0".
    std::string store() {
        int crc = -1;
        errno = 4711;
        int const result = xlog_record(&record_, &crc);
        EXPECT_EQ(errno, 4711);
        return std::to_string(result) + " " + std::to_string(crc);
    }

private:
    std::vector<Item> items_;
    std::vector<xlog_detail_entry> entries_;
    xlog_record_interface record_;
};

inline std::string failure(int result, int crc) {
    return std::to_string(result) + " " + std::to_string(crc);
}

inline std::string text(Value const& value) {
    return {value.GetString(), value.GetStringLength()};
}

inline std::vector<std::string> linesOf(fs::path const& path) {
    std::vector<std::string> lines;
    std::istringstream all(contents(path));
    for (std::string line; std::getline(all, line);) {
        lines.push_back(line);
    }
    return lines;
}

class StoreTest : public testing::Test {
protected:
    StoreTest() {
        setenv("ZELQ_DIR", folder_.c_str(), 1);
        unsetenv("ZELQ_STORE_SIZE");
        unsetenv("ZELQ_STORE_FILES");
        TestRecord({}, "FIRST").store();  // takes losses of earlier tests with it
        fs::remove(store());
    }

    fs::path store(int index = 0) const {
        return folder_ / (index == 0 ? "errors.jsonl" : "errors.jsonl." + std::to_string(index));
    }
    fs::path lock() const { return folder_ / "errors.lock"; }

    Document lastRecord() const {
        std::vector<std::string> const lines = linesOf(store());
        Document document;
        document.Parse<rapidjson::kParseValidateEncodingFlag>(lines.empty() ? "" : lines.back().c_str());
        EXPECT_TRUE(document.IsObject()) << store();
        return document;
    }

    unsigned lostBefore() const {
        Document const record = lastRecord();
        return record.HasMember("lost_before") ? record["lost_before"].GetUint() : 0;
    }

    TemporaryFolder const temporary_;
    fs::path const root_ = temporary_.path();
    fs::path const folder_ = root_ / "state";
};

}  // namespace storetest

#endif
