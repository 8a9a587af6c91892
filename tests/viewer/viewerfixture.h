#ifndef VIEWERFIXTURE_H
#define VIEWERFIXTURE_H

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace fs = std::filesystem;

/// True when `text` contains `part`; an empty part stands for an empty text.
inline testing::AssertionResult has(std::string const& text, std::string const& part) {
    bool const found = part.empty() ? text.empty() : text.find(part) != std::string::npos;
    return (found ? testing::AssertionSuccess() : testing::AssertionFailure()) << "'" << part << "' in: " << text;
}

/// A line of the store with little in it.
inline std::string line(std::string const& id, std::string const& event, std::string const& more = "",
                        std::string const& time = "2026-11-22T10:00:00Z") {
    return R"({"v":1,"id":")" + id + R"(","time":")" + time +
           R"(","program":"demo","pid":7,"tid":8,"class":10,"type":2,"user":4660,"severity":"error","event":")" +
           event + "\"" + more + "}\n";
}

/// The viewer at work beside a test, until the end of the object.
class ViewerBeside {
public:
    ViewerBeside(fs::path const& out, fs::path const& err, std::vector<char const*> arguments) : id_(fork()) {
        if (id_ == 0) {
            dup2(open(out.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600), STDOUT_FILENO);
            dup2(open(err.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600), STDERR_FILENO);
            arguments.insert(arguments.begin(), "zelq");
            arguments.push_back(nullptr);
            execv(ZELQ_PROGRAM, const_cast<char**>(arguments.data()));
            _exit(127);
        }
    }
    ViewerBeside(ViewerBeside const&) = delete;
    ViewerBeside& operator=(ViewerBeside const&) = delete;
    ~ViewerBeside() {
        signal(SIGTERM);
        waitpid(id_, nullptr, 0);
    }
    void signal(int number) const { kill(id_, number); }

private:
    pid_t id_;
};

/// A state folder of its own, and the viewer as a program that looks at it.
class ViewerTest : public testing::Test {
protected:
    ViewerTest() {
        char name[] = "/tmp/viewer_test.XXXXXX";
        root_ = mkdtemp(name);
        folder_ = root_ / "state";
        mkdir(folder_.c_str(), 0700);
        setenv("ZELQ_DIR", folder_.c_str(), 1);
        setenv("TZ", "UTC", 1);
    }
    ~ViewerTest() override { fs::remove_all(root_); }

    /// Runs the viewer through a shell; `arguments` may redirect its output. Returns what it prints.
    std::string zelq(std::string const& arguments) {
        std::string const files = "; } >'" + (root_ / "out").string() + "' 2>'" + (root_ / "err").string() + "'";
        int const status = std::system(("{ '" ZELQ_PROGRAM "' " + arguments + files).c_str());
        status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        return contents(root_ / "out");
    }

    /// Runs it and looks at everything that comes out, each part as has() takes it.
    void expect(std::string const& arguments, int status, std::string const& out, std::string const& err = "") {
        SCOPED_TRACE("zelq " + arguments);
        EXPECT_TRUE(has(zelq(arguments), out));
        EXPECT_TRUE(has(contents(root_ / "err"), err));
        EXPECT_EQ(status_, status);
    }

    static void write(fs::path const& path, std::string const& bytes) { std::ofstream(path, std::ios::app) << bytes; }
    static std::string contents(fs::path const& path) {
        return {std::istreambuf_iterator<char>(std::ifstream(path).rdbuf()), {}};
    }
    fs::path store(int i = 0) const { return folder_ / ("errors.jsonl" + (i == 0 ? "" : "." + std::to_string(i))); }

    fs::path root_;
    fs::path folder_;
    int status_ = 0;
};

#endif
