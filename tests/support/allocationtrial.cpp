#include "support/allocationtrial.h"

#include <algorithm>

#include <gtest/gtest.h>

#include "support/failingnew.h"
#include "support/fakeservices.h"

std::set<std::string>& triedFunctions() {
    static std::set<std::string> names;
    return names;
}

void expectBalancedScopes() {
    std::vector<std::string> open;
    for (TraceCall const& call : traceCalls()) {
        if (call.line.compare(0, 7, "XPCE___") == 0) {
            continue;  // lines by themselves, no scopes
        }
        std::string const key = call.line.substr(0, 10) + call.line.substr(std::min<std::size_t>(12, call.line.size()));
        if (call.line.compare(10, 2, "> ") == 0) {
            open.push_back(key);
        } else if (call.line.compare(10, 2, "< ") == 0) {
            ASSERT_FALSE(open.empty());
            EXPECT_EQ(open.back(), key);
            open.pop_back();
        }
    }
    EXPECT_TRUE(open.empty());
}

void failEach(Names const& names, std::function<void()> const& operation, std::function<std::string()> const& unchanged,
              Destroys destroys) {
    SCOPED_TRACE(names[0]);
    triedFunctions().insert(names.begin(), names.end());
    std::string const before = unchanged();
    unsigned failures = 0;
    for (bool failed = true; failed; ++failures) {
        clearTrace();
        long const live = liveAllocations();
        bool thrown = false;
        failAllocation(failures + 1);
        try {
            operation();
        } catch (std::bad_alloc const&) {
            thrown = true;
        }
        failed = hasFailed();
        failAllocation(0);
        EXPECT_TRUE(thrown == failed || destroys == Destroys::logs) << "allocation " << failures + 1;
        expectBalancedScopes();
        if (thrown) {
            EXPECT_EQ(liveAllocations(), live) << "allocation " << failures + 1;
            ASSERT_EQ(unchanged(), before) << "allocation " << failures + 1;
        }
        ASSERT_LT(failures, 1000u);
    }
    EXPECT_GT(failures, 1u) << "nothing failed";
}

void expectNoAllocation(std::function<void()> const& operation) {
    failAllocation(1);
    operation();
    EXPECT_FALSE(hasFailed());
    failAllocation(0);
}
