// The viewer, run as a program: what it prints, where, and with which exit status.

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "zelqplatform/errorlog_service.h"
#include "zelqplatform/trace_service.h"

namespace {

namespace fs = std::filesystem;

struct Outcome {
    int status;
    std::string out;
    std::string err;
};

std::string contents(fs::path const& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void write(fs::path const& path, std::string const& bytes) {
    std::ofstream(path, std::ios::binary | std::ios::app) << bytes;
}

/// A line of the store with little in it.
std::string line(std::string const& id, std::string const& time, std::string const& event,
                 std::string const& more = "") {
    return R"({"v":1,"id":")" + id + R"(","time":")" + time +
           R"(","program":"demo","pid":7,"tid":8,"class":10,"type":2,"user":4660,"severity":"error","event":")" +
           event + "\"" + more + "}\n";
}

std::string minutesAgo(int minutes) {
    time_t const then = time(nullptr) - minutes * 60;
    tm moment = {};
    gmtime_r(&then, &moment);
    char text[40];
    strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S.000000Z", &moment);
    return text;
}

class ViewerTest : public testing::Test {
protected:
    ViewerTest() {
        char name[] = "/tmp/viewer_test.XXXXXX";
        root_ = mkdtemp(name);
        folder_ = root_ / "state";
        fs::create_directory(folder_);
        chmod(folder_.c_str(), 0700);
        setenv("ZELQ_DIR", folder_.c_str(), 1);
        setenv("TZ", "UTC", 1);
    }
    ~ViewerTest() override { fs::remove_all(root_); }

    /// Runs the viewer through a shell; `arguments` may redirect its output.
    Outcome zelq(std::string const& arguments = "") const {
        char const* program = std::getenv("ZELQ");
#ifdef ZELQ_PROGRAM
        program = program == nullptr ? ZELQ_PROGRAM : program;
#endif
        if (program == nullptr) {
            ADD_FAILURE() << "the environment variable ZELQ must name the viewer";
            return {-1, "", ""};
        }
        fs::path const out = root_ / "out";
        fs::path const err = root_ / "err";
        std::string const command =
            "{ '" + std::string(program) + "' " + arguments + "; } >" + out.string() + " 2>" + err.string();
        int const status = std::system(command.c_str());
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, contents(out), contents(err)};
    }

    fs::path store(int index = 0) const {
        return folder_ / (index == 0 ? "errors.jsonl" : "errors.jsonl." + std::to_string(index));
    }

    fs::path root_;
    fs::path folder_;
};

std::string const heading = "ID        TIME (UTC)            SEVERITY  CL TY USER  EVENT         PROGRAM\n";

TEST_F(ViewerTest, listIsTheDefaultAndReadsAllFiles) {
    write(store(9), line("aa00000000000001", "2026-11-22T10:00:00.000001Z", "OLDEST"));
    write(store(1), line("ab00000000000002", "2026-11-22T10:00:01.999999Z", "TWELVE CHARS"));
    write(store(), line("ac00000000000003", "2026-11-22T10:00:02.5Z", "NEWEST", R"(,"lost_before":2)"));
    std::string const first = "aa000000  2026-11-22 10:00:00Z  error     0a 02 1234  OLDEST        demo\n";
    std::string const second = "ab000000  2026-11-22 10:00:01Z  error     0a 02 1234  TWELVE CHARS  demo\n";
    std::string const third =
        "-- 2 records of pid 7 could not be stored before the next one --\n"
        "ac000000  2026-11-22 10:00:02Z  error     0a 02 1234  NEWEST        demo\n";
    for (char const* const arguments : {"", "log", "log list", "--no-pager log -n all", "log -n 3", "log -n99"}) {
        Outcome const run = zelq(arguments);
        EXPECT_EQ(run.out, heading + first + second + third) << arguments;
        EXPECT_EQ(run.err, "") << arguments;
        EXPECT_EQ(run.status, 0) << arguments;
    }
    EXPECT_EQ(zelq("log -n 2").out, heading + second + third);
    EXPECT_EQ(zelq("log list --lines=1").out, heading + third);
    EXPECT_EQ(zelq("log -n 0").status, 1);
    EXPECT_EQ(zelq("log -o json").out, contents(store(9)) + contents(store(1)) + contents(store()));
    EXPECT_EQ(zelq("log -o json -n 1").out, contents(store()));
}

