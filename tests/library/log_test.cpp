#include "zelqcood/log.h"

#include <gtest/gtest.h>

#include <string>

#include "support/fakeservices.h"
#include "support/hex.h"
#include "zelqcood/trace.h"

namespace {

char word[] = "hello";

// The example of the block layout: 52 bytes.
XLog exampleLog() {
    return XLog(0x11, 0x22, 0x0304, "EV", XLog::error, nullptr);
}
char const exampleBlock[] =
    "34 00 00 00 02 80 01 00 18 00 00 00 00 00 01 00 11 22 04 03 00 01 00 00 00 00 00 00 00 00 00 00 "
    "0B 00 00 00 01 00 01 00 45 56 00 09 00 00 00 03 00 01 00 00";

std::string hexOf(XLog const& log) {
    return toHex(Block(log.asBinary()));
}

// The log's block with the two reserved words set, which only rebuilding can set.
XLog logWithReserved(XLog const& log) {
    Block const block(log.asBinary());
    block[24] = 0xA1;
    block[31] = 0xB2;
    return XLog(block.get());
}

TEST(Log, WritesAndRebuildsItsBlock) {
    EXPECT_EQ(hexOf(exampleLog()), exampleBlock);
    EXPECT_EQ(hexOf(XLog()),
              "32 00 00 00 02 80 01 00 18 00 00 00 00 00 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
              "09 00 00 00 01 00 01 00 00 09 00 00 00 03 00 01 00 00");
    XLog log(1, 2, 3, "event", XLog::error | XLog::Attribute(0, 0x55), "id");
    log.addData(XLogData(word, 1, 1)).addData(XMicrocodeLogData(word, 5, XMicrocodeLogData::textFormat));
    log.addData(XLogData(word, 0, 3));
    Block const block(log.asBinary());
    clearTrace();
    XLog const rebuilt(block.get());
    EXPECT_EQ(reportedLines(), std::vector<std::string>());
    EXPECT_EQ(hexOf(rebuilt), toHex(block));
    ASSERT_EQ(rebuilt.data()->size(), 3u);
    auto item = rebuilt.data()->begin();
    EXPECT_EQ(dynamic_cast<XMicrocodeLogData*>(*item++), nullptr);
    EXPECT_NE(dynamic_cast<XMicrocodeLogData*>(*item), nullptr);
}

TEST(Log, ReadsChildrenInAnyOrderAndTheLastOfEach) {
    Bytes block = fromHex(
        "4E 00 00 00 02 80 01 00  0A 00 00 00 03 00 01 00 49 00  0A 00 00 00 01 00 01 00 41 00 "
        "1A 00 00 00 00 00 01 00 11 22 04 03 00 01 00 00 01 00 00 00 02 00 00 00 FF FF "
        "0B 00 00 00 01 00 01 00 42 00 43  0D 00 00 00 03 00 01 00 58 00 00 00 00");
    clearTrace();
    XLog const log(block.data());
    EXPECT_EQ(reportedLines(), std::vector<std::string>());
    EXPECT_STREQ(log.eventName(), "B");
    EXPECT_STREQ(log.logId(), "X");
    EXPECT_EQ(log.user(), 0x0304);
    EXPECT_EQ(log.isError(), 1);
    // The two reserved words at the end mean nothing here and must reach the next reader.
    EXPECT_NE(hexOf(XLog(log)).find("11 22 04 03 00 01 00 00 01 00 00 00 02 00 00 00"), std::string::npos);
}

TEST(Log, TracesWhereItsListLies) {
    XLog const log(exampleLog());
    clearTrace();
    char expected[64];
    std::snprintf(expected, sizeof expected, "XLIBLOGD: returns 0x%08lX",
                  reinterpret_cast<unsigned long>(log.data()) & 0xFFFFFFFF);
    ASSERT_EQ(traceCalls().size(), 3u);
    EXPECT_EQ(traceCalls()[1].line, expected);
}

TEST(Log, CopiesEverything) {
    XLog log = logWithReserved(exampleLog());
    log.addData(XMicrocodeLogData(word, 5, XMicrocodeLogData::textFormat));
    XLog copy(log);
    EXPECT_EQ(hexOf(copy), hexOf(log));
    EXPECT_NE(copy.data()->front(), log.data()->front());
    EXPECT_NE(dynamic_cast<XMicrocodeLogData*>(copy.data()->front()), nullptr);
    copy.setEventName("other").removeAllData();
    EXPECT_STREQ(log.eventName(), "EV");
    EXPECT_EQ(log.data()->size(), 1u);
}

TEST(Log, AssignmentKeepsTheReservedWords) {
    XLog source = logWithReserved(exampleLog());
    source.addData(XLogData(word, 2, 2));
    XLog target(9, 9, 9, "old", XLog::informational, "old");
    target.addData(XLogData(word, 1, 1));
    std::list<XLogData*>* const list = target.data();
    clearTrace();
    target = source;
    EXPECT_EQ(tracedText(), "XLIBLOGD: > removeAllData\nXLIBLOGD: < removeAllData\n");
    EXPECT_EQ(target.data(), list);
    XLog expected(exampleLog());
    expected.addData(XLogData(word, 2, 2));
    EXPECT_EQ(hexOf(target), hexOf(expected));
    clearTrace();
    XLog const& self = target;
    target = self;
    EXPECT_EQ(tracedText(), "");
    EXPECT_EQ(hexOf(target), hexOf(expected));
}

TEST(Log, ChainsItsSetters) {
    XLog log;
    log.setLogClass(255).setLogType(254).setUser(65535).setEventName(nullptr).setLogId("id").setSeverity(1);
    EXPECT_EQ(log.logClass(), 255);
    EXPECT_EQ(log.logType(), 254);
    EXPECT_EQ(log.user(), 65535);
    EXPECT_STREQ(log.eventName(), "");
    EXPECT_STREQ(log.setLogId(nullptr).logId(), "");
    log.setEventName("a text that is longer than a recorded event name may be");
    EXPECT_STREQ(log.setEventName(log.eventName() + 2).eventName(),
                 "text that is longer than a recorded event name may be");
    log.removeAllData().addData(XLogData(word, 1, 1)).removeAllData().addData(XLogData(word, 2, 2));
    EXPECT_EQ(log.data()->size(), 1u);
}

TEST(Log, StartsFromTheClassDefaults) {
    XLog::classDefaultAttributes = XLog::error | XLog::logModifyBlock;
    XLog const log;
    Bytes bad = fromHex("08000000 0180 0100");
    XLog const rejected(bad.data());
    XLog::classDefaultAttributes = XLog::informational;
    EXPECT_EQ(log.isError() + log.isModifyBlock() + log.isStandardBlock(), 2);
    EXPECT_EQ(rejected.isError() + rejected.isModifyBlock() + rejected.isStandardBlock(), 2);
}

struct OverridingLog : XLog {
    unsigned char logClass() const override { return 0x77; }
    char const* eventName() const override { return nullptr; }
};

TEST(Log, WritesWhatDerivedClassesAnswer) {
    Block const block(OverridingLog().asBinary());
    EXPECT_EQ(block[16], 0x77);
    EXPECT_EQ(toHex(block.get() + 32, 8), "08 00 00 00 01 00 01 00");
    clearTrace();
    EXPECT_STREQ(XLog(block.get()).eventName(), "");
    EXPECT_EQ(reportedLines(), std::vector<std::string>());
}

// In this ABI a pointer to a virtual member holds the offset of its slot, plus one.
template <class Member>
unsigned slotOf(Member member) {
    std::uintptr_t first = 0;
    std::memcpy(&first, &member, sizeof first);
    return (first & 1) == 0 ? ~0u : static_cast<unsigned>((first - 1) / sizeof(void*));
}

template <class... Members>
void expectSlotsFrom(unsigned first, Members... members) {
    for (unsigned const slot : {slotOf(members)...}) {
        EXPECT_EQ(slot, first++);
    }
}

// Programs built against an earlier library call through these numbers.
TEST(Log, VirtualSlotsKeepTheirOrder) {
    // 0 and 1 are the two forms of the destructor.
    expectSlotsFrom(2, &XLog::asString, &XLog::asDebugInfo, static_cast<XLog& (XLog::*)(XLog const&)>(&XLog::operator=),
                    static_cast<XLog& (XLog::*)(unsigned char)>(&XLog::setLogClass), &XLog::logClass, &XLog::setLogType,
                    &XLog::logType, &XLog::setUser, &XLog::user, &XLog::setSeverity, &XLog::isError,
                    &XLog::enableStandardBlock, &XLog::isStandardBlock, &XLog::enableModifyBlock, &XLog::isModifyBlock,
                    &XLog::enableComponentLogOnly, &XLog::isComponentLogOnly, &XLog::enableComponentLogBoth,
                    &XLog::isComponentLogBoth, &XLog::setEventName, &XLog::eventName, &XLog::setLogId, &XLog::logId,
                    &XLog::addData, &XLog::removeAllData, static_cast<XLog& (XLog::*)()>(&XLog::log), &XLog::asBinary,
                    static_cast<XLog& (XLog::*)(xlog_record_interface*, int*, int*)>(&XLog::log));
    expectSlotsFrom(4, &XLogData::operator==, &XLogData::clone, &XLogData::asBinary);
    expectSlotsFrom(5, &XMicrocodeLogData::clone, &XMicrocodeLogData::asBinary);
    EXPECT_EQ(slotOf(&XLog::data), ~0u);
    EXPECT_EQ(slotOf(&XLogData::asString), 2u);
    EXPECT_EQ(slotOf(&XTrace::asDebugInfo), 3u);
}

TEST(Log, DescribesItself) {
    XLog const log;
    EXPECT_TRUE(log.asString() == "XLog");
    char expected[64];
    std::snprintf(expected, sizeof expected, "XLog at 0x%lX", reinterpret_cast<unsigned long>(&log));
    EXPECT_TRUE(log.asDebugInfo() == expected);
}

}  // namespace
