// The viewer while others write: programs that record and trace, files that move and go.

#include <fcntl.h>
#include <sys/stat.h>
#include <map>
#include <sstream>

#include "support/children.h"
#include "support/files.h"
#include "zelqplatform/errorlog_service.h"
#include "zelqplatform/trace_service.h"

namespace {

std::string line(int number) {
    std::string const text = std::to_string(number);
    return R"({"v":1,"id":"a)" + text + R"(","time":"2026-11-22T10:00:00Z","pid":7,"event":")" + text + "\"}\n";
}

class Beside : public testing::Test {
protected:
    Beside() {
        mkdir(folder_.c_str(), 0700);
        setenv("ZELQ_DIR", folder_.c_str(), 1);
        setenv("ZELQ_STORE_SIZE", "8K", 1);
        setenv("ZELQ_STORE_FILES", "50", 1);
        setenv("ZELQ_RING_SIZE", "64K", 1);
    }
    ~Beside() override {
        if (follower_ > 0) {
            kill(follower_, SIGTERM);
            wait(follower_);
        }
    }

    /// What the viewer prints, run through a shell.
    std::string zelq(std::string const& arguments) const {
        EXPECT_NE(std::system(("'" ZELQ_PROGRAM "' " + arguments + " >'" + out_.string() + "'").c_str()), -1);
        return contents(out_);
    }

    /// Lets the viewer follow until the end of the test.
    void follow(std::vector<char const*> arguments) {
        follower_ = start([&] {
            dup2(open(followed_.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600), STDOUT_FILENO);
            dup2(open(complaints_.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600), STDERR_FILENO);
            arguments.insert(arguments.begin(), "zelq");
            arguments.push_back(nullptr);
            execv(ZELQ_PROGRAM, const_cast<char**>(arguments.data()));
        });
    }

    /// Waits until the file ends with this text, for ten seconds.
    static testing::AssertionResult ends(fs::path const& path, std::string const& text) {
        for (int i = 0; i < 1000; ++i, usleep(10000)) {
            std::string const all = contents(path);
            if (all.size() >= text.size() && all.compare(all.size() - text.size(), text.size(), text) == 0) {
                return testing::AssertionSuccess();
            }
        }
        return testing::AssertionFailure() << contents(path) << "does not end with " << text;
    }

    fs::path store(int i = 0) const { return folder_ / ("errors.jsonl" + (i == 0 ? "" : "." + std::to_string(i))); }

    TemporaryFolder const root_;
    fs::path const folder_ = root_.path() / "state";
    fs::path const out_ = root_.path() / "out";
    fs::path const followed_ = root_.path() / "followed";
    fs::path const complaints_ = root_.path() / "complaints";
    pid_t follower_ = 0;
};

// Rotates as the service does, but for each record, so that hardly a run of the viewer is undisturbed.
TEST_F(Beside, listHasNoGapWhileFilesMove) {
    pid_t const writer = start([&] {
        for (int i = 100000;; ++i) {
            for (int index = 5; index > 0; --index) {
                rename(store(index - 1).c_str(), store(index).c_str());
            }
            append(store(), line(i));
            usleep(400);
        }
    });
    int complete = 0;
    for (int i = 0; i < 100; ++i) {
        std::string const out =
            zelq("log | awk 'NR > 2 && $7 != last + 1 { print \"gap\" } { last = $7 } END { print NR - 1 }'");
        EXPECT_EQ(out.find("gap"), std::string::npos);
        complete += std::stoi("0" + out) >= 4 ? 1 : 0;
    }
    EXPECT_EQ(killAndWait(writer), SIGKILL);
    EXPECT_GT(complete, 50);
}

TEST_F(Beside, traceIsFollowedFromRingToRing) {
    auto const trace = [](std::string const& text, int lines) {
        EXPECT_EQ(0, inChild([&] {  // the ring is opened once for each process
                      for (int i = 0; i < lines; ++i) {
                          xtr_trace(text.c_str());
                      }
                  }));
    };
    follow({"trace", "-f"});
    ASSERT_TRUE(ends(complaints_, "'\n"));
    EXPECT_NE(contents(complaints_).find("zelq: no trace yet"), std::string::npos);
    trace("first", 1);
    ASSERT_TRUE(ends(followed_, "  first\n"));
    trace("second", 300);  // in more pieces than one
    ASSERT_TRUE(ends(followed_, "  second\n"));
    kill(follower_, SIGSTOP);
    trace("third", 300);
    kill(follower_, SIGCONT);
    EXPECT_TRUE(ends(complaints_, " lines overrun before they could be read\n"));
    fs::remove(folder_ / "ring");
    trace("fourth", 1);
    EXPECT_TRUE(ends(followed_, "  fourth\n"));
}

