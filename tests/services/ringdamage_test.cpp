#include "ringfixture.h"

#include <sys/resource.h>
#include <algorithm>
#include <cerrno>
#include <random>

namespace ringtest {
namespace {

TEST_F(Ring, TakesSlotsFromTheDeadAndLeavesThemToWhoeverMayBeAtWork) {
    makeSmallRing();
    auto const living = static_cast<std::uint32_t>(getpid());
    constexpr int fewLaps = (1 << 26) / smallRing - 1;
    struct Case {
        char const* what;
        int lapsAhead;  // of the lap that the next line belongs to
        std::uint32_t owner;
        bool busy;
        std::uint64_t slotsHeld;
        std::uint64_t skipped;
        bool written;
    };
    Case const cases[] = {
        {"finished, a lap ago", -1, living, false, 1, 0, true},
        {"at work for a lap", -1, living, true, 1, 1, true},
        {"at work for many lines", -fewLaps, living, true, 1, 1, true},
        {"at work for more lines than anybody needs", -fewLaps - 1, living, true, 1, 0, true},
        {"at work in a row", -1, living, true, 15, 15, true},
        {"too many of them", -1, living, true, 16, 16, false},
        {"all of them", -1, living, true, smallRing, 16, false},
        {"owner that cannot be", -1, 0, true, 1, 0, true},
        {"busy in this very lap", 0, living, true, 1, 1, true},
        {"finished in this very lap", 0, living, false, 1, 0, true},
        {"lap not reached, finished", 5, living, false, smallRing, 0, true},
        {"lap not reached, living owner", 5, living, true, smallRing, 0, true},
    };
    for (Case const& test : cases) {
        SCOPED_TRACE(test.what);
        constexpr std::uint64_t lap = fewLaps + 20;
        std::uint64_t const next = lap * smallRing + 7;
        std::uint64_t const control =
            zelq::slotControl(lap + static_cast<std::uint64_t>(test.lapsAhead), test.owner, test.busy);
        std::memset(static_cast<void*>(slots()), 0, smallRing * zelq::ringSlotSize);
        for (std::uint64_t i = 0; i < test.slotsHeld; ++i) {
            slots()[(next + i) % smallRing].control = control;
        }
        header()->nextTicket = next;
        ASSERT_EQ(0, inChild([] { xtr_trace_cb(3, "line"); }));
        for (std::uint64_t i = 0; i < test.skipped; ++i) {
            EXPECT_EQ(control, slots()[(next + i) % smallRing].control);
        }
        RingReader reader;
        ASSERT_EQ(0, reader.open());
        Lines const lines = newest(reader, 10);
        ASSERT_EQ(test.written ? 1U : 0U, lines.size());
        if (test.written) {
            EXPECT_EQ(next + test.skipped, lines[0].ticket);
        }
    }
}

TEST_F(Ring, RecoversFromDamageAsWritingGoesOn) {
    makeSmallRing();
    std::uint64_t const counters[] = {0, 1, 5 * smallRing + 3, 1ULL << 63, ~0ULL - 300, ~0ULL, 0x123456789abcdefULL};
    unsigned seed = 1;
    for (std::uint64_t const counter : counters) {
        SCOPED_TRACE(counter);
        std::mt19937 random(seed++);
        auto* const bytes = reinterpret_cast<unsigned char*>(slots());
        std::generate(bytes, bytes + smallRing * zelq::ringSlotSize,
                      [&] { return static_cast<unsigned char>(random()); });
        header()->nextTicket = counter;
        RingReader reader;
        ASSERT_EQ(0, reader.open());
        newest(reader, smallRing);
        ASSERT_EQ(0, inChild([] { writeChecked(5, 4 * smallRing); }));
        Lines const lines = newest(reader, smallRing - 56);
        ASSERT_EQ(smallRing - 56, lines.size());
        for (unsigned i = 0; i < lines.size(); ++i) {
            EXPECT_EQ(3 * smallRing + 56 + i, checkLine(lines[i]).number);
        }
    }
}

std::size_t residentMemory() {
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

TEST_F(Ring, NeedsLittleMemoryWithoutAPlaceToWrite) {
    auto const fill = [] {
        xtr_trace("first");
        EXPECT_FALSE(usesSharedRing());
        std::size_t const before = residentMemory();
        for (int i = 0; i < 100000; ++i) {
            xtr_trace("a line as long as most of them are, with nowhere to go");
        }
        EXPECT_LT(residentMemory() - before, 1U << 20);
    };
    EXPECT_EQ(0, inChild([&] {
                  setenv("ZELQ_DIR", "/proc/no/place", 1);
                  fill();
              }));
    EXPECT_EQ(0, inChild([&] {
                  struct rlimit const limit{4096, 4096};
                  setrlimit(RLIMIT_FSIZE, &limit);
                  fill();
              }));
    EXPECT_FALSE(fs::exists(ring_));
}

TEST_F(Ring, TracesNothingWithoutAnyMemory) {
    EXPECT_EQ(0, inChild([&] {
                  rlimit const none = {0, RLIM_INFINITY}, enough = {RLIM_INFINITY, RLIM_INFINITY};
                  setrlimit(RLIMIT_AS, &none);
                  xtr_trace("line");
                  xtr_dump_bytes_cb(0, "line", "bytes", 5);
                  char row[80];
                  EXPECT_NE(0, xtr_fetch(row, 1, 80, nullptr, nullptr));
                  setrlimit(RLIMIT_AS, &enough);
                  xtr_trace("next");
                  EXPECT_TRUE(usesSharedRing());
              }));
}

TEST_F(Ring, ReaderCountsWhatItMissedAndSurvivesACutFile) {
    makeSmallRing();
    RingReader reader;
    ASSERT_EQ(0, reader.open());
    EXPECT_EQ(1U, newest(reader, 1).size());
    ASSERT_EQ(0, inChild([] { writeChecked(1, smallRing + 44); }));
    Lines lines(smallRing);
    zelq::TraceProgress progress = reader.follow({}, lines.data(), 200);
    EXPECT_EQ(200U, progress.count);
    EXPECT_EQ(44U, progress.overrun);
    EXPECT_TRUE(progress.more);
    EXPECT_EQ(44U, checkLine(lines[0]).number);
    progress = reader.follow({}, lines.data(), 200);
    EXPECT_EQ(56U, progress.count);
    EXPECT_FALSE(progress.more);

    // A line whose writer died is waited for, but not for ever; the ones behind it come through.
    std::uint64_t const next = header()->nextTicket.fetch_add(1);
    slots()[next % smallRing].control = zelq::slotControl(next / smallRing, deadPid(), true);
    ASSERT_EQ(0, inChild([] { xtr_trace("behind"); }));
    EXPECT_EQ(0U, reader.follow({}, lines.data(), 200).count);
    usleep(300000);
    reader.follow({}, lines.data(), 200);
    usleep(300000);
    progress = reader.follow({}, lines.data(), 200);
    EXPECT_EQ(next + 1, lines[0].ticket);

    slots()[(next + 1) % smallRing].length = ~0U;
    EXPECT_EQ(zelq::ringLineMax, newest(reader, 1).at(0).length);
    EXPECT_FALSE(reader.isRemoved());
    for (std::size_t const size :
         {zelq::ringFileSize(smallRing) - 1, zelq::ringHeaderSize, std::size_t{10}, std::size_t{0}}) {
        ASSERT_EQ(0, truncate(ring_.c_str(), static_cast<off_t>(size)));
        EXPECT_EQ(0U, newest(reader, smallRing).size());
        EXPECT_EQ(0U, reader.follow({}, lines.data(), 200).count);
    }
    fs::remove(ring_);
    EXPECT_TRUE(reader.isRemoved());
    EXPECT_EQ(ENOENT, RingReader().open());
}

}  // namespace
}  // namespace ringtest
