#include "ringfixture.h"

#include <sys/syscall.h>
#include <sys/time.h>
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <map>
#include <thread>

namespace ringtest {
namespace {

TEST_F(Ring, KeepsEveryLineOfManyWritersInTheirOrder) {
    constexpr unsigned processes = 4, threads = 3, lines = 1200;
    static_assert(processes * threads * lines < defaultRing);
    std::vector<pid_t> children;
    int gate[2];
    ASSERT_EQ(0, pipe(gate));
    for (unsigned process = 0; process < processes; ++process) {
        children.push_back(start([=] {
            char byte = 0;
            close(gate[1]);
            EXPECT_EQ(0, read(gate[0], &byte, 1));  // all start, and make the ring, at the same time
            std::vector<std::thread> writers;
            for (unsigned i = 0; i < threads; ++i) {
                writers.emplace_back(writeChecked, process * threads + i, lines);
            }
            for (std::thread& writer : writers) {
                writer.join();
            }
        }));
    }
    close(gate[0]);
    close(gate[1]);
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

TEST_F(Ring, GivesNobodyElseAccess) {
    for (mode_t const mask : {mode_t{0}, mode_t{0377}}) {
        fs::remove_all(folder_);
        EXPECT_EQ(0, inChild([&] {
                      umask(mask & 077);
                      EXPECT_EQ(0, mask == 0 ? 0 : mkdir(folder_.c_str(), 0700));
                      umask(mask);
                      xtr_trace("line");
                      EXPECT_TRUE(usesSharedRing());
                      EXPECT_NE(std::string::npos, contents("/proc/self/maps").find(" r--s "))
                          << "stray writes reach the identity";
                  }));
        struct stat status {};
        ASSERT_EQ(0, stat(folder_.c_str(), &status));
        EXPECT_EQ(mode_t{S_IFDIR | 0700}, status.st_mode);
        ASSERT_EQ(0, stat(ring_.c_str(), &status));
        EXPECT_EQ(mode_t{S_IFREG | 0600}, status.st_mode);
        EXPECT_GE(status.st_blocks * 512, static_cast<off_t>(zelq::ringFileSize(defaultRing)));
    }
}

TEST_F(Ring, KnowsProcessAndThreadAlsoAfterFork) {
    auto const self = [] { return std::to_string(getpid()) + " " + std::to_string(gettid()); };
    EXPECT_EQ(0, inChild([&] {
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
    ASSERT_EQ(4U, lines.size());
    for (TraceEntry const& entry : lines) {
        EXPECT_EQ(std::to_string(entry.pid) + " " + std::to_string(entry.tid), entry.line());
        EXPECT_EQ(1U, newest(reader, 10, {entry.pid, entry.tid, {}}).size());
    }
    EXPECT_EQ(2U, newest(reader, 10, {lines[0].pid, {}, 0}).size());
    EXPECT_EQ(0U, newest(reader, 10, {lines[0].pid, {}, 1}).size());
}

TEST_F(Ring, CutsLongLinesAndKeepsErrno) {
    struct timespec now {};
    clock_gettime(CLOCK_REALTIME, &now);
    std::size_t const lengths[] = {0, 1, 198, 199, 200, 300, 5000};
    EXPECT_EQ(0, inChild([&] {
                  errno = ENOTTY;
                  xtr_trace(nullptr);
                  for (std::size_t const length : lengths) {
                      xtr_trace_cb(static_cast<unsigned>(length), std::string(length, 'x').c_str());
                  }
                  EXPECT_EQ(ENOTTY, errno);
              }));
    RingReader reader;
    ASSERT_EQ(0, reader.open());
    Lines const lines = newest(reader, 10);
    ASSERT_EQ(std::size(lengths), lines.size());
    for (std::size_t i = 0; i < lines.size(); ++i) {
        EXPECT_EQ(lengths[i], lines[i].handle);
        EXPECT_EQ(std::string(std::min<std::size_t>(lengths[i], 199), 'x'), lines[i].line());
        EXPECT_NEAR(static_cast<double>(lines[i].timeNs), static_cast<double>(now.tv_sec) * 1e9, 60e9);
    }
}

TEST_F(Ring, ReadsALineWhereverItLiesAndNothingBehindIt) {
    constexpr std::size_t longest = 202, alignments = 17;
    EXPECT_EQ(0, inChild([] {
                  // The line's zero byte is the last one that can be read; or other text follows.
                  auto const page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
                  auto* const memory = static_cast<char*>(
                      mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
                  ASSERT_NE(MAP_FAILED, static_cast<void*>(memory));
                  ASSERT_EQ(0, mprotect(memory + page, page, PROT_NONE));
                  for (std::size_t length = 0; length <= longest; ++length) {
                      for (std::size_t behind = 0; behind < alignments; ++behind) {
                          std::memset(memory, 'y', page);
                          char* const line = memory + page - 1 - behind - length;
                          std::memset(line, 'x', length);
                          line[length] = '\0';
                          xtr_trace(line);
                      }
                  }
              }));
    RingReader reader;
    ASSERT_EQ(0, reader.open());
    Lines const lines = newest(reader, (longest + 1) * alignments);
    ASSERT_EQ((longest + 1) * alignments, lines.size());
    std::string const file = contents(ring_);
    for (std::size_t i = 0; i < lines.size(); ++i) {
        std::size_t const length = std::min<std::size_t>(i / alignments, 199);
        ASSERT_EQ(std::string(length, 'x'), lines[i].line()) << i;
    }
    for (std::size_t slot = zelq::ringHeaderSize; slot < file.size(); slot += zelq::ringSlotSize) {
        constexpr std::size_t textAt = offsetof(zelq::RingSlot, text);
        std::string const behind = file.substr(slot + textAt, zelq::ringSlotSize - textAt);
        ASSERT_EQ(std::string::npos, behind.find('y')) << "what lies behind a line is not the ring's business";
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
