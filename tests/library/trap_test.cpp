#include "zelqcood/trap.h"

#include <gtest/gtest.h>

#include <string>

#include "support/failingnew.h"
#include "support/fakeservices.h"

namespace {

void someExit(int, siginfo*, void*) {}

// Every way of failing, as a caller meets it.
TEST(TrapHandler, ThrowsEveryFailureOfTheService) {
    struct {
        char const* call;
        int src;
        int crc;
        char const* text;
        bool isRecoverable;
        int logged;
        unsigned long line;
        int user;
        int errorId;
        int owned;
    } const cases[] = {
        {"setup", 3, 0, "Error in XTrapHandler::TrapHandler calling xpce_setup(src=3, crc=0 0x0)", false, 0, 81, 0xE007,
         0x07E0, 1},
        {"setup", 8, 255, "Error in XTrapHandler::TrapHandler calling xpce_setup(src=8, crc=255 0xFF)", false, 1, 81,
         0xE007, 0x07E0, 1},
        {"add", 12, 26, "Error in XTrapHandler::addUserExit(src=12, crc=26 0x1A)", false, 1, 139, 0xDE07, 0x07DE, 1},
        {"add", 7, 0, "Error in XTrapHandler::addUserExit(src=7, crc=0 0x0)", true, 0, 134, 0xDE07, 0x07DE, 0},
        {"remove", 12, 26, "Error in XTrapHandler::removeUserExit(src=12, crc=26 0x1A)", false, 1, 167, 0xDF07, 0x07DF,
         1},
        {"remove", 1, 0, "Error in XTrapHandler::removeUserExit(src=1, crc=0 0x0)", true, 0, 162, 0xDF07, 0x07DF, 0},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.text);
        scriptTrapService(c.call, c.src, c.crc);
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
            EXPECT_EQ(failure.isRecoverable(), c.isRecoverable);
            EXPECT_EQ(failure.isLogged(), c.logged);
            ASSERT_EQ(failure.locationCount(), 1ul);
            EXPECT_STREQ(failure.locationAtIndex(0)->fileName(), "xtraphdr.cpp");
            EXPECT_EQ(failure.locationAtIndex(0)->functionName(), nullptr);
            EXPECT_EQ(failure.locationAtIndex(0)->lineNumber(), c.line);
            XMicrocodeLog const& log = *failure.logInfo();
            EXPECT_EQ(log.logType(), 0x3D);
            EXPECT_EQ(log.user(), c.user);
            EXPECT_EQ(log.errorId(), c.errorId);
            EXPECT_EQ(log.errorReason(), c.crc);
            EXPECT_STREQ(log.eventName(), "PCERROR");
            EXPECT_EQ(log.isOwned(), c.owned);
            EXPECT_EQ(log.isError(), c.isRecoverable ? 0 : 1);
            EXPECT_EQ(log.isBacktrace(), c.isRecoverable ? 0 : 1);
        }
        EXPECT_NE(tracedText().find(std::string("XPCE___F: XException: ") + c.text), std::string::npos);
        EXPECT_EQ(tracedText().find("XPCE___T: < XTrapHandler::XTrapHandler"), std::string::npos);
    }
    scriptTrapService("", 0, 0);
}

TEST(TrapHandler, UsesTheServiceInOrder) {
    takeTrapCalls();
    { XTrapHandler const handler(XTrapHandler::serviceProcess, someExit); }
    EXPECT_EQ(takeTrapCalls(), "setup(2) add remove unset ");
    { XTrapHandler const handler(XTrapHandler::applicationProcess, nullptr); }
    EXPECT_EQ(takeTrapCalls(), "setup(1) unset ");
    { XTrapHandler const handler(XTrapHandler::ProcessType{0xFFFF}, nullptr); }  // known to the service alone
    EXPECT_EQ(takeTrapCalls(), "setup(65535) unset ");
    scriptTrapService("add", 9, 9);
    EXPECT_THROW(XTrapHandler(XTrapHandler::applicationProcess, someExit), XException);
    EXPECT_EQ(takeTrapCalls(), "setup(1) add ");
    scriptTrapService("", 0, 0);
}

TEST(TrapHandler, DestructorThrowsOnlyWhenItMay) {
    scriptTrapService("remove", 9, 9);
    takeTrapCalls();
    EXPECT_THROW(XTrapHandler(XTrapHandler::applicationProcess, someExit), XException);
    EXPECT_EQ(takeTrapCalls(), "setup(1) add remove ");
    clearTrace();
    try {
        XTrapHandler const handler(XTrapHandler::applicationProcess, someExit);
        throw 42;
    } catch (int value) {
        EXPECT_EQ(value, 42);
    }
    EXPECT_EQ(takeTrapCalls(), "setup(1) add remove unset ");
    EXPECT_NE(tracedText().find("XPCE___F: XException: Error in XTrapHandler::removeUserExit(src=9, crc=9 0x9)"),
              std::string::npos);
    EXPECT_THROW(
        {
            XTrapHandler const handler(XTrapHandler::applicationProcess, someExit);
            failAllocation(1);
        },
        std::bad_alloc);
    failAllocation(0);
    scriptTrapService("", 0, 0);
}

}  // namespace
