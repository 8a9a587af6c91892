// Store and ring under load: programs record and trace as fast as they can, and are killed one after
// the other. SOAK_SECONDS makes it last, with one killed each second.

#include <algorithm>
#include <chrono>
#include <iostream>
#include <thread>
#include <unordered_map>

#include "ringfixture.h"
#include "storefixture.h"

namespace {

using storetest::TestRecord;
using Clock = std::chrono::steady_clock;

constexpr unsigned processes = 8;
constexpr unsigned threads = 4;
constexpr unsigned linesPerRecord = 200;
constexpr std::size_t recordSize = 70000;

/// What the threads of all programs have been told is on disk: a log id a line.
class Acknowledgements {
public:
    explicit Acknowledgements(std::string const& path)
        : path_(path), file_(open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600)) {}
    ~Acknowledgements() { close(file_); }
    Acknowledgements(Acknowledgements const&) = delete;
    Acknowledgements& operator=(Acknowledgements const&) = delete;

    void add(std::string const& id) const {
        std::string const line = id + "\n";
        EXPECT_EQ(static_cast<ssize_t>(line.size()), write(file_, line.data(), line.size()));
    }
    std::vector<std::string> read() const { return storetest::linesOf(path_); }

private:
    std::string path_;
    int file_;
};

void work(Acknowledgements const& acknowledgements, unsigned thread) {
    auto const pid = static_cast<unsigned>(getpid());
    unsigned const writer = pid * threads + thread;
    for (unsigned number = 0;; ++number) {
        std::string const id = std::to_string(pid) + "-" + std::to_string(thread) + "-" + std::to_string(number);
        // Text and binary data by turns, of differing length.
        std::string const bytes(recordSize - number % 100, number % 2 == 0 ? 'x' : '\xFF');
        if (TestRecord({{1, bytes}}, "LOAD", id).store() != "0 0") {
            acknowledgements.add("refused " + id);
            return;
        }
        acknowledgements.add(id);
        char* backtrace = nullptr;
        EXPECT_EQ(0, xlog_get_backtrace(&backtrace, 0, nullptr));
        std::free(backtrace);
        char snapshot[800];
        int size = -1;
        EXPECT_EQ(0, xtr_fetch_pid(snapshot, sizeof snapshot, &size));
        EXPECT_TRUE(size >= 0 && size <= static_cast<int>(sizeof snapshot));
        for (unsigned line = 0; line < linesPerRecord; ++line) {
            xtr_trace(ringtest::checkedLine(writer, number * linesPerRecord + line).c_str());
        }
    }
}

int soakSeconds() {
    char const* const seconds = getenv("SOAK_SECONDS");
    return seconds != nullptr ? std::atoi(seconds) : 0;
}

class Load : public testing::Test {
protected:
    // The ring lies in memory and the store on disk, as they do without ZELQ_DIR.
    Load() {
        setenv("ZELQ_STORE_SIZE", soakSeconds() == 0 ? "32M" : "256M", 1);  // rotation is part of it
        setenv("ZELQ_STORE_FILES", "100", 1);
        setenv("ZELQ_RING_SIZE", "64K", 1);  // so that writers and readers meet in its slots
    }

    pid_t startProgram(Acknowledgements const& acknowledgements) const {
        return start([&] {
            setenv("ZELQ_DIR", memory_.c_str(), 1);
            xtr_trace(ringtest::checkedLine(1, 1).c_str());
            setenv("ZELQ_DIR", disk_.c_str(), 1);
            std::vector<std::thread> others;
            for (unsigned thread = 1; thread < threads; ++thread) {
                others.emplace_back(work, std::cref(acknowledgements), thread);
            }
            work(acknowledgements, 0);
            for (std::thread& thread : others) {
                thread.join();
            }
        });
    }

    TemporaryFolder const inMemory_;
    TemporaryFolder const onDisk_{"/var/tmp"};
    fs::path const memory_ = inMemory_.path();
    fs::path const disk_ = onDisk_.path();
};

