// The viewer's commands for the store: filters, formats, follow, stats, verify and prune.

#include <sys/file.h>
#include <sys/resource.h>
#include <ctime>
#include <map>
#include <regex>
#include <sstream>

#include "viewerfixture.h"
#include "zelqplatform/errorlog_service.h"

namespace {

std::string const info = R"(,"severity":"informational")";

class ViewerStoreTest : public ViewerTest {
protected:
    /// The events of the records that the command prints, in its order.
    std::string events(std::string const& arguments) {
        return zelq(arguments + R"x( -o json | sed 's/.*"event":"\([^"]*\)".*/\1/' | tr '\n' ' ')x");
    }

    /// Runs the viewer on a terminal of 80 columns. `status_` becomes its exit status.
    std::string onTerminal(std::string const& settings, std::string const& arguments) {
        std::string const command = "TERM=xterm NO_COLOR=1 " + settings + " " ZELQ_PROGRAM " " + arguments;
        int const status = std::system(("script -qec \"stty cols 80 rows 24 -onlcr; " + command +
                                        "\" /dev/null </dev/null >'" + (root_ / "out").string() + "'")
                                           .c_str());
        status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        return contents(root_ / "out");
    }

    /// Waits until the file has this text, for ten seconds.
    static testing::AssertionResult becomes(fs::path const& path, std::string const& text) {
        for (int i = 0; i < 1000 && contents(path) != text; ++i) {
            usleep(10000);
        }
        return contents(path) == text ? testing::AssertionSuccess()
                                      : testing::AssertionFailure() << contents(path) << "instead of " << text;
    }

    void removeStore() {
        fs::remove_all(folder_);
        mkdir(folder_.c_str(), 0700);
    }
};

TEST_F(ViewerStoreTest, filters) {
    std::string const items =
        R"(,"items":[{"id":224,"size":38,"text":"It Broke\n\n#0  0x1  install()  [pack]\n"},)"
        R"({"id":239,"size":12,"text":"trace of it\n"},{"id":3,"size":3,"text":"own"},{"id":240,"size":6,"base64":"IgAGAACA"}])";
    write(store(1), line("a1", "ALPHA", R"(,"log_id":"bay 3")" + info, "2026-11-22T10:00:00.5Z") +
                        line("a2", "BETA", items, "2026-11-22T11:00:00Z"));
    write(store(), line("a3", "GAMMA", R"(,"class":1,"program":"other")", "2026-11-22T12:00:00Z") +
                       line("a4", "DELTA", R"(,"class":160,"items":[{"id":1,"size":4,"text":"^a.b"}])"));
    std::string const table[][2] = {
        {"--severity info", "ALPHA "},
        {"--severity error", "BETA GAMMA DELTA "},
        {"--severity informational --severity error -n 3", "BETA GAMMA DELTA "},
        {"--class 0a", "ALPHA BETA "},
        {"--class 1 --class 0xA0", "GAMMA DELTA "},
        {"--event BETA", "BETA "},
        {"--event '*TA' --event ALPH?", "ALPHA BETA DELTA "},
        {"--program oth* -r", "GAMMA "},
        {"--program demo --event '*A' --class a --severity error", "BETA "},
        {"-U '2026-11-22 11:00Z' -S '2026-11-22 11:00Z'", "BETA "},
        {"--until '2026-11-22 10:00Z'", "ALPHA DELTA "},
        {"-g 'it broke'", "BETA "},
        {"--grep 'It broke'", ""},
        {"--grep '^#0.*\\[pack\\]$'", "BETA "},
        {"--grep 'a00200[0-9]{2} 8'", "BETA "},
        {"--grep 'bay|own'", "ALPHA BETA "},
        {"--grep 'trace of'", ""},
        {"--grep '^\\^a\\.'", "DELTA "},
        {"--grep beta", "BETA "},
        {"-r -n 2", "DELTA GAMMA "},
        {"-r", "DELTA GAMMA BETA ALPHA "},
    };
    for (auto const& [arguments, expected] : table) {
        EXPECT_EQ(events("log " + arguments), expected) << arguments;
    }
    expect("log --event NONE", 1, "", "no records match in '");
    expect("log show --event '*A' --until '2026-11-22 11:30Z' --class 0a", 0, "event       BETA\n");
    expect("log show a --event ALPHA", 0, "event       ALPHA\n");
    for (std::string const arguments : {"--severity bad", "--class 100", "--class x", "--class -1", "--grep '('",
                                        "--until never", "-f -r", "-o xml"}) {
        expect("log " + arguments, 2, "", "zelq: ");
    }
    expect("log stats -n 5", 2, "",
           "'--lines' belongs to 'log list', not to 'log stats'\nzelq: see 'zelq log stats --help'\n");
}

TEST_F(ViewerStoreTest, formats) {
    std::string const text =
        R"(,"log_id":"a, \"b\"\u001b[2J\r","items":[{"id":224,"size":20,"text":"one, \"two\"\n\nthree\t\u0007\n"},)";
    write(store(),
          line("aa", "FIRST", R"(,"lost_before":1)") +
              line("bb", "LAST", text + R"({"id":240,"size":6,"base64":"IgAGAACA"}])", "2026-11-22T10:00:00.25Z"));
    EXPECT_EQ(
        zelq("log -o csv"),
        "id,time,severity,refcode,class,type,user,event,log_id,program,pid,tid,host,attributes,lost_before,text\r\n"
        "aa,2026-11-22T10:00:00.000000Z,error,,10,2,4660,FIRST,,demo,7,8,,0,1,\r\n"
        "bb,2026-11-22T10:00:00.250000Z,error,A0020022 80000006,10,2,4660,LAST,\"a, \"\"b\"\"\\x1b[2J\\x0d\",demo,7,8,,"
        "0,0,\"one, \"\"two\"\"\n\nthree\t\\x07\"\r\n");
    EXPECT_EQ(zelq("log -o verbose"), zelq("log show aa") + "\n" + zelq("log show bb"));
    std::string const last = zelq("log -n 1 | sed -n 2p");
    EXPECT_TRUE(has(zelq("log -r"), "PROGRAM\n" + last + "aa"));
    EXPECT_TRUE(has(zelq("log -r | tail -n 1"), "-- 1 record of pid 7 could not be stored before the last one --\n"));
}

TEST_F(ViewerStoreTest, followsFromFileToFile) {
    auto const numbered = [](int i) { return line("a" + std::to_string(i), std::to_string(i)); };
    write(store(), numbered(1) + numbered(2));
    fs::path const out = root_ / "followed";
    fs::path const err = root_ / "complaints";
    ViewerBeside const viewer(out, err, {"log", "-f", "-n", "1", "-o", "json", "--event", "[0-9]*"});
    std::string expected = numbered(2);
    ASSERT_TRUE(becomes(out, expected));
    // A record that comes in two pieces, beside one that does not match.
    write(store(), numbered(3).substr(0, 20));
    usleep(150000);
    write(store(), numbered(3).substr(20) + line("b", "OTHER"));
    ASSERT_TRUE(becomes(out, expected += numbered(3)));
    // One that its writer takes back, and another one in its place.
    write(store(), numbered(9).substr(0, 60));
    usleep(150000);
    fs::resize_file(store(), fs::file_size(store()) - 60);
    write(store(), numbered(4));
    ASSERT_TRUE(becomes(out, expected += numbered(4)));
    // Two files begun between two looks, the first one left torn.
    write(store(), numbered(5) + "{\"torn");
    fs::rename(store(), store(2));
    write(store(1), numbered(6) + "bad\n");
    write(store(), numbered(7));
    ASSERT_TRUE(becomes(out, expected += numbered(5) + numbered(6) + numbered(7)));
    EXPECT_TRUE(becomes(err,
                        "zelq: torn line 7 in errors.jsonl: its writer died\n"
                        "zelq: bad line 2 in errors.jsonl.1: invalid value, at byte 1\n"));
    // Old ones go: all, which may not have been seen yet, or all but two.
    for (int i = 10; i < 14; ++i) {
        write(store(), numbered(i) + numbered(i + 10));
        zelq("log prune --keep-bytes " + std::to_string(i % 2 == 0 ? 0 : 2 * numbered(10).size()));
        write(store(), numbered(i + 20));
        usleep(250000);
    }
    std::string const seen = contents(out).substr(expected.size());
    for (int i = 10; i < 34; ++i) {
        EXPECT_EQ(seen.find(numbered(i)), seen.rfind(numbered(i))) << i;
    }
    for (int i = 10; i < 14; ++i) {
        EXPECT_TRUE(has(seen, (i % 2 == 0 ? "" : numbered(i) + numbered(i + 10)) + numbered(i + 20)));
    }
    // The store vanishes and comes again.
    removeStore();
    usleep(150000);
    write(store(), numbered(40));
    EXPECT_TRUE(becomes(out, expected + seen + numbered(40)));
}

TEST_F(ViewerStoreTest, stats) {
    std::string const code = R"(,"items":[{"id":240,"size":6,"base64":"IgAGAACA"}])";
    for (int i = 0; i < 99; ++i) {
        write(store(1), line("aa", i % 3 == 0 ? "RARE" : "OFTEN", i == 0 ? code : info + R"(,"lost_before":2)"));
    }
    write(store(), line("aa", "", R"(,"event_base64":"/xs=")" + info, "2026-11-21T23:00:00Z"));
    std::string const out = zelq("log stats");
    EXPECT_EQ(out,
              "100 records, from 2026-11-21 23:00:00Z to 2026-11-22 10:00:00Z\n"
              "196 records more could not be stored\n\n"
              "SEVERITY             RECORDS\ninfo                      99 " +
                  std::string(51, '#') + "\nerror                      1 #\n\nEVENT                RECORDS\n" +
                  "OFTEN                     66 " + std::string(51, '#') + "\nRARE                      33 " +
                  std::string(25, '#') + "\n\\xff\\x1b                   1 #\n\n" +
                  "REFERENCE CODE       RECORDS\n(none)                    99 " + std::string(51, '#') +
                  "\nA0020022 80000006          1 #\n");
    EXPECT_EQ(onTerminal("ZELQ_PAGER=", "log stats"), out);
    EXPECT_EQ(zelq("log stats --severity error -o json"),
              R"({"records":1,"first":"2026-11-22T10:00:00.000000Z","last":"2026-11-22T10:00:00.000000Z","lost":0,)"
              R"("severities":[{"severity":"error","records":1}],"events":[{"event":"RARE","records":1}],)"
              R"("refcodes":[{"refcode":"A0020022 80000006","records":1}]})"
              "\n");
    expect("log stats -o json", 0, R"({"event":"�\u001B","event_base64":"/xs=","records":1})");
    for (int i = 0; i < 10002; ++i) {
        write(store(2), line("aa", std::to_string(i)));
    }
    expect("log stats | grep others", 0, "(others)                 102 #####");
    expect("log stats -o json", 0, R"(],"other_events":102,)");
    expect("log stats --event NONE", 1, "", "no records match in '");
}

TEST_F(ViewerStoreTest, verifyNamesEachDamagedLine) {
    std::string const good = line("aa", "GOOD");
    write(store(1), good + good);
    write(store(), good);
    std::string const size = std::to_string(3 * good.size());
    expect("log verify", 0, "3 records in 2 files, " + size + " bytes: all fine\n");
    write(store(), good.substr(0, 30) + "\n" + good + good.substr(0, 50));  // writers that died are no damage
    std::string const torn =
        "torn line 2 in errors.jsonl: it ends in the middle, its writer died\n"
        "torn line 4 in errors.jsonl: its writer died or is still writing\n";
    expect("log verify", 0, torn + "4 records in 2 files, ");
    expect("log verify | tail -n 1", 0, " bytes: 0 damaged, 2 torn\n");
    expect("log", 0, "GOOD", "zelq: " + torn.substr(0, torn.find("torn", 5)));
    std::string bad;
    std::string expected;
    for (int i = 1; i <= 30; ++i) {  // more than other commands name
        bad += "\x1b]0;x\n";
        expected += "bad line " + std::to_string(i) + " in errors.jsonl.2: invalid value, at byte 1\n";
    }
    write(store(2), bad);
    expect("log verify", 3, expected + torn + "4 records in 3 files, ");
    for (std::string const arguments : {"log -n all", "log -n 100"}) {
        expect(arguments, 3, "GOOD", "\nzelq: and 12 more lines; 'zelq log verify' names them\n");
    }
    write(store(3), "garbage without an end");
    expect("log verify", 3, "bad line 1 in errors.jsonl.3: invalid value, at byte 1\nbad line 1 in errors.jsonl.2");
    fs::create_symlink("/etc/passwd", store(4));
    expect("log verify", 3, "cannot open 'errors.jsonl.4'");
    removeStore();
    expect("log verify", 1, "", "no records yet");
    // Later versions of the line are shown as far as they are known; what does not look as it should is bad.
    std::string const later = R"({"v":2,"id":"b","time":"2026-11-22T10:00:00Z","event":"LATER")";
    write(store(1), later + "}\n" + later +
                        R"(,"class":"a"})"
                        "\n");
    write(store(), good + later + "}\n" + later +
                       R"(,"items":[]})"
                       "\n" +
                       good);
    std::string const version = "it has version 2, this zelq knows 1";
    std::string const newer[] = {"newer line 1 in errors.jsonl.1: " + version + " and may misread it\n",
                                 "bad line 2 in errors.jsonl.1: " + version + ": field 'class' is not a number\n",
                                 "newer line 2 in errors.jsonl: " + version + " and may misread it\n"};
    expect("log verify", 3, newer[0] + newer[1] + newer[2] + "5 records in 2 files, ");
    EXPECT_EQ(events("log -n all"), "LATER GOOD LATER LATER GOOD ");
    expect("log", 3, "LATER", "zelq: " + newer[0] + "zelq: " + newer[1] + "zelq: " + newer[2]);
    fs::remove(store(1));
    expect("log verify | tail -n 1", 0, " bytes: 0 damaged, 0 torn, 2 newer than this zelq\n");
    expect("log -n 1", 0, "GOOD");
}

TEST_F(ViewerStoreTest, hugeLinesCostNoMemory) {
    std::string const good = line("aa", "GOOD");
    write(store(), good + std::string(1000, 'x'));
    fs::resize_file(store(), 128U << 20);  // zero bytes, without taking place on the disk
    write(store(), "\n" + good);
    std::string const complaint = "bad line 2 in errors.jsonl: 128.0 MiB long, more than 16.0 MiB";
    expect("log verify", 3, complaint);
    expect("log -n 2", 3, "GOOD", complaint);
    write(store(), good.substr(0, 100) + std::string(17 << 20, '{'));
    expect("log stats", 3, "2 records", "bad line 4 in errors.jsonl: 17.0 MiB long");
#ifndef __SANITIZE_ADDRESS__
    rusage usage = {};
    getrusage(RUSAGE_CHILDREN, &usage);
    EXPECT_LT(usage.ru_maxrss, 100 * 1024);
#endif
}

TEST_F(ViewerStoreTest, pruneKeepsTheNewestLinesThatFit) {
    std::vector<std::string> const lines = {line("a1", "1"), line("a2", "TWO"),  "torn",        line("a4", "4"),
                                            "bad\n",         line("a6", "SIX6"), line("a7", "")};
    std::string all;
    for (std::string const& text : lines) {
        all += text;
    }
    std::vector<std::size_t> bounds = {0};
    for (std::size_t end = all.size(), i = lines.size(); i-- > 0;) {
        std::size_t const kept = all.size() - (end -= lines[i].size());
        bounds.insert(bounds.end(), {kept - 1, kept, kept + 1});
    }
    for (std::size_t const kept : bounds) {
        removeStore();
        write(store(5), lines[0] + lines[1] + lines[2]);
        write(store(2), lines[3] + lines[4]);
        write(store(), lines[5] + lines[6]);
        std::string const before = contents(store(5)) + contents(store(2)) + contents(store());
        std::string const arguments = "log prune --keep-bytes " + std::to_string(kept);
        expect(arguments + " --dry-run", 0, kept < all.size() ? "would remove " : "nothing to remove; ");
        EXPECT_EQ(contents(store(5)) + contents(store(2)) + contents(store()), before);
        expect(arguments, 0, kept < all.size() ? "removed " : "nothing to remove; ");
        std::size_t removed = 0;
        for (std::size_t i = 0; i < lines.size() && all.size() - removed > kept; ++i) {
            removed += lines[i].size();
        }
        EXPECT_EQ(contents(store(5)) + contents(store(2)) + contents(store()), all.substr(removed)) << kept;
        EXPECT_EQ(fs::exists(store(2)), removed < all.size() - contents(store()).size()) << kept;
        EXPECT_FALSE(fs::exists(folder_ / "errors.pruned"));
    }
    expect("log prune --keep-bytes 1K", 0, "nothing to remove; ");
    for (std::string const arguments :
         {"", "--keep-bytes x", "--keep-bytes 1T", "--keep-bytes -1", "--keep-bytes 1KB", "--keep-days 1.5",
          "--keep-bytes 99999999999G", "--dry-run", "--keep-days 1 --event A"}) {
        expect("log prune " + arguments, 2, "", "zelq: ");
    }
}

TEST_F(ViewerStoreTest, pruneByAgeStopsAtTheFirstYoungRecord) {
    auto const aged = [now = time(nullptr)](int days, std::string const& event) {
        time_t const then = now - days * 86400 - 60;
        char text[40];
        strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S.000000Z", gmtime(&then));
        return line("aa", event, "", text);
    };
    std::string const young = aged(3, "D") + "bad\n" + aged(9, "E") + aged(0, "F");
    write(store(3), aged(20, "A"));
    write(store(1), aged(10, "B") + "bad\n" + aged(8, "C") + "bad\n");
    write(store(), young);
    write(folder_ / "errors.pruned", "left by a crash, and longer than all the rest" + std::string(10000, '.'));
    expect("log prune --keep-days 30", 0, "nothing to remove; ");
    expect("log prune --keep-days 7", 0, "removed 3 records and 1 bad line, ");
    EXPECT_FALSE(fs::exists(store(3)));
    EXPECT_EQ(contents(store(1)) + contents(store()), "bad\n" + young);
    expect("log prune --keep-days 3 --keep-bytes 200", 0, "removed 2 records and 2 bad lines, ");
    EXPECT_EQ(contents(store()), aged(0, "F"));
    EXPECT_FALSE(fs::exists(store(1)));
}

// Without the lock nothing is changed; what comes before it is free is kept, whatever name it has then.
TEST_F(ViewerStoreTest, pruneWaitsForWriters) {
    int const held = open((folder_ / "errors.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(flock(held, LOCK_EX), 0);
    write(store(1), line("a1", "1"));
    write(store(), line("a2", "2") + line("a3", "3"));
    zelq("log prune --keep-bytes " + std::to_string(line("a3", "3").size()) + " >/dev/null 2>&1 & true");
    usleep(300000);
    EXPECT_EQ(contents(store(1)) + contents(store()), line("a1", "1") + line("a2", "2") + line("a3", "3"));
    write(store(), line("a4", "4"));
    fs::rename(store(1), store(2));
    fs::rename(store(), store(1));
    write(store(), line("a5", "5"));
    close(held);
    EXPECT_TRUE(becomes(store(1), line("a3", "3") + line("a4", "4")));
    EXPECT_EQ(contents(store()), line("a5", "5"));
    EXPECT_FALSE(fs::exists(store(2)));

    int const busy = open((folder_ / "errors.pruned").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(flock(busy, LOCK_EX), 0);
    expect("log prune --keep-days 0", 4, "", "cannot prune while another 'zelq log prune' is at work\n");
    close(busy);
    fs::remove(folder_ / "errors.pruned");
    fs::create_symlink("/dev/full", folder_ / "errors.pruned");
    expect("log prune --keep-days 0", 4, "", "cannot make 'errors.pruned': ");
    EXPECT_EQ(contents(store()), line("a5", "5"));
}

// What writers were told is on disk stays there while others prune, but for the oldest part of it.
TEST_F(ViewerStoreTest, pruneBesideWriters) {
    setenv("ZELQ_STORE_SIZE", "8K", 1);
    setenv("ZELQ_STORE_FILES", "50", 1);
    constexpr int writers = 3;
    constexpr int records = 300;
    std::vector<pid_t> children;
    for (int writer = 0; writer < writers; ++writer) {
        children.push_back(fork());
        for (int i = 0; children.back() == 0; ++i) {
            xlog_record_interface log = {XLOG_ERROR, 10, 0x42, 1, {}, "", {}, {}};
            (std::to_string(writer) + "-" + std::to_string(i)).copy(log.eventName, sizeof log.eventName);
            if (i == records || xlog_record(&log, nullptr) != XLOG_OK) {
                _exit(i == records ? 0 : 1);
            }
        }
    }
    for (pid_t const child : children) {
        int status = 0;
        while (waitpid(child, &status, WNOHANG) == 0) {
            zelq("log prune --keep-bytes 12K & '" ZELQ_PROGRAM "' log prune --keep-bytes 9000; wait");
        }
        EXPECT_EQ(status, 0);
    }
    std::map<std::string, int> next;
    std::istringstream seen(events("log"));
    for (std::string event; seen >> event;) {
        std::string const writer = event.substr(0, 1);
        int const number = std::stoi(event.substr(2));
        EXPECT_TRUE(next.count(writer) == 0 || next[writer] == number) << event;
        next[writer] = number + 1;
    }
    EXPECT_FALSE(next.empty());
    for (auto const& [writer, end] : next) {
        EXPECT_EQ(end, records) << writer;
    }
    unsetenv("ZELQ_STORE_SIZE");
    unsetenv("ZELQ_STORE_FILES");
}

TEST_F(ViewerStoreTest, pager) {
    for (int i = 0; i < 5000; ++i) {
        write(store(), line("aa", "EVENT"));
    }
    std::string const list = zelq("log");
    EXPECT_EQ(onTerminal("PAGER='sed s/^/:/'", "log -n 1"),
              ":" + std::regex_replace(zelq("log -n 1"), std::regex("\n(?=.)"), "\n:"));
    EXPECT_EQ(onTerminal("ZELQ_PAGER='head -n 2' PAGER=false", "log"), zelq("log -n 1"));  // leaves early
    EXPECT_EQ(status_, 0);
    for (std::string const way : {"--no-pager", ""}) {
        EXPECT_EQ(onTerminal(way.empty() ? "ZELQ_PAGER=cat" : "ZELQ_PAGER=false", way + " log"), list);
    }
    EXPECT_TRUE(has(onTerminal("ZELQ_PAGER=/no/such/pager", "log"), "zelq: the pager cannot be run"));
    EXPECT_EQ(status_, 4);
    EXPECT_TRUE(has(onTerminal("ZELQ_PAGER='sed s/^/:/'", "log show"), ":event"));
    EXPECT_FALSE(has(onTerminal("ZELQ_PAGER='sed s/^/:/'", "log verify"), ":5000"));
    expect("log -n 1 >/dev/null", 0, "");
    EXPECT_EQ(zelq("log -n 1 | cat"), zelq("log -n 1"));
}

}  // namespace
