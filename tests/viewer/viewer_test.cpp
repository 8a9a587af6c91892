// The viewer, run as a program: what it prints, where, and with which exit status.

#include <sys/file.h>
#include <regex>
#include <utility>

#include "storefixture.h"
#include "viewerfixture.h"
#include "zelqplatform/trace_service.h"

namespace {

using Items = std::vector<storetest::Item>;

std::string const zero(1, '\0');

/// Records a log through the service, as programs do.
void record(Items const& items, unsigned char logClass = 10) {
    storetest::TestRecord log(items, "EVENT", "id \x1b[31m \xFF");
    log->attributes = XLOG_ERROR | XLOG_MODIFY_BLOCK | 0x0004;
    log->logClass = logClass;
    log->logType = 0x42;
    log->user = 1;
    ASSERT_EQ(log.store(), "0 0");
}

/// Rows `from` to 12 of a trace, each between two texts.
std::string rows(int from, std::string const& before = "", std::string const& after = "\n") {
    return from > 12 ? "" : before + "row " + std::to_string(from) + after + rows(from + 1, before, after);
}

TEST_F(ViewerTest, listIsTheDefaultAndReadsAllFiles) {
    // In base64 a reference code; the item of 5 bytes is none.
    std::string const code = R"(,"items":[{"id":240,"size":6,"base64":"IgAGAACA"},{"id":240,"size":5,"text":"later"}])";
    write(store(9), line("aa00000000000001", "OLDEST", "", "2026-11-22T10:00:00.000001Z"));
    write(store(1), line("ab00000000000002", "TWELVE CHARS", code, "2026-11-22T10:00:01.999999Z"));
    write(store(), line("ac00000000000003", "NEWEST", R"(,"lost_before":2)", "2026-11-22T10:00:02.5Z"));
    std::string const head = "ID       TIME (UTC)           SEV   CL TY or REFCODE  EVENT        PROGRAM\n";
    std::string const first = "aa000000 2026-11-22 10:00:00Z error 0a 02             OLDEST       demo\n";
    std::string const last =
        "ab000000 2026-11-22 10:00:01Z error A0020022 80000006 TWELVE CHARS demo\n"
        "-- 2 records of pid 7 could not be stored before the next one --\n"
        "ac000000 2026-11-22 10:00:02Z error 0a 02             NEWEST       demo\n";
    int const held = open((folder_ / "errors.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(flock(held, LOCK_EX), 0);  // readers do not wait for writers
    for (char const* const arguments : {"", "log", "log list", "--no-pager log -n all", "log -n 3", "log -n99"}) {
        expect(arguments, 0, head + first + last);
    }
    close(held);
    EXPECT_EQ(zelq("log list --lines=2"), head + last);
    expect("log -n 0", 1, "");
    EXPECT_EQ(zelq("log -o json"), contents(store(9)) + contents(store(1)) + contents(store()));
    EXPECT_EQ(zelq("log -o json -n 1"), contents(store()));
}

TEST_F(ViewerTest, since) {
    for (time_t const minutes : {60 * 24 * 400, 90, 5}) {
        time_t const then = time(nullptr) - minutes * 60;
        char text[40];
        strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S.000000Z", gmtime(&then));
        write(store(), line("aa", std::to_string(minutes), "", text));
    }
    // The age of the oldest record that is shown, in minutes.
    for (std::string const row :
         {"576000 2001-02-03", "576000 2001-02-03 10:00", "576000 2001-02-03T10:00:01.5Z", "576000 @5",
          "90 2 hours ago", "90 1h 40min ago", "90 -300d", "5 -10min", "5 10 min ago ", "5 1.4 hours ago"}) {
        std::size_t const space = row.find(' ');
        expect("log --since '" + row.substr(space + 1) + "' | sed -n 2p", 0, " " + row.substr(0, space) + " ");
    }
    for (std::string const since : {"tomorrow", "+5s", "2099-12-31 23:59", "now"}) {
        expect("log --since '" + since + "'", 1, "", "no records match in ");
    }
    setenv("TZ", "XYZ-9", 1);  // nine hours east: its 09:00 is 00:00 UTC
    write(store(1), line("b2", "B", "", "2026-11-21T23:59:59Z") + line("b1", "A", "", "2026-11-22T00:00:00Z"));
    for (std::string const since : {"2026-11-22 09:00", "2026-11-22 00:00Z", "2026-11-22 00:00 UTC"}) {
        expect("log --since '" + since + "' | sed -n 2p", 0, "b1 ");
    }
}

TEST_F(ViewerTest, showsWhatTheServiceStored) {
    std::string const bytes = "0123456789abcde~\x7f\x80\xff" + zero + "\x1f ";
    record({{1, "tab\there\n\nlast\n" + zero}, {0xE0, "no code"}, {239, rows(1)}, {2, bytes}}, 255);
    std::string const json = contents(store());
    std::string const id = json.substr(json.find("\"id\":\"") + 6, 16);
    std::string const out = zelq("log show");
    EXPECT_EQ(
        std::regex_replace(out, std::regex("(\ntime  |\nhost  ).*"), ""),
        "id          " + id +
            "\nseverity    error\nevent       EVENT\nlog id      id \\x1b[31m \\xff\nclass       0xff (255)\n"
            "type        0x42 (66)\nuser        0x0001 (1)\nprogram     viewer_test, process " +
            std::to_string(getpid()) + ", thread " + std::to_string(getpid()) +
            "\nattributes  0x0504 modify_block\nitem 0x01   16 bytes, text\n    tab\there\n\n    last\n"
            "item 0xe0   7 bytes, text\n    no code\nitem 0xef   75 bytes, text\n" +
            rows(1, "    ") +
            "item 0x02   22 bytes\n    0000  30 31 32 33 34 35 36 37  38 39 61 62 63 64 65 7e  |0123456789abcde~|\n"
            "    0010  7f 80 ff 00 1f 20                                 |..... |\n");
    EXPECT_EQ(zelq("log show " + id), out);
    EXPECT_EQ(zelq("log show --full -o json " + id.substr(0, 5)), json);
}

TEST_F(ViewerTest, microcodeLogsReadFromCauseToTrace) {
    // What is shown behind the fields, with '|' for a line that belongs to the one above.
    auto const shown = [&](Items const& items, std::string const& option = "") {
        record(items);
        std::string const out = zelq("log show " + option + " | sed -n '/^refcode/p; 1,/^attributes/!p'");
        return std::regex_replace(out, std::regex("\n(    |(?=\n))"), "|");
    };
    storetest::Item const code = {240, {"\x22\0\6\0\0\0", 6}};
    std::string const ref = "refcode     A0420022 00000006\n";
    std::string const codes = "Secondary Reference Codes:\n\nA0410011 00000000\n0BDFABCD FFFFFFFF" + zero;
    std::string const shownCodes = "|A0410011 00000000|0BDFABCD FFFFFFFF\n";
    std::string const dump = "|0000  01                                                |.|\n";
    std::string const last = "trace, last 10 of 12 lines (--full shows all)" + rows(3, "|", "") + "\n";
    std::string const trace = rows(1) + zero;
    std::string const text = "one\n\ntwo\n#0  0x1  f\n#1  0x2  main" + zero;
    Items const whole = {{3, "\1"}, {0xE0, text}, {0xE1, codes}, {239, trace}, {238, rows(3)}, {9, "own"}, code};
    std::string const begin =
        ref + "text|one||two\nbacktrace|#0  0x1  f|#1  0x2  main\nsecondary reference codes" + shownCodes + "system ";
    std::string const end = "process trace, 10 lines" + rows(3, "|", "") + "\nitem 0x03   1 byte" + dump +
                            "item 0x09   3 bytes, text|own\n";
    EXPECT_EQ(shown(whole), begin + last + end);
    EXPECT_EQ(shown(whole, "--full"), begin + "trace, 12 lines" + rows(1, "|", "") + "\n" + end);
    std::pair<Items, std::string> const table[] = {
        // Recorded twice; the newest code happens to be text.
        {{{240, "12345\xFF"}, {240, "00000" + zero}},
         "refcode     A0423030 00303030\nitem 0xf0   6 bytes, error id and reason of an earlier recording"
         "|0000  31 32 33 34 35 ff                                 |12345.|\n"},
        // Without a text of its own; what comes second under a number is a program's.
        {{{0xE0, codes}, {0xE1, codes}, code},
         ref + "secondary reference codes" + shownCodes + "item 0xe1   64 bytes, text|Secondary Reference Codes:|" +
             shownCodes},
        {{{0xE0, "\n#0  0x1\nDeserialized\n#0  0x2"}, {0xE0, "#0  0x3"}, code},
         ref + "backtrace|#0  0x1|Deserialized|#0  0x2\nitem 0xe0   7 bytes, text|#0  0x3\n"},
        {{{0xE0, "T\n\nDeserialized\n#0  0x1"}, code}, ref + "text|T|\nbacktrace|Deserialized|#0  0x1\n"},
        {{{0xE0, "\x1b[2J\xFF\n#0  0x1"}, code}, ref + "text|\\x1b[2J\\xff\nbacktrace|#0  0x1\n"},
        // Odd ones, of which nothing is lost.
        {{{0xE0, "x #0  0x1"}, {237, zero}, {238, "\1"}, {239, rows(1)}, code, {240, "7 bytes"}},
         ref + "text|x #0  0x1\nthread trace, 0 lines\nsystem " + last + "item 0xee   1 byte" + dump +
             "item 0xf0   7 bytes, text|7 bytes\n"},
        {{{0xE0, "\x1b"}, {0xE0, "second"}, code},
         ref + "text|second\nitem 0xe0   1 byte|0000  1b                                                |.|\n"},
        {{{0xE0, codes}, {0xE0, "own"}, code},
         ref + "secondary reference codes" + shownCodes + "item 0xe0   3 bytes, text|own\n"},
        {{{0xE0, codes.substr(0, 44)}, code}, ref + "text|Secondary Reference Codes:||A0410011 0000000\n"},
        {{{0xE0, "#0  0x1"}, {240, "five!"}}, "item 0xe0   7 bytes, text|#0  0x1\nitem 0xf0   5 bytes, text|five!\n"}};
    for (auto const& [items, expected] : table) {
        EXPECT_EQ(shown(items), expected);
    }
    // A fold passes over what the library tells of its own work, and says so.
    auto const separated = [](std::string const& joined, std::string const& by) {
        return std::regex_replace(joined, std::regex("\\|"), by);
    };
    std::string const last4 = "|XLIBBLKF: Invalid|XLIBFOO: > x|PUMP: XLIBLOGD: > x|PUMPCTLD: > stop";
    std::string const routine = "|XLIBLOGD: > data|XLIBLOGD: returns 0x1|XLIBBLKF: < findBlock|XLIBMLGT: > operator+=";
    std::string const last10 = routine.substr(routine.find("|XLIBB")) + routine + routine;
    EXPECT_EQ(shown({{237, separated(last4 + routine + routine, "\n10:00:00.123 ").substr(1)},
                     {238, separated("|1|2" + last10, "\n10:00:00.123 4711 ").substr(1)},
                     code}),
              ref + "thread trace, last 4 of 12 lines, 8 library lines hidden (--full shows all)" +
                  separated(last4, "|10:00:00.123 ") + "\nprocess trace, last 2 of 12 lines, 10 library lines hidden" +
                  " (--full shows all)|10:00:00.123 4711 1|10:00:00.123 4711 2\n");
    EXPECT_EQ(
        shown({{239, separated(routine + last10, "\n10:00:00.123 1/2 ").substr(1)}, code}),
        ref + "system trace, last 10 of 14 lines (--full shows all)" + separated(last10, "|10:00:00.123 1/2 ") + "\n");
    record({{240, "\x22\1\xFE\xFF\xFF\xFF"}}, 0x0B);
    expect("log show | grep '^refcode\\|^error'", 0,
           "refcode     0B420122 FFFFFFFE\nerror       id 0x0122 (290), reason -2\n");
}

TEST_F(ViewerTest, badLinesAreToldAndTheRestIsShown) {
    std::string const good = line("aa00000000000001", "GOOD");
    std::string const begin = R"({"id":"ab","time":"2026-11-01T00:00:00Z",)";
    std::string flags;
    for (int i = 0; i < 100; ++i) {
        flags += R"("",)";
    }
    for (std::string const& row : std::vector<std::string>{
             "garbage => invalid value, at byte 1", "{\"a\":" + std::string(3000000, '[') + " => nested too deeply",
             "{\"id\":\"a\xFF\"} => invalid encoding in string", "{}" + zero + "{} => zero byte, at byte 3",
             "[1] => not an object", R"({"id":"ab"} => not a record)",
             R"({"id":7,"time":"x"} => field 'id' is not a string)",
             R"({"id":"ab","time":"2026-13-01T00:00:00Z"} => field 'time' is not a time)",
             begin + R"("pid":"x"} => field 'pid' is not a number)",
             begin + R"("items":[7]} => field 'items' holds something)",
             begin + R"("flags":[)" + flags + R"(""]} => field 'flags' holds too many)",
             begin + R"("items":[{"size":2}]} => field 'items' has an item without data)",
             begin + R"("items":[{"size":3,"text":"x"}]} => field 'size' differs)",
             begin + R"("items":[{"size":3,"base64":"AAA"}]} => field 'base64' is not base64)",
             begin + R"("items":[{"size":3,"base64":"A\u0000AA"}]} => field 'base64' is not base64)"}) {
        std::size_t const arrow = row.find(" => ");
        fs::remove(store());
        write(store(), good + row.substr(0, arrow) + "\n" + good);
        expect("log -o json", 3, good + good, "zelq: bad line 2 in errors.jsonl: " + row.substr(arrow + 4));
    }
    fs::remove(store());  // what a later version adds is no damage
    write(store(),
          line("ab", "NEW", R"(,"new":{"a":[null,true,-1,2.5]},"items":[{"id":1,"size":1,"text":"x","b":[]}])"));
    expect("log show", 0, "text\n    x\n");
    fs::remove(store());
    write(store(1), "bad\n\n" + good + "bad\n");  // an empty line is no record, and nothing is lost with it
    write(store(), "bad\n\n" + good + good.substr(0, 40));
    for (std::string const order : {"", " -n 9"}) {
        expect("log -o json" + order, 3, good + good,
               "zelq: bad line 1 in errors.jsonl.1: invalid value, at byte 1\n"
               "zelq: bad line 4 in errors.jsonl.1: invalid value, at byte 1\n"
               "zelq: bad line 1 in errors.jsonl: invalid value, at byte 1\n"
               "zelq: torn line 4 in errors.jsonl: its writer died or is still writing\n");
    }
    fs::create_directory(store(2));
    expect("log", 3, "GOOD", "not a regular file: 'errors.jsonl.2'");
    fs::create_symlink("/etc/passwd", store(3));
    expect("log", 3, "GOOD", "cannot open 'errors.jsonl.3'");
}

TEST_F(ViewerTest, controlCharactersDoNotReachTheTerminal) {
    std::string const nasty = R"(\u001b[2J\u0007\r\u007f\u009b\u202e\u2066\u0000\n)";
    std::string more = R"(,"log_id":"X","host":"X","flags":["X"],"items":[{"id":1,"size":4,"text":"\u00e4\u001b\r"}])";
    for (std::size_t at = more.find('X'); at != std::string::npos; at = more.find('X')) {
        more.replace(at, 1, nasty);
    }
    write(store(), line("aa", nasty, more) + "\x1b[31mbad line\n{\"\x1b\":1}\n");
    for (std::string const arguments : {"log", "log show aa"}) {
        expect(arguments, 3, R"(\x1b[2J\x07\x0d\x7f\u009b\u202e\u2066\x00\x0a)", "bad line");
        std::string const both = zelq(arguments + " 2>&1");
        EXPECT_EQ(both.find_first_of("\x1b\x07\r\x7f" + zero), std::string::npos) << both;
        EXPECT_FALSE(std::regex_search(both, std::regex("\xc2\x9b|\u202e|\u2066"))) << both;
    }
    expect("log show aa", 3, "\n    \u00e4\\x1b\\x0d\n", "bad line");
    expect("log --color=always", 3, "\x1b[1;31merror", "bad line");  // but when asked for
    EXPECT_FALSE(has(zelq("log --color auto") + zelq("--color never log show aa"), "\x1b"));
}

TEST_F(ViewerTest, exitStatusAndComplaints) {
    expect("", 1, "", "zelq: no records yet: there is no store in '" + folder_.string() + "'\n");
    expect("log stats", 1, "", "zelq: no records yet");
    expect("log prune --keep-days 1", 0, "", "zelq: no records yet");
    expect("trace", 1, "", "zelq: no trace yet");
    fs::remove_all(folder_);
    expect("log show", 1, "", "zelq: no records yet");
    EXPECT_EQ(mkdir(folder_.c_str(), 0700), 0);  // looking makes nothing
    write(store(), "");
    expect("", 1, "", "zelq: no records in '" + folder_.string() + "'\n");

    fs::create_symlink(folder_, root_ / "link");
    mkdir((root_ / "open").c_str(), 0700);
    chmod((root_ / "open").c_str(), 0777);
    std::string const unusable[][2] = {
        {root_ / "link", "': it is a link or no folder\n"},
        {root_ / "open", "': it belongs to another user, or others may write into it\n"},
        {"/" + std::string(600, 'x'), "': its path is too long\n"},
    };
    for (auto const& [folder, reason] : unusable) {
        setenv("ZELQ_DIR", folder.c_str(), 1);
        for (char const* const arguments : {"log", "trace", "log prune --keep-days 1"}) {
            expect(arguments, 4, "", reason);
        }
    }
    setenv("ZELQ_DIR", folder_.c_str(), 1);
    write(store(), line("abc0000000000001", "ONE") + line("abd0000000000002", "TWO"));
    expect("log show", 0, "id          abd0000000000002\n");
    expect("log show ABC", 0, "id          abc0000000000001\n");
    expect("log show ab", 2, "",
           "ambiguous, it begins the ids of 2 records:\nzelq:   abc0000000000001  2026-11-22 10:00:00Z  ONE\n");
    expect("log show abe", 1, "", "zelq: no record with id 'abe'\n");
    for (char const* const arguments : {"nonsense",
                                        "log --nonsense",
                                        "log -n x",
                                        "log -n -1",
                                        "log -o xml",
                                        "log --since 2026-02-30",
                                        "log --since 'next week'",
                                        "log --since 24:00",
                                        "log --since 10:00:",
                                        "log --since 10:00:00.",
                                        "log --since ' '",
                                        "log --since 2026-11-22x10:00",
                                        "log --since -min",
                                        "log --since '5 parsecs ago'",
                                        "log --since 'x ago'",
                                        "log show xyz",
                                        "log show a b",
                                        "log -n 1 show",
                                        "trace --pid x",
                                        "--color sometimes",
                                        "log list show"}) {
        expect(arguments, 2, "", "zelq: ");
    }
    for (char const* const arguments : {"--help", "log --help", "log list --help", "log show -h", "trace --help"}) {
        expect(arguments, 0, "Usage: zelq");
    }
    expect("trace --version", 0, "zelq ");
    for (std::string const arguments : {"log", "log show", "log -o json", "--help"}) {
        expect(arguments + " >/dev/full", 4, "", "cannot write to standard output: No space left");
        expect(arguments + " >&-", 4, "", "cannot write to standard output: Bad file");
    }
    expect("log | true", 0, "");
    chmod(folder_.c_str(), 0777);
    expect("log", 4, "", "others may write into it");
    expect("trace", 4, "", "others may write into it");
}

// Rotates as the service does, but for each record, so that hardly a run of the viewer is undisturbed.
TEST_F(ViewerTest, seesNoGapWhileFilesMove) {
    pid_t const writer = fork();
    for (int i = 100000; writer == 0; ++i) {
        for (int index = 5; index > 0; --index) {
            rename(store(index - 1).c_str(), store(index).c_str());
        }
        write(store(), line("aa", std::to_string(i)));
        usleep(400);
    }
    int complete = 0;
    std::string const look = "awk 'NR > 2 && $7 != last + 1 { print \"gap\" } { last = $7 } END { print NR - 1 }'";
    for (int i = 0; i < 100; ++i) {
        std::string const out = zelq("log | " + look);
        EXPECT_FALSE(has(out, "gap"));
        complete += std::stoi("0" + out) >= 4 ? 1 : 0;
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
    waitpid(writer, nullptr, 0);
    std::string const pid = std::to_string(writer);
    expect("trace", 0, "  " + pid + "/" + pid);
    expect("trace | sed 's/.*[0-9]  *//'", 0, "UTC --\nfirst line\n[5] with \\x1b[31m handle\nthird line\n");
    expect("trace | wc -l", 0, "4\n");
    expect("trace -n 1 -o json --pid " + pid, 0, ",\"handle\":0,\"text\":\"third line\"}\n");
    expect("trace --handle 5 -o json", 0, "\\u001B[31m handle\"}\n");
    expect("trace --pid 1", 1, "", "zelq: no lines match");
    expect("trace --tid 1 -n 5", 1, "", "zelq: no lines match");
    expect("trace -f -n 2 | head -n 3", 0, "handle\n");  // ends although no line comes any more
    fs::remove(folder_ / "ring");
    write(folder_ / "ring", "no ring");
    expect("trace", 3, "", "zelq: bad trace ring");
}

TEST_F(ViewerTest, traceFollowsFromRingToRing) {
    setenv("ZELQ_RING_SIZE", "64K", 1);
    fs::path const out = root_ / "followed";
    fs::path const err = root_ / "complaints";
    auto const trace = [](std::string const& text, int lines) {
        pid_t const writer = fork();
        for (int i = 0; writer == 0; ++i) {
            i < lines ? xtr_trace(text.c_str()) : (_exit(0), 0);
        }
        waitpid(writer, nullptr, 0);
    };
    auto const comes = [](fs::path const& path, std::string const& text) {
        for (int i = 0; i < 1000 && !has(contents(path), text); ++i) {
            usleep(10000);
        }
        return has(contents(path), text);
    };
    ViewerBeside const viewer(out, err, {"trace", "-f"});
    ASSERT_TRUE(comes(err, "zelq: no trace yet"));
    trace("first", 1);
    ASSERT_TRUE(comes(out, "  first\n"));
    trace("second", 300);  // in more pieces than one
    ASSERT_TRUE(comes(out, "  second\n"));
    viewer.signal(SIGSTOP);
    trace("third", 300);
    viewer.signal(SIGCONT);
    EXPECT_TRUE(comes(err, " lines overrun before they could be read\n"));
    fs::remove(folder_ / "ring");
    trace("fourth", 1);
    EXPECT_TRUE(comes(out, "  fourth\n"));
    unsetenv("ZELQ_RING_SIZE");
}

}  // namespace