TEST_F(ViewerTest, since) {
    write(store(), line("a1", minutesAgo(60 * 24 * 400), "YEAR") + line("a2", minutesAgo(90), "MINUTES90") +
                       line("a3", minutesAgo(5), "MINUTES5"));
    struct Row {
        char const* since;
        std::ptrdiff_t records;
    };
    Row const rows[] = {{"2001-02-03", 3},
                        {"2001-02-03 10:00", 3},
                        {"2001-02-03T10:00:01.5Z", 3},
                        {"@5", 3},
                        {"2 hours ago", 2},
                        {"1h 40min ago", 2},
                        {"-10min", 1},
                        {"10 min ago", 1},
                        {"-300d", 2},
                        {"1.5 hours ago", 1},
                        {"tomorrow", 0},
                        {"+5s", 0},
                        {"2099-12-31 23:59", 0},
                        {"now", 0}};
    for (Row const& row : rows) {
        Outcome const run = zelq("log -o json --since '" + std::string(row.since) + "'");
        EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\n'), row.records) << row.since;
        EXPECT_EQ(run.status, row.records > 0 ? 0 : 1) << row.since;
    }
    setenv("TZ", "XYZ-9", 1);  // nine hours east: its 09:00 is 00:00 UTC
    write(store(1), line("b1", "2026-11-22T00:00:00Z", "A") + line("b2", "2026-11-21T23:59:59Z", "B"));
    for (char const* const since : {"2026-11-22 09:00", "2026-11-22 00:00Z", "2026-11-22 00:00 UTC"}) {
        Outcome const run = zelq("log -o json --since '" + std::string(since) + "'");
        EXPECT_NE(run.out.find("\"b1\""), std::string::npos) << since;
        EXPECT_EQ(run.out.find("\"b2\""), std::string::npos) << since;
    }
}

TEST_F(ViewerTest, showsWhatTheServiceStored) {
    std::string allBytes;
    for (int byte = 0; byte < 256; ++byte) {
        allBytes += static_cast<char>(byte);
    }
    std::string const longText = "tab\there\n\nlast\n";
    xlog_detail_entry dump = {20, 2, {}, allBytes.data() + 60, nullptr};
    xlog_detail_entry text = {static_cast<std::uint32_t>(longText.size() + 1), 1, {}, longText.c_str(), &dump};
    xlog_record_interface record = {};
    record.attributes = XLOG_ERROR | XLOG_MODIFY_BLOCK | 0x0004;
    record.logClass = 255;
    record.user = 1;
    std::memcpy(record.eventName, "EVENT", 5);
    std::strcpy(record.logId, "id \x1b[31m \xFF");
    record.details = &text;
    ASSERT_EQ(xlog_record(&record, nullptr), XLOG_OK);

    std::string const json = contents(store());
    std::string const id = json.substr(json.find("\"id\":\"") + 6, 16);
    std::string const pid = std::to_string(getpid());
    Outcome const run = zelq("log show");
    EXPECT_EQ(run.out.substr(0, run.out.find("\ntime")), "id          " + id);
    EXPECT_NE(
        run.out.find("severity    error\nevent       EVENT\nlog id      id \\x1b[31m \\xff\nclass       0xff (255)\n"
                     "type        0x00 (0)\nuser        0x0001 (1)\nprogram     "),
        std::string::npos);
    EXPECT_NE(run.out.find(", process " + pid + ", thread " + pid + "\n"), std::string::npos);
    EXPECT_EQ(run.out.substr(run.out.find("attributes")),
              "attributes  0x0504 modify_block\n"
              "item 1      id 1, 16 bytes, text\n"
              "    tab\there\n"
              "    \n"
              "    last\n"
              "item 2      id 2, 20 bytes, text\n"
              "    <=>?@ABCDEFGHIJKLMNO\n");
    EXPECT_EQ(zelq("log show " + id).out, run.out);
    EXPECT_EQ(zelq("log show -o json " + id.substr(0, 5)).out, json);

    dump = {256, 2, {}, allBytes.data(), nullptr};
    record.details = &dump;
    ASSERT_EQ(xlog_record(&record, nullptr), XLOG_OK);
    std::string const out = zelq("log show").out;
    EXPECT_NE(out.find("\n    0030  30 31 32 33 34 35 36 37  38 39 3a 3b 3c 3d 3e 3f  |0123456789:;<=>?|\n"),
              std::string::npos);
    EXPECT_NE(out.find("\n    00f0  f0 f1 f2 f3 f4 f5 f6 f7  f8 f9 fa fb fc fd fe ff  |................|\n"),
              std::string::npos);
}

