#include "zelqcood/log.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "support/failingnew.h"
#include "support/fakeservices.h"
#include "support/hex.h"
#include "zelqcood/trace.h"

namespace {

char word[] = "hello";

XLog exampleLog() {
    return XLog(0x11, 0x22, 0x0304, "EV", XLog::error, nullptr);
}

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

TEST(Log, BlockTakesMemoryInProportionToItsItems) {
    auto const bytesFor = [](int items) {
        XLog log;
        for (int i = 0; i < items; ++i) {
            log.addData(XLogData(word, 5, 1));
        }
        unsigned long long const before = allocatedBytes();
        Block const block(log.asBinary());
        return allocatedBytes() - before;
    };
    EXPECT_LT(bytesFor(1600), 3 * bytesFor(800));
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
    target = source;
    EXPECT_EQ(target.data(), list);
    XLog expected(exampleLog());
    expected.addData(XLogData(word, 2, 2));
    EXPECT_EQ(hexOf(target), hexOf(expected));
    XLog const& self = target;
    target = self;
    EXPECT_EQ(hexOf(target), hexOf(expected));
}

TEST(Log, AssignmentLeavesWhatADerivedClassKeeps) {
    struct KeepingLog : XLog {
        XLog& removeAllData() override { return XLog::removeAllData().addData(XLogData(word, 1, user())); }
    } keeping;
    keeping.addData(XLogData(word, 1, 1));
    XLog source(exampleLog());
    source.addData(XLogData(word, 1, 2));
    XLog& target = keeping;
    target = source;
    ASSERT_EQ(target.data()->size(), 2u);
    EXPECT_EQ(target.data()->front()->blockId(), source.user()) << "the fields come first";
    EXPECT_EQ(target.data()->back()->blockId(), 2);
}

TEST(Log, ChainsItsSetters) {
    XLog log;
    log.setLogClass(255).setLogType(254).setUser(65535).setEventName(nullptr).setLogId("id").setSeverity(1);
    EXPECT_EQ(toHex(Block(log.asBinary()).get() + 16, 8), "FF FE FF FF 00 01 00 00");
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

// Runs before any initialiser of any library.
unsigned long valuesAtStart[7];
void readConstants() {
    XLog::Attribute const* const constants[] = {&XLog::informational,         &XLog::error,
                                                &XLog::logStandardBlock,      &XLog::logModifyBlock,
                                                &XLog::componentLogOnly,      &XLog::componentLogBoth,
                                                &XLog::classDefaultAttributes};
    for (int i = 0; i < 7; ++i) {
        valuesAtStart[i] = constants[i]->asUnsignedLong() | constants[i]->asExtendedUnsignedLong();
    }
}
__attribute__((section(".preinit_array"), used)) void (*const runsFirst)() = readConstants;

TEST(Attribute, ConstantsAreThereBeforeAnyCodeOfALibrary) {
    unsigned long const expected[] = {0, 0x100, 0x200, 0x400, 0x001, 0x002, 0};
    for (int i = 0; i < 7; ++i) {
        EXPECT_EQ(valuesAtStart[i], expected[i]) << i;
    }
}

TEST(Attribute, OperatorsWorkOnBothWords) {
    auto const words = [](auto const& bits) {
        return std::make_pair(bits.asUnsignedLong(), bits.asExtendedUnsignedLong());
    };
    XLog::Attribute const a(0x0103, 0x10);
    XLog::Attribute const b(0x0006, 0x30);
    EXPECT_EQ(a & b, 0x12ul);
    EXPECT_EQ(a & XLog::informational, 0ul);
    EXPECT_EQ(words(a | b), std::make_pair(0x0107ul, 0x30ul));
    EXPECT_EQ(words(~XLog::error), std::make_pair(0xFFFFFEFFul, 0xFFFFFFFFul));
    EXPECT_EQ(words(a & ~XLog::error), std::make_pair(0x0003ul, 0x10ul));
    XLog::Attribute changed(a);
    EXPECT_EQ(&(changed |= b), &changed);
    EXPECT_EQ(&(changed &= ~a), &changed);
    EXPECT_EQ(words(changed), std::make_pair(0x0004ul, 0x20ul));
}

struct Flag {
    XLog& (XLog::*set)(int);
    int (XLog::*is)() const;
} const flags[] = {
    {&XLog::setSeverity, &XLog::isError},
    {&XLog::enableStandardBlock, &XLog::isStandardBlock},
    {&XLog::enableModifyBlock, &XLog::isModifyBlock},
    {&XLog::enableComponentLogOnly, &XLog::isComponentLogOnly},
    {&XLog::enableComponentLogBoth, &XLog::isComponentLogBoth},
};

// Whether another flag is set or not, a setter changes its own only; any non-zero argument sets.
TEST(Attribute, SettersOfALogChangeTheirOwnBitOnly) {
    for (Flag const& changed : flags) {
        for (int const others : {0, 1}) {
            for (int const argument : {0, 1, 5, -1}) {
                XLog log;
                for (Flag const& flag : flags) {
                    EXPECT_EQ(&(log.*flag.set)(others), &log);
                }
                (log.*changed.set)(argument);
                for (Flag const& flag : flags) {
                    EXPECT_EQ((log.*flag.is)(), &flag == &changed ? argument != 0 : others) << &changed - flags;
                }
            }
        }
    }
}

std::string bytesOf(XLogData const& item) {
    return std::string(static_cast<char const*>(item.data()), item.size());
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
        EXPECT_TRUE(item == item);
        EXPECT_FALSE(item == *clone);  // of its own bytes
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
    EXPECT_THROW(XMicrocodeLogData(word, ~0ul, XMicrocodeLogData::textFormat), std::bad_alloc);
    XMicrocodeLogData other(word, 5, 0x42);
    EXPECT_EQ(other.size(), 5ul);
    EXPECT_EQ(other.format(), XMicrocodeLogData::binaryFormat);
    EXPECT_EQ(other.blockId(), 0x42);
    EXPECT_EQ(other.setFormat(XMicrocodeLogData::textFormat).size(), 5ul);
    EXPECT_EQ(other.blockId(), 0x101);
}

}  // namespace
