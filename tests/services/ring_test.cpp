#include "ringfixture.h"

#include <sys/syscall.h>
#include <sys/time.h>
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <ctime>
#include <map>
#include <thread>

#include "support/guardedblock.h"

namespace ringtest {
namespace {

TEST_F(Ring, KeepsEveryLineOfManyWritersInTheirOrder) {
    constexpr unsigned processes = 4, threads = 3, lines = 1200;
    static_assert(processes * threads * lines < defaultRing);
    std::vector<pid_t> children;
    for (unsigned process = 0; process < processes; ++process) {
        children.push_back(start([=] {
            std::vector<std::thread> writers;
            for (unsigned i = 0; i < threads; ++i) {
                writers.emplace_back(writeChecked, process * threads + i, lines);
            }
            for (std::thread& writer : writers) {
                writer.join();
            }
        }));
    }
    RingReader reader;
    while (reader.open() != 0) {
        usleep(100);
    }
    std::map<unsigned, unsigned> next;
    Lines some(500);
    std::size_t total = 0;
    for (int idle = 0; idle < 3000 && total < processes * threads * lines; ++idle) {
        zelq::TraceProgress const progress = reader.follow({}, some.data(), some.size());
        for (std::size_t i = 0; i < progress.count; ++i) {
            Stamp const stamp = checkLine(some[i]);
            EXPECT_EQ(next[stamp.writer]++, stamp.number);
        }
        total += progress.count;
        EXPECT_EQ(0U, progress.overrun);
        idle = progress.count != 0 ? 0 : idle;
        usleep(progress.more ? 0 : 1000);
    }
    for (pid_t const child : children) {
        EXPECT_EQ(0, wait(child));
    }
    EXPECT_EQ(processes * threads * lines, total);
    EXPECT_EQ(total, newest(reader, defaultRing).size());
    auto const inFolder = fs::directory_iterator(folder_);
    EXPECT_EQ(1, std::distance(begin(inFolder), end(inFolder))) << "only the ring stays behind";
}

TEST_F(Ring, IsMadeOnceByAllThatStartTogether) {
    for (int round = 0; round < 20; ++round) {
        fs::remove(ring_);
        auto* const gate = static_cast<std::atomic<int>*>(
            mmap(nullptr, sizeof(std::atomic<int>), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
        std::vector<pid_t> children;
        for (int child = 0; child < 6; ++child) {
            children.push_back(start([=] {
                for (++*gate; *gate < 6;) {
                }
                xtr_trace("line");
            }));
        }
        for (pid_t const child : children) {
            EXPECT_EQ(0, wait(child));
        }
        munmap(gate, sizeof *gate);
        RingReader reader;
        ASSERT_EQ(0, reader.open());
        ASSERT_EQ(children.size(), newest(reader, 10).size());
    }
}

TEST_F(Ring, KnowsProcessAndThreadAlsoAfterFork) {
    auto const self = [] { return std::to_string(getpid()) + " " + std::to_string(gettid()); };
    EXPECT_EQ(0, inChild([&] {
                  if (vfork() == 0) {
                      xtr_trace(self().c_str());
                      _exit(0);
                  }
                  ::wait(nullptr);
                  xtr_trace(self().c_str());
                  std::thread([&] {
                      xtr_trace(self().c_str());
                      EXPECT_EQ(0, inChild([&] { xtr_trace(self().c_str()); }));
                  }).join();
                  if (syscall(SYS_clone, SIGCHLD, nullptr, nullptr, nullptr, nullptr) == 0) {
                      xtr_trace(self().c_str());  // a child that no fork handler heard of
                      _exit(0);
                  }
                  ::wait(nullptr);
              }));
    RingReader reader;
    ASSERT_EQ(0, reader.open());
    Lines const lines = newest(reader, 10);
    ASSERT_EQ(5U, lines.size());
    for (TraceEntry const& entry : lines) {
        EXPECT_EQ(std::to_string(entry.pid) + " " + std::to_string(entry.tid), entry.line());
        EXPECT_EQ(1U, newest(reader, 10, {entry.pid, entry.tid, {}}).size());
    }
    EXPECT_EQ(2U, newest(reader, 10, {lines[1].pid, {}, 0}).size());
    EXPECT_EQ(0U, newest(reader, 10, {lines[1].pid, {}, 1}).size());
}

TEST_F(Ring, ReadsALineWhereverItLiesAndNothingAroundIt) {
    constexpr std::size_t longest = 202, alignments = 17;
    EXPECT_EQ(0, inChild([] {
                  errno = ENOTTY;
                  xtr_trace(nullptr);
                  // The line's zero byte is the last one that can be read; or other text follows.
                  for (std::size_t length = 0; length <= longest; ++length) {
                      for (std::size_t behind = 0; behind < alignments; ++behind) {
                          Bytes bytes(alignments, 'y');
                          bytes.insert(bytes.end(), length, 'x');
                          bytes.push_back('\0');
                          bytes.insert(bytes.end(), behind, 'y');
                          GuardedBlock const memory(bytes);
                          xtr_trace_cb(static_cast<unsigned>(length),
                                       reinterpret_cast<char const*>(memory.get() + alignments));
                      }
                  }
                  EXPECT_EQ(ENOTTY, errno);
                  EXPECT_NE(std::string::npos, contents("/proc/self/maps").find(" r--s "))
                      << "stray writes reach the identity";
              }));
    RingReader reader;
    ASSERT_EQ(0, reader.open());
    Lines const lines = newest(reader, defaultRing);
    ASSERT_EQ((longest + 1) * alignments, lines.size());
    for (std::size_t i = 0; i < lines.size(); ++i) {
        std::size_t const length = i / alignments;
        ASSERT_EQ(std::string(std::min<std::size_t>(length, 199), 'x'), lines[i].line()) << i;
        ASSERT_EQ(length, lines[i].handle);
        ASSERT_NEAR(static_cast<double>(lines[i].timeNs) / 1e9, static_cast<double>(std::time(nullptr)), 60);
    }
    std::string const file = contents(ring_);
    for (std::size_t slot = zelq::ringHeaderSize; slot < file.size(); slot += zelq::ringSlotSize) {
        constexpr std::size_t textAt = offsetof(zelq::RingSlot, text);
        std::string const text = file.substr(slot + textAt, zelq::ringSlotSize - textAt);
        ASSERT_EQ(std::string::npos, text.find('y')) << "what lies around a line is not the ring's business";
    }
}

TEST_F(Ring, CanBeWrittenInASignalHandlerAmidALine) {
    static std::atomic<unsigned> inHandler;
    EXPECT_EQ(0, inChild([] {
                  alarm(60);
                  xtr_trace(checkedLine(0, 0).c_str());
                  static std::string const& line = *new std::string(checkedLine(1, 1));  // exit() may be interrupted
                  signal(SIGPROF, [](int) {
                      ++inHandler;
                      xtr_trace(line.c_str());
                  });
                  struct itimerval const often{{0, 100}, {0, 100}};
                  setitimer(ITIMER_PROF, &often, nullptr);
                  for (unsigned number = 0; inHandler < 20; ++number) {
                      writeChecked(0, 100);
                  }
              }));
    RingReader reader;
    ASSERT_EQ(0, reader.open());
    for (TraceEntry const& entry : newest(reader, defaultRing)) {
        checkLine(entry);
    }
}

}  // namespace
}  // namespace ringtest
