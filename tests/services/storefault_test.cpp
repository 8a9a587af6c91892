// The store when calls of the system fail, one after the other, and when a program dies in one:
// what was acknowledged stays, what was refused is not there, and the next record is well.

#include "storefixture.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <chrono>
#include <csignal>
#include <map>
#include <thread>

#include "support/cancelled.h"
#include "support/failingcalls.h"

namespace storetest {
namespace {

Fault const faults[] = {
    {"EIO", EIO, false, ""},
    {"EIO from then on", EIO, true, ""},
    {"ENOSPC", ENOSPC, false, ""},
    {"EINTR", EINTR, false, " openat write fsync fdatasync flock "},
    {"EINVAL", EINVAL, false, " fsync "},  // of a filesystem that has nothing to do for a folder
    {"half of it", halfOfIt, false, " write "},
    {"half of it, and then again", halfOfIt, true, " write "},
    {"death", dies, false, ""},
};

/// What the store holds before a record that meets a fault.
struct Situation {
    char const* what;
    std::vector<std::string> files;  ///< contents, the newest first
};

class StoreFault : public StoreTest {
protected:
    void prepare(Situation const& situation) {
        fs::remove_all(folder_);
        if (!situation.files.empty()) {
            fs::create_directories(folder_);
            fs::permissions(folder_, fs::perms::owner_all);
        }
        for (std::size_t i = 0; i < situation.files.size(); ++i) {
            append(store(static_cast<int>(i)), situation.files[i]);
        }
    }

