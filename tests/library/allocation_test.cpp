// Every exported function of the library with failing memory.

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>

#include "support/allocationtrial.h"
#include "support/failingnew.h"
#include "support/fakeservices.h"
#include "zelqcood/block.h"
#include "zelqcood/mclog.h"
#include "zelqcood/trace.h"

namespace {

XLog richLog(char const* eventName) {
    XLog log(1, 2, 3, eventName, XLog::error, longText);
    log.addData(XLogData(someBytes, 5, 1)).addData(XMicrocodeLogData(someBytes, 5, XMicrocodeLogData::textFormat));
    return log;
}

void tryTrace() {
    failEach({"XTrace::XTrace(char const*, char, char const*)"}, [] { XTrace("MASK", 'F', longText); });
    failEach({"XTrace::XTrace(unsigned int, char const*, char, char const*)"},
             [] { XTrace(7, "MASK", 'F', longText); });
    expectNoAllocation([] {
        XTrace::write("MASK", 'F', longText);
        XTrace::write(7, "MASK", 'F', longText);
        XTrace::dumpBytes("MASK", 'F', longText, someBytes, 5);
        XTrace::dumpBytes(7, "MASK", 'F', longText, someBytes, 5);
    });
}

void tryBlocks() {
    unsigned char* block = createBlock(1, 1);
    Block const child(createBlock(2, 1));
    unsigned char const* address = block;
    auto const tryWith =
        failEachOn([&] { return (address == block ? "same " : "other ") + toHex(block, sizeOf(block)); });
    failEach({"createBlock(unsigned short, unsigned short)"}, [] { delete[] createBlock(1, 1); });
    tryWith("findBlock(unsigned char*, unsigned short)", [&] { findBlock(block, 1); });
    tryWith("addHeaderBlock(unsigned char**, unsigned int, unsigned short, unsigned short, unsigned char*)",
            [&] { addHeaderBlock(&block, 3, 1, 1, nullptr); });
    address = block;
    tryWith("addBlock(unsigned char**, unsigned char*)", [&] { addBlock(&block, child.get()); });
    delete[] block;
}

void tryDataItems() {
    XLogData item(someBytes, 5, 1);
    XLogData const other(someBytes, 9, 2);
    XMicrocodeLogData text(someBytes, 5, XMicrocodeLogData::textFormat);
    Block const itemBlock(item.asBinary());
    Block const textBlock(text.asBinary());
    auto const tryWith = failEachOn([&] { return hexOf(item); });
    failEach({"XLogData::XLogData(void*, unsigned long, unsigned short)"}, [] { XLogData(someBytes, 5, 1); });
    tryWith("XLogData::XLogData(XLogData const&)", [&] { XLogData copy(item); });
    failEach({"XLogData::XLogData(unsigned char*)"}, [&] { XLogData rebuilt(itemBlock.get()); });
    tryWith("XLogData::clone() const", [&] { delete item.clone(); });
    tryWith("XLogData::asBinary() const", [&] { Block(item.asBinary()); });
    tryWith("XLogData::setData(void*, unsigned long)", [&] { item.setData(someBytes, 7); });
    tryWith("XLogData::operator=(XLogData const&)", [&] { item = other; });

    failEach({"XMicrocodeLogData::XMicrocodeLogData(void*, unsigned long, XMicrocodeLogData::Format)"},
             [] { XMicrocodeLogData(someBytes, 5, XMicrocodeLogData::textFormat); });
    failEach({"XMicrocodeLogData::XMicrocodeLogData(void*, unsigned long, unsigned short)"},
             [] { XMicrocodeLogData(someBytes, 5, static_cast<unsigned short>(7)); });
    failEach({"XMicrocodeLogData::XMicrocodeLogData(XMicrocodeLogData const&)"}, [&] { XMicrocodeLogData copy(text); });
    failEach({"XMicrocodeLogData::XMicrocodeLogData(unsigned char*)"},
             [&] { XMicrocodeLogData rebuilt(textBlock.get()); });
    failEach({"XMicrocodeLogData::clone() const"}, [&] { delete text.clone(); });
    failEach({"XMicrocodeLogData::asBinary() const"}, [&] { Block(text.asBinary()); });

    expectNoAllocation([&] {
        XLogData empty;
        empty.setBlockId(3).blockId();
        text.setFormat(XMicrocodeLogData::binaryFormat).format();
        static_cast<void>(empty.data() == item.data() && empty.size() == 0 && empty == item);
    });
}

void tryAttributes() {
    XLog::Attribute plain(1, 2);
    XMicrocodeLog::Attribute const microcode(4, 8);
    expectNoAllocation([&] {
        plain &= ~XLog::error;
        plain |= plain | (plain & ~XLog::error);
        static_cast<void>((plain & XLog::error) == 0);
        static_cast<void>((~microcode, microcode | microcode));
    });
}

void tryLogs() {
    XLog log(richLog("event"));
    XLog const other(richLog(longText));
    Block const block(log.asBinary());
    auto const tryWith = failEachOn([&] { return hexOf(log); });
    failEachMaking<XLog>({"XLog::XLog()"});
    failEachMaking<XLog>({"XLog::XLog(unsigned char, unsigned char, unsigned short, char const*, XLog::Attribute, "
                          "char const*)"},
                         1, 2, 3, longText, XLog::error, longText);
    failEachMaking<XLog>({"XLog::XLog(XLog const&)"}, other);
    failEachMaking<XLog>({"XLog::XLog(unsigned char*)"}, block.get());
    tryWith("XLog::asBinary() const", [&] { Block(log.asBinary()); });
    tryWith("XLog::data[abi:cxx11]() const", [&] { log.data(); });
    tryWith("XLog::addData(XLogData const&)", [&] { log.addData(XLogData(someBytes, 1, 1)); });
    tryWith("XLog::setEventName(char const*)", [&] { log.setEventName(longText); });
    tryWith("XLog::setLogId(char const*)", [&] { log.setLogId((std::string(longText) + longText).c_str()); });
    log = richLog("event");
    tryWith("XLog::operator=(XLog const&)", [&] { log = other; });
    tryWith("XLog::removeAllData()", [&] { log.removeAllData(); });
    expectNoAllocation([&] {
        int src = 0;
        int crc = 0;
        log.log(nullptr, &src, &crc);
        log.setLogClass(log.logClass()).setLogType(log.logType()).setUser(log.user());
        log.setSeverity(log.isError()).enableStandardBlock(log.isStandardBlock());
        log.enableModifyBlock(log.isModifyBlock()).enableComponentLogOnly(log.isComponentLogOnly());
        log.enableComponentLogBoth(log.isComponentLogBoth());
        static_cast<void>(log.eventName() == log.logId());
    });
}

void tryRefcodes() {
    using Refcode = XMicrocodeLog::SecondaryRefcodeInfo;
    Refcode const code(1, 2, 3, 4);
    Block const block(code.asBinary());
    failEach({"XMicrocodeLog::SecondaryRefcodeInfo::asBinary() const"}, [&] { Block(code.asBinary()); });
    expectNoAllocation([&] {
        Refcode const made(1, 2, 3, 4);
        Refcode const copy(made);
        Refcode const rebuilt(block.get());
        static_cast<void>(copy.errorId() + rebuilt.errorReason() + copy.logClass() + copy.logType());
    });
}

// The functions that a list names but destructors, which have a test of their own below.
std::set<std::string> functionsIn(char const* path) {
    std::ifstream list(path);
    std::set<std::string> functions;
    for (std::string name; std::getline(list, name);) {
        if (name.find('(') != std::string::npos && name.find("::~") == std::string::npos) {
            functions.insert(name);
        }
    }
    return functions;
}

TEST(Allocation, MayFailInEveryExportedFunction) {
    setBacktrace(longText);
    setFetchService([](char, char* buffer, unsigned) {
        buffer[0] = 'x';
        return 0;
    });
    tryTrace();
    tryBlocks();
    tryDataItems();
    tryAttributes();
    tryLogs();
    tryRefcodes();
    tryErrorReports();
    setBacktrace(nullptr);
    setFetchService(nullptr);

    std::set<std::string> const exported = functionsIn(EXPORTED_SYMBOLS);
    triedFunctions().merge(functionsIn(EXPECTED_FILES "/needs_no_memory.txt"));
    std::vector<std::string> differing;
    std::set_symmetric_difference(exported.begin(), exported.end(), triedFunctions().begin(), triedFunctions().end(),
                                  std::back_inserter(differing));
    EXPECT_EQ(differing, std::vector<std::string>()) << "exported and not tried here, or the other way round";
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