TEST_F(ViewerTest, idsMayBeShortButNotAmbiguous) {
    write(store(), line("abc0000000000001", "2026-11-22T10:00:00Z", "ONE") +
                       line("abd0000000000002", "2026-11-22T10:00:00Z", "TWO"));
    EXPECT_EQ(zelq("log show").out.substr(0, 29), "id          abd0000000000002\n");
    EXPECT_EQ(zelq("log show ABC").out.substr(0, 29), "id          abc0000000000001\n");
    Outcome const ambiguous = zelq("log show ab");
    EXPECT_EQ(ambiguous.status, 2);
    EXPECT_EQ(ambiguous.out, "");
    EXPECT_NE(ambiguous.err.find("ambiguous"), std::string::npos);
    EXPECT_NE(ambiguous.err.find("abc0000000000001  2026-11-22 10:00:00Z  ONE\n"), std::string::npos);
    Outcome const unknown = zelq("log show abe");
    EXPECT_EQ(unknown.err, "zelq: no record with id 'abe'\n");
    EXPECT_EQ(unknown.status, 1);
}

TEST_F(ViewerTest, badLinesAreToldAndTheRestIsShown) {
    std::string const good = line("aa00000000000001", "2026-11-22T10:00:00Z", "GOOD");
    struct Row {
        std::string bad;
        std::string reason;
    };
    Row const rows[] = {
        {"garbage", "invalid value, at byte 1"},
        {"{\"id\":\"a\xFF\"}", "invalid encoding in string"},
        {std::string("{}\0{}", 5), "zero byte, at byte 3"},
        {std::string(3000000, '['), "invalid value, at byte 3000001"},
        {"[1]", "not an object"},
        {"{\"id\":\"ab\"}", "not a record"},
        {"{\"id\":7,\"time\":\"x\"}", "field 'id' is not a string"},
        {"{\"id\":\"ab\",\"time\":\"2026-13-01T00:00:00Z\"}", "field 'time' is not a time"},
        {R"({"id":"ab","time":"2026-11-01T00:00:00Z","pid":"x"})", "field 'pid' is not a number"},
        {R"({"id":"ab","time":"2026-11-01T00:00:00Z","items":[7]})", "field 'items' holds something"},
        {R"({"id":"ab","time":"2026-11-01T00:00:00Z","items":[{"size":2}]})", "has an item without data"},
        {R"({"id":"ab","time":"2026-11-01T00:00:00Z","items":[{"size":3,"text":"x"}]})", "field 'size' differs"},
        {R"({"id":"ab","time":"2026-11-01T00:00:00Z","items":[{"size":3,"base64":"AAA"}]})", "is not base64"},
        {R"({"id":"ab","time":"2026-11-01T00:00:00Z","items":[{"size":3,"base64":"A\u0000AA"}]})", "is not base64"},
    };
    for (Row const& row : rows) {
        fs::remove(store());
        write(store(), good + row.bad + "\n" + good);
        Outcome const run = zelq("log -o json");
        EXPECT_EQ(run.out, good + good) << row.reason;
        EXPECT_EQ(run.status, 3) << row.reason;
        EXPECT_EQ(run.err.find("zelq: bad line 2 in errors.jsonl: "), 0U) << run.err;
        EXPECT_NE(run.err.find(row.reason), std::string::npos) << run.err;
    }
    fs::remove(store());
    write(store(), good + good.substr(0, 40));
    Outcome const torn = zelq("log -o json");
    EXPECT_EQ(torn.out, good);
    EXPECT_EQ(torn.err, "zelq: torn last line 2 in errors.jsonl: its writer died or is still writing\n");
    EXPECT_EQ(torn.status, 3);

    fs::remove(store());
    write(store(1), "bad\n\n" + good + "bad\n");  // an empty line is no record, and nothing is lost with it
    write(store(), "bad\n\n" + good);
    for (char const* const arguments : {"log -o json", "log -o json -n 9"}) {
        Outcome const run = zelq(arguments);
        EXPECT_EQ(run.out, good + good) << arguments;
        std::vector<std::size_t> places;
        for (char const* const place :
             {"line 1 in errors.jsonl.1:", "line 4 in errors.jsonl.1:", "line 1 in errors.jsonl:"}) {
            places.push_back(run.err.find(place));
            EXPECT_NE(places.back(), std::string::npos) << run.err;
        }
        EXPECT_TRUE(std::is_sorted(places.begin(), places.end())) << run.err;
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 3) << run.err;
    }
    fs::remove(store(1));

    fs::create_directory(store(1));
    EXPECT_NE(zelq("log -o json").err.find("not a regular file: 'errors.jsonl.1'"), std::string::npos);
    fs::remove(store(1));
    fs::create_symlink("/etc/passwd", store(1));
    EXPECT_NE(zelq("log -o json").err.find("cannot open 'errors.jsonl.1'"), std::string::npos);
}