    /// How often each line of the store comes up, records by their event names.
    std::map<std::string, int> stored() const {
        std::map<std::string, int> counts;
        for (int index = 0; index < 10; ++index) {
            for (std::string const& line : linesOf(store(index))) {
                Document record;
                record.Parse(line.data(), line.size());
                ++counts[record.IsObject() ? text(record["event"]) : line.empty() ? "blank" : "torn"];
            }
        }
        return counts;
    }
};

std::string line(std::string const& event, std::size_t size = 10) {
    return "{\"event\":\"" + event + "\",\"more\":\"" + std::string(size, 'x') + "\"}\n";
}

TEST_F(StoreFault, anyCallMayFail) {
    setenv("ZELQ_STORE_SIZE", "4K", 1);
    setenv("ZELQ_STORE_FILES", "4", 1);
    Situation const situations[] = {
        {"no folder", {}},
        {"room", {line("old")}},
        {"torn tail", {line("old") + "{\"event"}},
        {"full", {line("old", 3900), line("older"), line("oldest")}},
    };
    // Of a record that was refused. One whose sync failed is there, one that met death may be.
    std::map<std::string, std::string> const results = {
        {"open", failure(XLOG_NO_FOLDER, EIO)},        {"mkdir", failure(XLOG_NO_FOLDER, EIO)},
        {"flock", failure(XLOG_NO_LOCK, EIO)},         {"lseek", failure(XLOG_NO_STORE, EIO)},
        {"write", failure(XLOG_WRITE_FAILED, EIO)},    {"fsync", failure(XLOG_WRITE_FAILED, EIO)},
        {"fdatasync", failure(XLOG_SYNC_FAILED, EIO)},
    };
    std::map<std::string, int> hits;
    for (Situation const& situation : situations) {
        for (Fault const& fault : faults) {
            bool isHit = true;
            for (unsigned n = 1; isHit; ++n) {
                SCOPED_TRACE(std::string(situation.what) + ", " + fault.what + " at call " + std::to_string(n));
                prepare(situation);
                std::map<std::string, int> const before = stored();
                TestRecord record({}, "NEW");
                FaultAtCall atCall(fault, n);
                std::string outcome;
                auto const store = [&] {
                    CallsHooked const hooked(std::ref(atCall));
                    outcome = record.store();
                };
                if (fault.answer == dies) {
                    isHit = inChild([&] {
                                store();
                                _exit(1);  // no n-th call
                            }) == 0;
                } else {
                    store();
                    isHit = !atCall.failed().empty();
                    ++hits[atCall.failed()];
                    if (!isHit || *fault.only != '\0') {
                        EXPECT_EQ(outcome, "0 0") << atCall.failed();
                    }
                    auto const result = results.find(atCall.failed());
                    if (fault.answer == EIO && result != results.end()) {
                        EXPECT_EQ(outcome, result->second) << atCall.failed();
                    }
                }
                bool const isRefused = outcome.substr(0, 1) != "0" && outcome.substr(0, 1) != "7";
                std::map<std::string, int> after = stored();
                int const isThere = after["NEW"];
                EXPECT_LE(isThere, fault.answer != dies && isRefused ? 0 : 1) << atCall.failed();
                EXPECT_GE(isThere, isRefused ? 0 : 1) << atCall.failed();

                EXPECT_EQ(TestRecord({}, "NEXT").store(), "0 0");
                EXPECT_EQ(lostBefore(), fault.answer != dies && isRefused ? 1U : 0U);
                after = stored();
                EXPECT_EQ(after["NEXT"], 1);
                EXPECT_EQ(after["NEW"], isThere);
                for (auto const& [event, count] : before) {
                    EXPECT_EQ(after[event], count) << event;
                }
                EXPECT_LE(after["torn"], before.count("torn") + (fault.answer == dies ? 1U : 0U));
            }
        }
    }
    for (char const* const call : {"open", "mkdir", "openat", "fstat", "flock", "lseek", "renameat", "unlinkat",
                                   "pread", "write", "fsync", "fdatasync", "fstatat", "clock_gettime"}) {
        EXPECT_GT(hits[call], 0) << call << " is no longer called: are the calls still hooked?";
    }
}

// The order is what makes a record durable, and no test sees a disk that lost its power.
TEST_F(StoreFault, namesAreOnDiskBeforeTheRecordAndTheRecordBeforeTheAnswer) {
    fs::path const inner = root_ / "new" / "newer";
    setenv("ZELQ_DIR", inner.c_str(), 1);
    std::string calls;
    auto const note = [&](std::string const& name) {
        if (name == "fsync" || name == "write" || name == "fdatasync") {
            calls +=
                name + " " + fs::read_symlink("/proc/self/fd/" + std::to_string(hookedDescriptor())).string() + "\n";
        }
        return 0;
    };
    auto const store = [&] {
        CallsHooked const hooked(note);
        return TestRecord().store();
    };
    EXPECT_EQ(store(), "0 0");
    std::string const folders =
        "fsync " + inner.string() + "\nfsync " + (root_ / "new").string() + "\nfsync " + root_.string() + "\n";
    std::string const file = (inner / "errors.jsonl").string();
    std::string const record = "write " + file + "\nfdatasync " + file + "\n";
    EXPECT_EQ(calls.substr(0, folders.size()), folders);
    EXPECT_EQ(calls.substr(calls.size() - record.size()), record);
    calls.clear();
    EXPECT_EQ(store(), "0 0");
    EXPECT_EQ(calls, record);
}

// Written in two pieces, the second of which fails, and so does taking back the first.
TEST_F(StoreFault, noFileIsAStandardDescriptorOfAProgramWithoutThem) {
    EXPECT_EQ(0, inChild([] {
                  StandardDescriptorsClosed const closed;
                  EXPECT_EQ(TestRecord().store(), "0 0");
              }));
}

TEST_F(StoreFault, pieceThatCannotBeTakenBackIsFencedOff) {
    TestRecord({}, "OLD").store();
    bool isSecond = false;
    {
        CallsHooked const hooked([&](std::string const& name) {
            int const answer = name == "ftruncate" ? EIO : name != "write" ? 0 : isSecond ? ENOSPC : halfOfIt;
            isSecond = isSecond || name == "write";
            return answer;
        });
        EXPECT_EQ(TestRecord({}, "NEW").store(), failure(XLOG_WRITE_FAILED, ENOSPC));
    }
    EXPECT_EQ(TestRecord({}, "NEXT").store(), "0 0");
    EXPECT_EQ(stored(), (std::map<std::string, int>{{"OLD", 1}, {"torn", 1}, {"NEXT", 1}}));
}

// In a child, because the signal that comes with the limit ends a program that does not expect it.
TEST_F(StoreFault, fileSizeLimitRefusesAndKillsNobody) {
    for (rlim_t const roomLeft : {100U, 0U}) {
        for (bool const isPending : {false, true}) {
            fs::remove(store());
            TestRecord().store();
            std::string const before = contents(store());
            int const status = inChild([&] {
                sigset_t limitSignal, pending;
                sigemptyset(&limitSignal);
                sigaddset(&limitSignal, SIGXFSZ);
                if (isPending) {  // of the program's own, and not ours to take
                    sigprocmask(SIG_BLOCK, &limitSignal, nullptr);
                    raise(SIGXFSZ);
                }
                rlimit const full = {before.size() + roomLeft, RLIM_INFINITY};
                setrlimit(RLIMIT_FSIZE, &full);
                EXPECT_EQ(TestRecord().store(), failure(XLOG_WRITE_FAILED, EFBIG));
                EXPECT_EQ(contents(store()), before);
                EXPECT_EQ(sigpending(&pending), 0);
                EXPECT_EQ(sigismember(&pending, SIGXFSZ), isPending ? 1 : 0);
                rlimit const roomy = {RLIM_INFINITY, RLIM_INFINITY};
                setrlimit(RLIMIT_FSIZE, &roomy);
                EXPECT_EQ(TestRecord().store(), "0 0");
                EXPECT_EQ(lostBefore(), 1U);
            });
            EXPECT_EQ(status, 0) << roomLeft << isPending;
        }
    }
}

TEST_F(StoreFault, failedRotationLosesNothing) {
    setenv("ZELQ_STORE_SIZE", "4K", 1);
    setenv("ZELQ_STORE_FILES", "3", 1);
    auto const fill = [] {
        for (int i = 0; i < 20; ++i) {
            ASSERT_EQ(TestRecord({{1, std::string(600, 'x')}}).store(), "0 0");
        }
    };
    {
        CallsHooked const hooked([](std::string const& name) { return name == "renameat" ? EIO : 0; });
        fill();
    }
    EXPECT_EQ(linesOf(store()).size(), 20U);
    fs::create_directories(store(2) / "in the way");  // of files, which cannot take its place
    fill();
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(linesOf(store(i)).size(), 4U) << i;
    }
    EXPECT_TRUE(fs::exists(store(3) / "in the way"));
}

TEST_F(StoreFault, waitsForTheLockButNotForEver) {
    int const held = open(lock().c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(flock(held, LOCK_EX), 0);
    std::thread([held] {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        flock(held, LOCK_UN);
    }).detach();
    EXPECT_EQ(TestRecord().store(), "0 0");

    ASSERT_EQ(flock(held, LOCK_EX), 0);
    unsigned looks = 0;
    {
        CallsHooked const hooked([&](std::string const& name) {
            looks += name == "flock" ? 1U : 0U;
            return 0;
        });
        EXPECT_EQ(TestRecord().store(), failure(XLOG_NO_LOCK, EAGAIN));
    }
    EXPECT_GT(looks, 100U);  // in the ten seconds that it took itself to have waited
    close(held);
}

TEST_F(StoreFault, lockIsNotLeftToAForkedChild) {
    pid_t child = -1;
    CallsHooked const hooked([&](std::string const& name) {
        if (name == "write" && child < 0 && (child = fork()) == 0) {
            pause();
        }
        return 0;
    });
    EXPECT_EQ(TestRecord().store(), "0 0");
    EXPECT_EQ(TestRecord().store(), "0 0");
    killAndWait(child);
}

TEST_F(StoreFault, removedLockIsNotTrusted) {
    int const held = open(lock().c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(flock(held, LOCK_EX), 0);
    std::thread([this, held] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        fs::remove(lock());
        close(held);
    }).detach();
    EXPECT_EQ(TestRecord().store(), "0 0");
    EXPECT_TRUE(fs::exists(lock()));
}

TEST_F(StoreFault, cancelledThreadFinishesItsRecord) {
    EXPECT_TRUE(outlivesCancellation([] { EXPECT_EQ(TestRecord().store(), "0 0"); }));
    EXPECT_EQ(TestRecord().store(), "0 0");  // the lock is free
}

TEST_F(StoreFault, clockMayStandStillOrGoBackwards) {
    std::map<std::string, int> ids;
    for (time_t const now : {1000000, 1000000, 0}) {
        {
            CallsHooked const hooked([](std::string const& name) { return name == "getrandom" ? EAGAIN : 0; });
            setWallClock(now);
            EXPECT_EQ(TestRecord().store(), "0 0");
        }
        EXPECT_EQ(text(lastRecord()["time"]), now == 0 ? "1970-01-01T00:00:00.000000Z" : "1970-01-12T13:46:40.000000Z");
        ++ids[text(lastRecord()["id"])];
    }
    EXPECT_EQ(ids.size(), 3U);
}

}  // namespace
}  // namespace storetest
