#include "zelqcood/logdata.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "support/failingnew.h"
#include "support/fakeservices.h"
#include "support/hex.h"

namespace {

char someBytes[] = "\xAA\xBB";
char word[] = "hello";

std::string bytesOf(XLogData const& item) {
    return std::string(static_cast<char const*>(item.data()), item.size());
}

TEST(LogData, WritesAndRebuildsItsBlock) {
    XLogData const item(someBytes, 2, 7);
    Block const block(item.asBinary());
    EXPECT_EQ(toHex(block), "1C 00 00 00 05 80 01 00 0A 00 00 00 00 00 01 00 07 00 0A 00 00 00 01 00 01 00 AA BB");
    clearTrace();
    XLogData rebuilt(block.get());
    EXPECT_EQ(tracedText(), "");
    EXPECT_EQ(bytesOf(rebuilt), "\xAA\xBB");
    EXPECT_EQ(rebuilt.blockId(), 7);
    EXPECT_FALSE(rebuilt == item);
    EXPECT_TRUE(rebuilt == rebuilt);
}

TEST(LogData, TellsEmptyFromZeroBytes) {
    XLogData const empty;
    EXPECT_EQ(empty.data(), nullptr);
    EXPECT_TRUE(XLogData() == empty);
    XLogData const zero(nullptr, 0, 7);
    EXPECT_NE(zero.data(), nullptr);
    EXPECT_EQ(zero.size(), 0ul);
    XLogData const copy(empty);
    EXPECT_NE(copy.data(), nullptr);
    EXPECT_FALSE(XLogData() == copy);
    Block const block(zero.asBinary());
    EXPECT_EQ(toHex(block), "1A 00 00 00 05 80 01 00 0A 00 00 00 00 00 01 00 07 00 08 00 00 00 01 00 01 00");
}

TEST(LogData, OwnsItsBytes) {
    char source[] = "12345";
    long const live = liveAllocations();
    {
        XLogData item(source, 5, 1);
        source[0] = 'x';
        EXPECT_EQ(bytesOf(item), "12345");
        std::unique_ptr<XLogData> const clone(item.clone());
        item.setData(source, 3).setBlockId(2);
        EXPECT_EQ(bytesOf(*clone), "12345");
        EXPECT_EQ(clone->blockId(), 1);
        EXPECT_EQ(bytesOf(item), "x23");
        void* const data = item.data();
        XLogData& self = item;
        item = self;
        EXPECT_EQ(item.data(), data);
        item = *clone;
        EXPECT_EQ(bytesOf(item), "12345");
        EXPECT_EQ(item.blockId(), 1);
    }
    EXPECT_EQ(liveAllocations(), live);
}

TEST(MicrocodeLogData, StoresTheZeroByteOfATextOnly) {
    XMicrocodeLogData const text(word, 5, XMicrocodeLogData::textFormat);
    EXPECT_EQ(bytesOf(text), std::string("hello\0", 6));
    EXPECT_EQ(text.blockId(), 0x101);
    EXPECT_EQ(text.format(), XMicrocodeLogData::textFormat);
    EXPECT_EQ(XMicrocodeLogData(nullptr, 0, XMicrocodeLogData::textFormat).size(), 0ul);
    EXPECT_EQ(XMicrocodeLogData(word, 5, XMicrocodeLogData::binaryFormat).size(), 5ul);
    XMicrocodeLogData other(word, 5, 0x42);
    EXPECT_EQ(other.size(), 5ul);
    EXPECT_EQ(other.format(), XMicrocodeLogData::binaryFormat);
    EXPECT_EQ(other.blockId(), 0x42);
    EXPECT_EQ(other.setFormat(XMicrocodeLogData::textFormat).size(), 5ul);
    EXPECT_EQ(other.blockId(), 0x101);
}

TEST(MicrocodeLogData, WritesAndRebuildsItsBlock) {
    char hi[] = "hi";
    XMicrocodeLogData const item(hi, 2, XMicrocodeLogData::textFormat);
    clearTrace();
    Block const block(item.asBinary());
    EXPECT_EQ(toHex(block),
              "25 00 00 00 06 80 01 00 1D 00 00 00 05 80 01 00 0A 00 00 00 00 00 01 00 01 01 "
              "0B 00 00 00 01 00 01 00 68 69 00");
    XLogData const& base = item;
    std::unique_ptr<XLogData> const clone(base.clone());
    ASSERT_NE(dynamic_cast<XMicrocodeLogData*>(clone.get()), nullptr);
    clearTrace();
    XMicrocodeLogData const rebuilt(block.get());
    EXPECT_EQ(reportedLines(), std::vector<std::string>());
    EXPECT_EQ(bytesOf(rebuilt), std::string("hi\0", 3));
    EXPECT_EQ(rebuilt.format(), XMicrocodeLogData::textFormat);
}

}  // namespace