TEST_F(ViewerTest, controlCharactersDoNotReachTheTerminal) {
    std::string const nasty = R"(\u001b[2J\u0007\r\u007f\u009b\u202e\u2066\u0000\n)";
    write(store(), line("aa", "2026-11-22T10:00:00Z", nasty,
                        R"(,"log_id":")" + nasty + R"(","host":")" + nasty + R"(","flags":[")" + nasty +
                            R"("],"items":[{"id":1,"size":4,"text":"\u00e4\u001b\r"}])"));
    write(store(), "\x1b[31mbad line\n");
    write(store(), "{\"\x1b\":1}\n");
    for (char const* const arguments : {"log", "log show aa"}) {
        Outcome const run = zelq(arguments);
        for (std::string const& text : {run.out, run.err}) {
            for (char const* const forbidden : {"\x1b", "\x07", "\r", "\x7f", "\xc2\x9b", "\u202e", "\u2066"}) {
                EXPECT_EQ(text.find(forbidden), std::string::npos) << arguments;
            }
            EXPECT_EQ(text.find('\0'), std::string::npos) << arguments;
        }
        EXPECT_NE(run.out.find(R"(\x1b[2J\x07\x0d\x7f\u009b\u202e\u2066\x00\x0a)"), std::string::npos) << run.out;
    }
    EXPECT_NE(zelq("log show aa").out.find("\n    \u00e4\\x1b\\x0d\n"), std::string::npos);
}

TEST_F(ViewerTest, colourOnlyWhenAsked) {
    write(store(), line("aa", "2026-11-22T10:00:00Z", "EVENT"));
    EXPECT_EQ(zelq("log").out.find('\x1b'), std::string::npos);
    EXPECT_EQ(zelq("log --color auto").out.find('\x1b'), std::string::npos);
    EXPECT_NE(zelq("log --color=always").out.find("\x1b[1;31merror"), std::string::npos);
    EXPECT_EQ(zelq("--color never log show").out.find('\x1b'), std::string::npos);
}

TEST_F(ViewerTest, nothingThere) {
    Outcome run = zelq();
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "zelq: no records yet: there is no store in '" + folder_.string() + "'\n");
    EXPECT_EQ(zelq("trace").status, 1);
    fs::remove_all(folder_);
    EXPECT_EQ(zelq("log show").status, 1);
    EXPECT_FALSE(fs::exists(folder_));  // looking makes nothing
    fs::create_directory(folder_);
    chmod(folder_.c_str(), 0700);
    write(store(), "");
    run = zelq();
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "zelq: no records in '" + folder_.string() + "'\n");
    chmod(folder_.c_str(), 0777);
    for (char const* const arguments : {"log", "trace"}) {
        run = zelq(arguments);
        EXPECT_EQ(run.status, 4) << arguments;
        EXPECT_NE(run.err.find("others may write into it"), std::string::npos) << arguments;
    }
}

TEST_F(ViewerTest, usage) {
    write(store(), line("aa", "2026-11-22T10:00:00Z", "EVENT"));
    for (char const* const arguments :
         {"nonsense", "log --nonsense", "log -n x", "log -n -1", "log -o xml", "log --since 2026-02-30",
          "log --since 'next week'", "log --since 24:00", "log show xyz", "log show a b", "log -n 1 show",
          "trace --pid x", "--color sometimes", "log list show"}) {
        Outcome const run = zelq(arguments);
        EXPECT_EQ(run.status, 2) << arguments;
        EXPECT_EQ(run.out, "") << arguments;
        EXPECT_EQ(run.err.find("zelq: "), 0U) << arguments;
    }
    for (char const* const arguments : {"--help", "log --help", "log list --help", "log show -h", "trace --help"}) {
        Outcome const run = zelq(arguments);
        EXPECT_EQ(run.status, 0) << arguments;
        EXPECT_NE(run.out.find("Usage: zelq"), std::string::npos) << arguments;
    }
    EXPECT_EQ(zelq("--version").out.find("zelq "), 0U);
    EXPECT_EQ(zelq("trace --version").out, zelq("--version").out);
}