TEST_F(Beside, logIsFollowedFromFileToFile) {
    append(store(), line(1) + line(2));
    follow({"log", "-f", "-n", "1", "-o", "json", "--event", "[1-8]*"});
    ASSERT_TRUE(ends(followed_, line(2)));
    // A record that comes in two pieces, beside one that does not match.
    append(store(), line(3).substr(0, 20));
    usleep(150000);
    append(store(), line(3).substr(20) + line(90));
    ASSERT_TRUE(ends(followed_, line(3)));
    // One that its writer takes back, and another one in its place.
    append(store(), line(8).substr(0, 50));
    usleep(150000);
    fs::resize_file(store(), fs::file_size(store()) - 50);
    append(store(), line(4));
    ASSERT_TRUE(ends(followed_, line(4)));
    // Two files begun between two looks, the first one left torn.
    append(store(), line(5) + "{\"torn");
    fs::rename(store(), store(2));
    append(store(1), line(6) + "bad\n");
    append(store(), line(7));
    ASSERT_TRUE(ends(followed_, line(7)));
    std::string const expected = line(2) + line(3) + line(4) + line(5) + line(6) + line(7);
    EXPECT_EQ(contents(followed_), expected);
    EXPECT_TRUE(ends(complaints_,
                     "zelq: torn line 7 in errors.jsonl: its writer died\n"
                     "zelq: bad line 2 in errors.jsonl.1: invalid value, at byte 1\n"));
    // Old ones go: all, which may not have been seen yet, or all but two.
    for (int i = 10; i < 14; ++i) {
        append(store(), line(i) + line(i + 10));
        zelq("log prune --keep-bytes " + std::to_string(i % 2 == 0 ? 0 : 2 * line(10).size()));
        append(store(), line(i + 20));
        usleep(250000);
    }
    std::string const seen = contents(followed_).substr(expected.size());
    for (int i = 10; i < 34; ++i) {
        EXPECT_EQ(seen.find(line(i)), seen.rfind(line(i))) << i;
    }
    for (int i = 10; i < 14; ++i) {
        std::string const kept = (i % 2 == 0 ? "" : line(i) + line(i + 10)) + line(i + 20);
        EXPECT_NE(seen.find(kept), std::string::npos) << kept << "is not in\n" << seen;
    }
    // The store vanishes and comes again.
    fs::remove_all(folder_);
    mkdir(folder_.c_str(), 0700);
    usleep(150000);
    append(store(), line(40));
    EXPECT_TRUE(ends(followed_, seen + line(40)));
}

// What writers were told is on disk stays there while others prune, but for the oldest part of it.
TEST_F(Beside, pruningKeepsWhatIsBeingWritten) {
    constexpr int records = 300;
    std::vector<pid_t> children;
    for (int writer = 0; writer < 3; ++writer) {
        children.push_back(start([=] {
            for (int i = 0; i < records; ++i) {
                xlog_record_interface log = {XLOG_ERROR, 10, 0x42, 1, {}, "", {}, {}};
                (std::to_string(writer) + "-" + std::to_string(i)).copy(log.eventName, sizeof log.eventName);
                EXPECT_EQ(xlog_record(&log, nullptr), XLOG_OK);
            }
        }));
    }
    for (pid_t const child : children) {
        int status = 0;
        while (waitpid(child, &status, WNOHANG) == 0) {
            zelq("log prune --keep-bytes 12K & '" ZELQ_PROGRAM "' log prune --keep-bytes 9000; wait");
        }
        EXPECT_EQ(status, 0);
    }
    std::map<std::string, int> next;
    std::istringstream seen(zelq(R"x(log -o json | sed 's/.*"event":"\([^"]*\)".*/\1/')x"));
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
}

}  // namespace
