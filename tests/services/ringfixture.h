#ifndef ZELQ_TEST_RINGFIXTURE_H
#define ZELQ_TEST_RINGFIXTURE_H

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <cstring>
#include <vector>

#include "support/children.h"
#include "support/files.h"
#include "tracing/ringfile.h"
#include "tracing/ringreader.h"
#include "zelqplatform/trace_service.h"

// A process keeps the ring that its first line found. So the tests themselves only read; what they
// look at was written by children, each with a ring of its own choosing.

namespace ringtest {

using zelq::RingReader;
using zelq::TraceEntry;
using zelq::TraceFilter;
using Lines = std::vector<TraceEntry>;

constexpr std::size_t smallRing = zelq::ringSizeMin / zelq::ringSlotSize;
constexpr std::size_t defaultRing = zelq::ringSizeDefault / zelq::ringSlotSize;

inline std::uint32_t deadPid() {
    pid_t const child = start([] {});
    wait(child);
    return static_cast<std::uint32_t>(child);
}

inline Lines newest(RingReader& reader, std::size_t count, TraceFilter const& filter = {}) {
    Lines lines(count);
    lines.resize(reader.newest(filter, lines.data(), count));
    return lines;
}

// A line that shows whether it is whole: writer, number, then one letter as often as both say.
inline std::string checkedLine(unsigned writer, unsigned number) {
    std::string line = std::to_string(writer) + " " + std::to_string(number) + " ";
    line.append((writer * 31 + number * 7) % 180, static_cast<char>('a' + (writer + number) % 26));
    return line;
}

struct Stamp {
    unsigned writer = 0;
    unsigned number = 0;
};

inline Stamp checkLine(TraceEntry const& entry) {
    Stamp stamp;
    int const fields = std::sscanf(entry.text, "%u %u", &stamp.writer, &stamp.number);
    EXPECT_EQ(2, fields) << entry.text;
    EXPECT_EQ(checkedLine(stamp.writer, stamp.number), entry.line()) << "torn, ticket " << entry.ticket;
    return stamp;
}

inline void writeChecked(unsigned writer, unsigned count) {
    for (unsigned number = 0; number < count; ++number) {
        xtr_trace(checkedLine(writer, number).c_str());
    }
}

inline bool usesSharedRing() {
    return contents("/proc/self/maps").find(std::string(getenv("ZELQ_DIR")) + "/ring") != std::string::npos;
}

class Ring : public testing::Test {
protected:
    Ring() {
        setenv("ZELQ_DIR", folder_.c_str(), 1);
        unsetenv("ZELQ_RING_SIZE");
    }
    ~Ring() override {
        if (mapped_ != nullptr) {
            munmap(mapped_, mappedSize_);
        }
    }

    void makeSmallRing() {
        setenv("ZELQ_RING_SIZE", "64K", 1);
        ASSERT_EQ(0, inChild([] { xtr_trace("first"); }));
        int const descriptor = open(ring_.c_str(), O_RDWR | O_CLOEXEC);
        mappedSize_ = zelq::ringFileSize(smallRing);
        ASSERT_EQ(mappedSize_, std::filesystem::file_size(ring_));
        mapped_ = mmap(nullptr, mappedSize_, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
        close(descriptor);
        ASSERT_NE(MAP_FAILED, mapped_);
    }
    zelq::RingHeader* header() { return static_cast<zelq::RingHeader*>(mapped_); }
    zelq::RingSlot* slots() {
        return reinterpret_cast<zelq::RingSlot*>(static_cast<char*>(mapped_) + zelq::ringHeaderSize);
    }

    TemporaryFolder const temporary_;
    std::string const folder_ = temporary_.path();
    std::string const ring_ = folder_ + "/ring";
    void* mapped_ = nullptr;
    std::size_t mappedSize_ = 0;
};

}  // namespace ringtest

#endif
