#include <algorithm>
#include <cerrno>
#include <climits>
#include <ctime>
#include <sstream>
#include <thread>

#include "ringfixture.h"
#include "support/guardedblock.h"

namespace ringtest {
namespace {

using Rows = std::vector<std::string>;
enum Whose { everybodys, processes, threads };
constexpr std::size_t timeWidth = sizeof "hh:mm:ss.mmm " - 1;

int fetch(Whose whose, char* buffer, unsigned lines, unsigned width, int* rowCount, int* byteCount) {
    return whose == everybodys ? xtr_fetch(buffer, lines, width, rowCount, byteCount)
                               : (whose == processes ? xtr_fetch_pid : xtr_fetch_tid)(buffer, lines * width, byteCount);
}

// Takes a snapshot into a buffer that begins behind a guard byte and ends where memory ends.
Rows snapshot(Whose whose, unsigned lines, unsigned width = 80) {
    std::size_t const size = std::size_t{lines} * width;
    GuardedBlock const guarded(Bytes(size + 1, 0xEE));
    char* const buffer = reinterpret_cast<char*>(guarded.get()) + 1;
    int rowCount = -1, byteCount = -1;
    errno = ENOTTY;
    EXPECT_EQ(0, fetch(whose, buffer, lines, width, &rowCount, &byteCount));
    EXPECT_EQ(ENOTTY, errno);
    std::string const text(buffer, static_cast<std::size_t>(byteCount));
    EXPECT_EQ(std::string(size - text.size(), '\xEE'), std::string(buffer + text.size(), buffer + size));
    EXPECT_TRUE(buffer[-1] == '\xEE' && (text.empty() || text.back() == '\n'));
    Rows rows;
    std::istringstream stream(text);
    for (std::string row; std::getline(stream, row); rows.push_back(row)) {
        EXPECT_LT(row.size(), width) << row;
    }
    EXPECT_EQ(whose == everybodys ? static_cast<int>(rows.size()) : -1, rowCount);
    return rows;
}

// What the rows of these lines must be.
Rows rowsOf(Lines const& lines, Whose whose, std::size_t width = 80) {
    Rows rows;
    for (TraceEntry const& entry : lines) {
        std::time_t const seconds = static_cast<std::time_t>(entry.timeNs / 1000000000);
        char time[16];
        std::strftime(time, sizeof time, "%H:%M:%S.", std::gmtime(&seconds));
        std::string const fraction = std::to_string(1000 + entry.timeNs / 1000000 % 1000).substr(1) + " ";
        std::string const pid = std::to_string(entry.pid) + "/", tid = std::to_string(entry.tid) + " ";
        std::string const origins[] = {pid + tid, tid, ""};
        rows.push_back((time + (fraction + origins[whose]) + entry.text).substr(0, width - 1));
    }
    return rows;
}

TEST_F(Ring, SnapshotShowsTheNewestLinesOldestFirst) {
    EXPECT_EQ(0, inChild([] {
                  EXPECT_EQ(Rows(), snapshot(everybodys, 5)) << "of a ring without lines";
                  for (unsigned round = 0; round < 5; ++round) {
                      writeChecked(1, 4);
                      std::thread([] { writeChecked(2, 3); }).join();
                      EXPECT_EQ(0, inChild([] {
                                    EXPECT_EQ(Rows(), snapshot(processes, 5)) << "what the parent wrote";
                                    writeChecked(3, 2);
                                    EXPECT_EQ(2U, snapshot(threads, 5).size());
                                }));
                  }
                  RingReader reader;
                  ASSERT_EQ(0, reader.open());
                  auto const pid = static_cast<unsigned>(getpid()), tid = static_cast<unsigned>(gettid());
                  for (unsigned const count : {0U, 1U, 2U, 19U, 20U, 21U, 44U, 45U, 46U, 1000U, 20000U}) {
                      EXPECT_EQ(rowsOf(newest(reader, count), everybodys), snapshot(everybodys, count));
                      EXPECT_EQ(rowsOf(newest(reader, count, {pid, {}, {}}), processes), snapshot(processes, count));
                      EXPECT_EQ(rowsOf(newest(reader, count, {pid, tid, {}}), threads), snapshot(threads, count));
                  }
                  for (unsigned const width : {0U, 1U, 2U, 3U, 13U, 14U, 30U, 200U, 255U, 5000U}) {
                      Lines const lines = newest(reader, width < 2 ? 0 : 45);  // 1 has no place but for newlines
                      EXPECT_EQ(rowsOf(lines, everybodys, width), snapshot(everybodys, 45, width));
                  }
              }));
}

TEST_F(Ring, SnapshotTakesWhatItIsGiven) {
    for (bool const isShared : {true, false}) {
        setenv("ZELQ_DIR", isShared ? folder_.c_str() : "/proc/nowhere", 1);
        EXPECT_EQ(0, inChild([=] {
                      xtr_trace("line");
                      EXPECT_EQ(isShared, usesSharedRing());
                      char buffer[1000];
                      int rows = 7, bytes = 7;
                      for (Whose const whose : {everybodys, processes, threads}) {
                          EXPECT_EQ(EINVAL, fetch(whose, nullptr, 1, 80, &rows, &bytes));
                          EXPECT_EQ(0, rows + bytes);
                          EXPECT_EQ(0, fetch(whose, buffer, 1, 80, nullptr, nullptr));
                          EXPECT_EQ(0, std::memcmp(std::strchr(buffer, '\n') - 4, "line", 4));
                      }
                      for (unsigned const size : {79U, 80U, 159U}) {
                          EXPECT_EQ(0, xtr_fetch_tid(buffer, size, &bytes));
                          EXPECT_EQ(size < 80 ? 0 : static_cast<int>(timeWidth + sizeof "line"), bytes);
                      }
                      EXPECT_EQ(0, xtr_fetch(buffer, UINT_MAX, UINT_MAX, &rows, &bytes)) << "there are few lines";
                  }));
    }
}

TEST_F(Ring, SnapshotIsTextWhateverWasTraced) {
    struct {
        std::string line;
        std::size_t room;  // for the text of the row
        char const* end;   // of the row
    } const cases[] = {
        {"a\tb\nc\r\x1b[1md\x7f", 50, " a.b.c..[1md."},
        {"C1 \xC2\x9B+ \xC2\x80\xC2\xA0", 50, " C1 .+ .\xC2\xA0"},
        {"\x80 \xC0\xAF \xED\xA0\x80 \xF5\x80 \xFF cut \xE2\x82", 50, " . .. ... .. . cut .."},
        {std::string(198, 'x') + "\xC3\xA4", 250, "xx."},  // cut by the ring
        {"\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80", 9, " \xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80"},
        {"\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80", 8, " \xC3\xA4\xE2\x82\xAC"},
        {"\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80", 1, " "},
    };
    EXPECT_EQ(0, inChild([&] {
                  std::string const id = std::to_string(getpid()) + "/" + std::to_string(gettid()) + " ";
                  auto const expectRow = [&](std::string const& line, std::size_t room, std::string const& end) {
                      xtr_trace(line.c_str());
                      unsigned const width = static_cast<unsigned>(timeWidth + id.size() + room + 1);
                      std::string const row = snapshot(everybodys, 1, width).at(0);
                      EXPECT_EQ(end, row.substr(row.size() - end.size())) << row;
                  };
                  for (auto const& test : cases) {
                      expectRow(test.line, test.room, test.end);
                  }
                  for (int byte = 1; byte < 256; ++byte) {
                      for (std::size_t const at : {0U, 15U, 16U, 20U}) {
                          std::string line(21, 'x'), end = " " + line;
                          line[at] = static_cast<char>(byte);
                          end[at + 1] = byte >= 0x20 && byte < 0x7F ? line[at] : '.';
                          expectRow(line, line.size(), end);
                      }
                  }
              }));
}

// Two writers meet the readers in the same slots, which are read in memory and in the file.
TEST_F(Ring, IsNeverReadWhileALineChanges) {
    setenv("ZELQ_RING_SIZE", "64K", 1);
    EXPECT_EQ(0, inChild([] {
                  alarm(60);
                  xtr_trace(checkedLine(1, 0).c_str());
                  start([] { writeChecked(1, UINT_MAX); });  // the writers end with this process
                  start([] { writeChecked(2, UINT_MAX); });
                  RingReader reader;
                  ASSERT_EQ(0, reader.open());
                  Lines lines(250);
                  for (std::size_t rows = 0, inFile = 0; rows < 400000 || inFile < 100000;) {
                      for (std::string const& row : snapshot(everybodys, 250, 250)) {
                          TraceEntry line{};
                          line.length = static_cast<unsigned>(row.copy(line.text, 199, row.find(' ', timeWidth) + 1));
                          rows += checkLine(line).writer;
                      }
                      std::size_t const count = reader.follow({}, lines.data(), lines.size()).count;
                      std::for_each_n(lines.begin(), count, checkLine);
                      inFile += count;
                  }
              }));
}

}  // namespace
}  // namespace ringtest
