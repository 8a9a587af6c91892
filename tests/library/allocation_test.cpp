// Every exported function of the library with failing memory.

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>

#include "support/allocationtrial.h"
#include "support/failingnew.h"
#include "support/sampleblocks.h"
#include "zelqcood/block.h"
#include "zelqcood/trace.h"
#include "zelqcood/trap.h"

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

// A class of a program's own, on whose way the constructors of the abstract class run.
void tryMicrocodeLogs() {
    XMicrocodeLog::Attribute const all = XLog::informational;
    XEndMicrocodeLog log(1, 2, 3, 4, "event", longText, XMicrocodeLog::omitAllTraces, 0, longText);
    XEndMicrocodeLog other(5, 6, 7, 8, "other", longText, all, 1, "");
    other.addData(XLogData(someBytes, 5, 1));
    other.secondaryRefcodes()->emplace_back(1, 2, 3, 4);
    PlainMicrocodeLog const plain(1, 2, 3, 4, 5, longText, longText, all, 0, longText);
    Block const block(other.asBinary());
    Block const plainBlock(plain.asBinary());
    auto const tryWith = failEachOn([&] { return hexOf(log); });
    failEachMaking<PlainMicrocodeLog>({"XMicrocodeLog::XMicrocodeLog()"});
    failEachMaking<PlainMicrocodeLog>({"XMicrocodeLog::XMicrocodeLog(unsigned char, unsigned char, unsigned short, "
                                       "unsigned short, int, char const*, char const*, XLog::Attribute, int, "
                                       "char const*)"},
                                      1, 2, 3, 4, 5, longText, longText, all, 0, longText);
    failEachMaking<PlainMicrocodeLog>({"XMicrocodeLog::XMicrocodeLog(XMicrocodeLog const&)"}, plain);
    failEachMaking<PlainMicrocodeLog>({"XMicrocodeLog::XMicrocodeLog(unsigned char*)"}, plainBlock.get());
    failEachMaking<XEndMicrocodeLog>({"XEndMicrocodeLog::XEndMicrocodeLog()"});
    failEachMaking<XEndMicrocodeLog>({"XEndMicrocodeLog::XEndMicrocodeLog(unsigned char, unsigned short, unsigned "
                                      "short, int, char const*, char const*, XMicrocodeLog::Attribute, int, "
                                      "char const*)"},
                                     1, 2, 3, 4, longText, longText, all, 0, longText);
    failEachMaking<XEndMicrocodeLog>({"XEndMicrocodeLog::XEndMicrocodeLog(XEndMicrocodeLog const&)"}, other);
    failEachMaking<XEndMicrocodeLog>({"XEndMicrocodeLog::XEndMicrocodeLog(unsigned char*)"}, block.get());
    std::unique_ptr<XMicrocodeLog> made;
    tryWith("XEndMicrocodeLog::clone()", [&] { made.reset(log.clone()); });
    tryWith("XEndMicrocodeLog::asBinary() const", [&] { Block(log.asBinary()); });
    failEach({"XMicrocodeLog::asBinary() const"}, [&] { Block(plain.asBinary()); });
    tryWith("XMicrocodeLog::operator+=(XMicrocodeLog const&)", [&] { log += other; });
    tryWith("XMicrocodeLog::setText(char const*)", [&] { log.setText((std::string(longText) + longText).c_str()); });
    tryWith("XMicrocodeLog::text() const", [&] { log.text(); });
    tryWith("XMicrocodeLog::backtrace() const", [&] { log.backtrace(); });
    tryWith("XMicrocodeLog::addTraceBlocks(unsigned int, unsigned int, unsigned int)",
            [&] { log.addTraceBlocks(3, 3, 3); });
    tryWith("XMicrocodeLog::secondaryRefcodes[abi:cxx11]() const", [&] { log.secondaryRefcodes(); });
    expectNoAllocation([&] {
        log.setErrorId(log.errorId()).setErrorReason(log.errorReason()).setOwned(log.isOwned());
        log.enableBacktrace(log.isBacktrace()).enableRebootSystem(log.isRebootSystem());
        static_cast<void>(log.isSystemTrace() + log.isProcessTrace() + log.isThreadTrace());
        static_cast<void>(log.subclassLevel() + plain.subclassLevel());
    });
}

