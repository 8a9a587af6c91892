#include <gtest/gtest.h>

#include "support/allocationtrial.h"
#include "support/failingnew.h"
#include "support/fakeservices.h"
#include "support/sampleblocks.h"
#include "zelqcood/trap.h"

namespace {

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
        scriptTrapService(call, 12, 26);
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
    scriptTrapService("", 0, 0);
    takeTrapCalls();
}

// Records an object again and again, with each allocation of the recording failing once. The items
// that go in front for the recording may stay, but then they belong to the log.
template <class Make, class Record>
void failEachRecording(Names const& names, Make make, Record record) {
    SCOPED_TRACE(names[0]);
    triedFunctions().insert(names.begin(), names.end());
    bool failed = true;
    for (unsigned n = 1; failed; ++n) {
        long const live = liveAllocations();
        {
            auto const object = make();
            clearTrace();
            failAllocation(n);
            bool thrown = false;
            try {
                record(*object);
            } catch (std::bad_alloc const&) {
                thrown = true;
            }
            failed = hasFailed();
            failAllocation(0);
            expectBalancedScopes();
            if (auto const* const exception = dynamic_cast<XBaseException const*>(object.get())) {
                EXPECT_EQ(exception->isLogged(), thrown ? 0 : 1) << n;
            }
        }
        EXPECT_EQ(liveAllocations(), live) << n;
        ASSERT_LT(n, 100u);
    }
}

std::unique_ptr<ZoException> newException() {
    auto exception = std::make_unique<XException>(longText, ZoException::recoverable, 0);
    XEndMicrocodeLog log(1, 2, 3, 4, "event", longText, XMicrocodeLog::omitAllTraces, 0, "");
    log.secondaryRefcodes()->emplace_back(1, 2, 3, 4);
    exception->setLogInfo(&log);
    return exception;
}

void tryRecordings() {
    failEachRecording({"XBaseException::asLog()"}, newException,
                      [](ZoException& exception) { dynamic_cast<XBaseException&>(exception).asLog(); });
    failEachRecording({"XMicrocodeLog::log()", "XLog::log()"}, newException, [](ZoException& exception) {
        XBaseException& base = dynamic_cast<XBaseException&>(exception);
        base.logInfo()->log();
        base.setLogged(1);
    });
}

}  // namespace

void tryErrorReports() {
    tryMicrocodeLogs();
    tryExceptions();
    tryTrapHandler();
    tryRecordings();
}