TEST_F(ViewerTest, failedOutputIsAnError) {
    write(store(), line("aa", "2026-11-22T10:00:00Z", "EVENT"));
    for (char const* const arguments : {"log", "log show", "log -o json", "--help"}) {
        Outcome const run = zelq(std::string(arguments) + " >/dev/full");
        EXPECT_EQ(run.status, 4) << arguments;
        EXPECT_NE(run.err.find("cannot write to standard output"), std::string::npos) << arguments;
        EXPECT_EQ(zelq(std::string(arguments) + " >&-").status, 4) << arguments;
    }
    Outcome const closedPipe = zelq("log | true");
    EXPECT_EQ(closedPipe.err, "");
}

TEST_F(ViewerTest, readsWhileAWriterHoldsTheLock) {
    write(store(), line("aa", "2026-11-22T10:00:00Z", "EVENT"));
    write(folder_ / "errors.lock", "");
    int const held = open((folder_ / "errors.lock").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(flock(held, LOCK_EX), 0);
    EXPECT_EQ(zelq("log").status, 0);
    close(held);
}

// Rotates as the service does, but for each record, so that hardly a run of the viewer is undisturbed.
TEST_F(ViewerTest, seesNoGapWhileFilesMove) {
    constexpr int files = 6;
    pid_t const writer = fork();
    for (int i = 100000; writer == 0; ++i) {
        for (int index = files - 1; index > 0; --index) {
            std::rename(store(index - 1).c_str(), store(index).c_str());
        }
        write(store(), line("aa", "2026-11-22T10:00:00Z", std::to_string(i)));
        usleep(400);
    }
    int complete = 0;
    for (int i = 0; i < 100; ++i) {
        Outcome const run = zelq("log -o json");
        std::string const field = "\"event\":\"";
        int last = 0;
        int count = 0;
        for (std::size_t at = run.out.find(field); at != std::string::npos; at = run.out.find(field, at + 1), ++count) {
            int const number = std::stoi(run.out.substr(at + field.size(), 6));
            EXPECT_TRUE(last == 0 || number == last + 1) << number << " behind " << last;
            last = number;
        }
        complete += run.status == 0 && count >= files - 2 ? 1 : 0;
    }
    kill(writer, SIGKILL);
    waitpid(writer, nullptr, 0);
    EXPECT_GT(complete, 50);
}

TEST_F(ViewerTest, trace) {
    pid_t const writer = fork();
    if (writer == 0) {  // the ring is opened once for each process
        xtr_trace("first line");
        xtr_trace_cb(5, "with \x1b[31m handle");
        xtr_trace("third line");
        _exit(0);
    }
    int status = 0;
    waitpid(writer, &status, 0);
    ASSERT_EQ(status, 0);
    std::string const pid = std::to_string(writer);
    Outcome const all = zelq("trace");
    EXPECT_EQ(all.status, 0);
    EXPECT_EQ(all.err, "");
    EXPECT_EQ(all.out.find("-- 20"), 0U);
    EXPECT_EQ(std::count(all.out.begin(), all.out.end(), '\n'), 4);
    EXPECT_NE(all.out.find(pid + "/" + pid), std::string::npos);
    EXPECT_NE(all.out.find("  [5] with \\x1b[31m handle\n"), std::string::npos);
    EXPECT_LT(all.out.find("first line"), all.out.find("third line"));
    Outcome const newest = zelq("trace -n 1 -o json --pid " + pid);
    EXPECT_EQ(newest.out.find("{\"ticket\":"), 0U);
    EXPECT_NE(newest.out.find(",\"handle\":0,\"text\":\"third line\"}\n"), std::string::npos);
    EXPECT_NE(zelq("trace --handle 5 -o json").out.find("\\u001B[31m handle\"}\n"), std::string::npos);
    EXPECT_EQ(zelq("trace --pid 1").status, 1);
    EXPECT_EQ(zelq("trace --tid 1 -n 5").status, 1);

    Outcome const follow = zelq("trace -f -n 2 | head -n 3");  // ends although no line comes any more
    EXPECT_NE(follow.out.find("handle\n"), std::string::npos);
    EXPECT_EQ(follow.err, "");
    fs::remove(folder_ / "ring");
    write(folder_ / "ring", "no ring");
    EXPECT_EQ(zelq("trace").status, 3);
}

}  // namespace