void tryExceptions() {
    XEndMicrocodeLog log(1, 2, 3, 4, "event", longText, XMicrocodeLog::omitAllTraces, 0, longText);
    XMicrocodeLogData const item(someBytes, 5, XMicrocodeLogData::textFormat);
    char text[sizeof longText];
    std::strcpy(text, longText);
    XException exception(longText, ZoException::recoverable, 0);
    exception.addLocation(ZoExceptionLocation("file", longText, 42));
    exception.setLogInfo(&log);
    Block const block(exception.asBinary());
    XException const rebuilt(block.get());
    ZoException const& foreign = rebuilt;
    XTrapException const trap(longText, 0);
    Block const trapBlock(trap.asBinary());
    XBaseException const base(foreign);
    Block const baseBlock(base.asBinary());
    auto const tryWith = failEachOn([&] { return hexOf(exception); });
    auto const severity = ZoException::recoverable;
    failEachMaking<XBaseException>({"XBaseException::XBaseException(char*, ZoException::Severity, int)"}, +text,
                                   severity, 0);
    failEachMaking<XBaseException>({"XBaseException::XBaseException(ZoException const&)"}, foreign);
    failEachMaking<XBaseException>({"XBaseException::XBaseException(XBaseException const&)"}, base);
    failEachMaking<XException>({"XException::XException(char*, ZoException::Severity, int)"}, +text, severity, 0);
    failEachMaking<XException>({"XException::XException(ZoException const&)"}, foreign);
    failEachMaking<XException>({"XException::XException(XException const&)"}, rebuilt);
    failEachMaking<XTrapException>({"XTrapException::XTrapException(char*, int)"}, +text, 0);
    failEachMaking<XTrapException>({"XTrapException::XTrapException(XTrapException const&)"}, trap);
    failEach(
        {"XBaseException::XBaseException(unsigned char*)"}, [&] { XBaseException(baseBlock.get()); }, nothingToLookAt,
        Destroys::logs);
    failEach(
        {"XException::XException(unsigned char*)"}, [&] { XException const again(block.get()); }, nothingToLookAt,
        Destroys::logs);
    failEach(
        {"XTrapException::XTrapException(unsigned char*)"}, [&] { XTrapException const again(trapBlock.get()); },
        nothingToLookAt, Destroys::logs);
    failEach({"XBaseException::asBinary() const"}, [&] { Block(base.asBinary()); });
    failEach({"XException::asBinary() const"}, [&] { Block(rebuilt.asBinary()); });
    failEach({"XTrapException::asBinary() const"}, [&] { Block(trap.asBinary()); });
    tryWith("XBaseException::asString() const", [&] { exception.asString(); });
    tryWith("XBaseException::asTrace(ZoString, char) const", [&] { exception.asTrace(longText, 'F'); });
    failEach(
        {"XBaseException::setLogInfo(XMicrocodeLog*)"}, [&] { exception.setLogInfo(&log); },
        [&] { return hexOf(exception); }, Destroys::logs);
    tryWith("XBaseException::addData(XMicrocodeLogData const&)", [&] { exception.addData(item); });
    tryWith("XBaseException::data(unsigned int) const", [&] { exception.data(1); });
    tryWith("XBaseException::dataCount() const", [&] { exception.dataCount(); });
    expectNoAllocation([&] {
        exception.setLogged(exception.isLogged());
        static_cast<void>(exception.logInfo() == nullptr && exception.name() == nullptr);
    });
}

void someExit(int, siginfo*, void*) {}

// What the trap handler throws when the service fails takes memory; nothing else does.
void tryTrapHandler() {
    Names const all = {"XTrapHandler::XTrapHandler(XTrapHandler::ProcessType, void (*)(int, siginfo_t*, void*))",
                       "XTrapHandler::addUserExit(void (*)(int, siginfo_t*, void*))",
                       "XTrapHandler::removeUserExit(void (*)(int, siginfo_t*, void*))"};
    expectNoAllocation([] { XTrapHandler const handler(XTrapHandler::serviceProcess, someExit); });
    for (char const* const call : {"setup", "add", "remove"}) {
        fake.trapFailure = {call, 12, 26};
        failEach(
            all,
            [call] {
                try {
                    if (std::string(call) == "remove") {
                        XTrapHandler::removeUserExit(someExit);
                    } else {
                        XTrapHandler const handler(XTrapHandler::serviceProcess, someExit);
                    }
                    ADD_FAILURE() << "nothing was thrown";
                } catch (XException const&) {
                }
            },
            nothingToLookAt, Destroys::logs);
    }
    fake.trapFailure = {};
    std::exchange(fake.trapCalls, {});
}

// The items that go in front for a recording may stay in the log, but then they belong to it.
void tryRecordings() {
    auto const tryWith = [](Names const& names, auto record) {
        failEach(
            names,
            [record] {
                XException exception(longText, ZoException::recoverable, 0);
                XEndMicrocodeLog log(1, 2, 3, 4, "event", longText, XMicrocodeLog::omitAllTraces, 0, "");
                log.secondaryRefcodes()->emplace_back(1, 2, 3, 4);
                exception.setLogInfo(&log);
                try {
                    record(exception);
                } catch (std::bad_alloc const&) {
                    EXPECT_EQ(exception.isLogged(), 0);
                    throw;
                }
            },
            nothingToLookAt, Destroys::logs);
    };
    tryWith({"XBaseException::asLog()"}, [](XException& exception) {
        exception.asLog();
        EXPECT_EQ(exception.isLogged(), 1);
    });
    tryWith({"XMicrocodeLog::log()", "XLog::log()"}, [](XException& exception) { exception.logInfo()->log(); });
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
    fake.backtrace = longText;
    fake.fetch = [](char, char* buffer, unsigned) {
        buffer[0] = 'x';
        return 0;
    };
    tryTrace();
    tryBlocks();
    tryDataItems();
    tryAttributes();
    tryLogs();
    tryRefcodes();
    tryMicrocodeLogs();
    tryExceptions();
    tryTrapHandler();
    tryRecordings();
    fake.backtrace = nullptr;
    fake.fetch = nullptr;

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