/// Counts what the store's files hold.
struct Stored {
    std::unordered_map<std::string, int> ids;
    unsigned badLines = 0;
    unsigned files = 0;
    std::uintmax_t bytes = 0;

    explicit Stored(fs::path const& folder) {
        for (unsigned index = 0; index < 100; ++index) {
            fs::path const path = folder / (index == 0 ? "errors.jsonl" : "errors.jsonl." + std::to_string(index));
            if (fs::exists(path)) {
                ++files;
                bytes += fs::file_size(path);
                read(path);
            }
        }
    }

    void read(fs::path const& path) {
        std::ifstream file(path, std::ios::binary);
        for (std::string line; std::getline(file, line);) {
            rapidjson::Document record;
            record.Parse<rapidjson::kParseValidateEncodingFlag>(line.data(), line.size());
            if (record.HasParseError() || !record.IsObject()) {
                ++badLines;
                continue;
            }
            EXPECT_FALSE(record.HasMember("lost_before"));
            std::size_t const size = record["items"][0]["size"].GetUint();
            EXPECT_TRUE(size > recordSize - 100 && size <= recordSize);
            ++ids[storetest::text(record["log_id"])];
        }
    }
};

TEST_F(Load, LosesNothingThatWasAcknowledged) {
    auto const killEach = std::chrono::milliseconds(soakSeconds() == 0 ? 300 : 1000);
    auto const end = Clock::now() + (soakSeconds() == 0 ? 10 * killEach : std::chrono::seconds(soakSeconds()));
    Acknowledgements const acknowledgements(memory_ / "acknowledged");
    std::vector<pid_t> programs;
    for (unsigned i = 0; i < processes; ++i) {
        programs.push_back(startProgram(acknowledgements));
    }
    setenv("ZELQ_DIR", memory_.c_str(), 1);
    ringtest::RingReader reader;
    while (reader.open() != 0) {
        usleep(1000);
    }
    ringtest::Lines lines(1000);
    std::size_t linesSeen = 0;
    unsigned killed = 0;
    for (auto next = Clock::now() + killEach; Clock::now() < end && !HasFailure();) {
        zelq::TraceProgress const progress = reader.follow({}, lines.data(), lines.size());
        std::for_each(lines.begin(), lines.begin() + static_cast<long>(progress.count), ringtest::checkLine);
        linesSeen += progress.count;
        if (Clock::now() >= next) {
            next += killEach;
            pid_t& victim = programs[killed++ % processes];
            EXPECT_EQ(SIGKILL, killAndWait(victim));
            victim = startProgram(acknowledgements);
        }
    }
    for (pid_t const program : programs) {
        EXPECT_EQ(SIGKILL, killAndWait(program)) << "refused a record";
        ++killed;
    }
    for (zelq::TraceEntry const& entry : ringtest::newest(reader, ringtest::smallRing)) {
        ringtest::checkLine(entry);
        ++linesSeen;
    }
    setenv("ZELQ_DIR", disk_.c_str(), 1);
    EXPECT_EQ("0 0", TestRecord({{1, std::string(recordSize, 'x')}}, "LOAD", "last").store());  // fences a torn end

    Stored stored(disk_);
    std::vector<std::string> const ids = acknowledgements.read();
    for (std::string const& id : ids) {
        EXPECT_EQ(1, stored.ids[id]) << id;
    }
    for (auto const& [id, count] : stored.ids) {
        EXPECT_EQ(1, count) << id;
    }
    EXPECT_LE(stored.badLines, killed) << "one for each program that was killed";
    EXPECT_LT(stored.files, 100U) << "the oldest records are gone: make the store larger";
    EXPECT_LE(stored.ids.size(), ids.size() + 1 + killed * threads) << "stored, but never acknowledged";
    EXPECT_GT(ids.size(), processes);
    EXPECT_GT(linesSeen, 100U);
    std::cout << ids.size() << " records acknowledged, " << stored.ids.size() << " stored, " << stored.badLines
              << " torn; " << (stored.bytes >> 20) << " MiB in " << stored.files << " files; " << killed
              << " programs killed; " << linesSeen << " trace lines looked at\n";
}

}  // namespace
