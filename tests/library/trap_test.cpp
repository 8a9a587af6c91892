#include "zelqcood/trap.h"

#include <gtest/gtest.h>

#include <string>

#include "support/failingnew.h"
#include "support/fakeservices.h"

namespace {

void someExit(int, siginfo*, void*) {}

std::string described(XException const& failure) {
    ZoExceptionLocation const& location = *failure.locationAtIndex(0);
    XMicrocodeLog const& log = *failure.logInfo();
    EXPECT_EQ(failure.locationCount(), 1ul);
    EXPECT_EQ(location.functionName(), nullptr);
    EXPECT_STREQ(log.eventName(), "PCERROR");
    char numbers[100];
    std::snprintf(numbers, sizeof numbers, ":%lu, log %X %X %X %d:", location.lineNumber(), log.logType(), log.user(),
                  log.errorId(), log.errorReason());
    return location.fileName() + std::string(numbers) + (failure.isRecoverable() ? " recoverable" : "") +
           (failure.isLogged() ? " logged" : "") + (log.isOwned() ? " owned" : "") + (log.isError() ? " error" : "") +
           (log.isBacktrace() ? " backtrace" : "");
}

// Every way of failing, as a caller meets it.
TEST(TrapHandler, ThrowsEveryFailureOfTheService) {
    struct {
        char const* call;
        int src;
        int crc;
        char const* text;
        char const* description;
    } const cases[] = {
        {"setup", 3, 0, "Error in XTrapHandler::TrapHandler calling xpce_setup(src=3, crc=0 0x0)",
         "xtraphdr.cpp:81, log 3D E007 7E0 0: owned error backtrace"},
        {"setup", 8, 255, "Error in XTrapHandler::TrapHandler calling xpce_setup(src=8, crc=255 0xFF)",
         "xtraphdr.cpp:81, log 3D E007 7E0 255: logged owned error backtrace"},
        {"add", 12, 26, "Error in XTrapHandler::addUserExit(src=12, crc=26 0x1A)",
         "xtraphdr.cpp:139, log 3D DE07 7DE 26: logged owned error backtrace"},
        {"add", 7, 0, "Error in XTrapHandler::addUserExit(src=7, crc=0 0x0)",
         "xtraphdr.cpp:134, log 3D DE07 7DE 0: recoverable"},
        {"remove", 12, 26, "Error in XTrapHandler::removeUserExit(src=12, crc=26 0x1A)",
         "xtraphdr.cpp:167, log 3D DF07 7DF 26: logged owned error backtrace"},
        {"remove", 1, 0, "Error in XTrapHandler::removeUserExit(src=1, crc=0 0x0)",
         "xtraphdr.cpp:162, log 3D DF07 7DF 0: recoverable"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.text);
        fake.trapFailure = {c.call, c.src, c.crc};
        clearTrace();
        try {
            if (std::string(c.call) == "remove") {
                XTrapHandler::removeUserExit(someExit);
            } else {
                XTrapHandler const handler(XTrapHandler::serviceProcess, someExit);
            }
            ADD_FAILURE() << "nothing was thrown";
        } catch (XException const& failure) {
            EXPECT_STREQ(failure.text(), c.text);
            EXPECT_EQ(described(failure), c.description);
        }
        EXPECT_NE(tracedText().find(std::string("XPCE___F: XException: ") + c.text), std::string::npos);
        EXPECT_EQ(tracedText().find("XPCE___T: < XTrapHandler::XTrapHandler"), std::string::npos);
    }
    fake.trapFailure = {};
}

TEST(TrapHandler, UsesTheServiceInOrder) {
    std::exchange(fake.trapCalls, {});
    { XTrapHandler const handler(XTrapHandler::serviceProcess, someExit); }
    EXPECT_EQ(std::exchange(fake.trapCalls, {}), "setup(2) add remove unset ");
    { XTrapHandler const handler(XTrapHandler::applicationProcess, nullptr); }
    EXPECT_EQ(std::exchange(fake.trapCalls, {}), "setup(1) unset ");
    { XTrapHandler const handler(XTrapHandler::ProcessType{0xFFFF}, nullptr); }  // known to the service alone
    EXPECT_EQ(std::exchange(fake.trapCalls, {}), "setup(65535) unset ");
    fake.trapFailure = {"add", 9, 9};
    EXPECT_THROW(XTrapHandler(XTrapHandler::applicationProcess, someExit), XException);
    EXPECT_EQ(std::exchange(fake.trapCalls, {}), "setup(1) add ");
    fake.trapFailure = {};
}

TEST(TrapHandler, DestructorThrowsOnlyWhenItMay) {
    fake.trapFailure = {"remove", 9, 9};
    std::exchange(fake.trapCalls, {});
    EXPECT_THROW(XTrapHandler(XTrapHandler::applicationProcess, someExit), XException);
    EXPECT_EQ(std::exchange(fake.trapCalls, {}), "setup(1) add remove ");
    clearTrace();
    try {
        XTrapHandler const handler(XTrapHandler::applicationProcess, someExit);
        throw 42;
    } catch (int value) {
        EXPECT_EQ(value, 42);
    }
    EXPECT_EQ(std::exchange(fake.trapCalls, {}), "setup(1) add remove unset ");
    EXPECT_NE(tracedText().find("XPCE___F: XException: Error in XTrapHandler::removeUserExit(src=9, crc=9 0x9)"),
              std::string::npos);
    EXPECT_THROW(
        {
            XTrapHandler const handler(XTrapHandler::applicationProcess, someExit);
            failAllocation(1);
        },
        std::bad_alloc);
    failAllocation(0);
    fake.trapFailure = {};
}

}  // namespace
