// Reading, following and writing a damaged trace ring.
//
// Input: patches of a good ring of 256 slots, some of them with lines of two laps. Each is a position (3 bytes,
// modulo the file's size), a length (1 byte) and that many bytes. A last byte alone cuts the file off.

#include <fcntl.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstring>

#include <rapidjson/document.h>

#include "entry.h"
#include "surroundings.h"
#include "tools/trace/command.h"
#include "tracing/ringfile.h"
#include "zelqplatform/trace_service.h"

// A reader gives a writer the time to end its line. Nobody writes here.
extern "C" int nanosleep(timespec const*, timespec*) {
    return 0;
}

namespace {

using zelq::RingReader;
using zelq::TraceEntry;
using zelq::TraceFilter;

constexpr std::size_t slotCount = zelq::ringSizeMin / zelq::ringSlotSize;
constexpr std::size_t fileSize = zelq::ringFileSize(slotCount);
constexpr std::size_t firstLines = slotCount + 20;
constexpr std::size_t firstEmpty = 30;  // slots, which save time
constexpr std::size_t lastEmpty = 240;

/// The one ring of this process: shared memory under a file's name, good again after restore().
class Ring {
public:
    Ring() {
        setenv("ZELQ_RING_SIZE", "64K", 1);
        for (std::size_t i = 0; i < firstLines; ++i) {
            xtr_trace_cb(static_cast<unsigned>(i % 3), ("line " + std::to_string(i) + " \xC3\xA4").c_str());
        }
        file_ = open((folder_.path() / zelq::ringFileName).c_str(), O_RDWR | O_CLOEXEC);
        memory_ = static_cast<char*>(mmap(nullptr, fileSize, PROT_READ | PROT_WRITE, MAP_SHARED, file_, 0));
        require(memory_ != MAP_FAILED, "no ring");
        std::memset(static_cast<void*>(slots() + firstEmpty), 0, (lastEmpty - firstEmpty) * sizeof *slots());
        good_.assign(memory_, fileSize);
    }

    void restore() {
        require(ftruncate(file_, fileSize) == 0, "the ring cannot be mended");
        std::memcpy(memory_, good_.data(), fileSize);
    }
    void patch(std::size_t position, std::string_view bytes) {
        position %= fileSize;
        std::memcpy(memory_ + position, bytes.data(), std::min(bytes.size(), fileSize - position));
    }
    void cut(std::size_t size) { require(ftruncate(file_, static_cast<off_t>(size)) == 0, "the ring cannot be cut"); }

    zelq::RingHeader* header() { return reinterpret_cast<zelq::RingHeader*>(memory_); }
    zelq::RingSlot* slots() { return reinterpret_cast<zelq::RingSlot*>(memory_ + zelq::ringHeaderSize); }

private:
    StateFolder folder_;
    int file_;
    char* memory_;
    std::string good_;
};

using Lines = std::vector<TraceEntry>;

bool isSame(TraceEntry const& left, TraceEntry const& right) {
    return left.ticket == right.ticket && left.timeNs == right.timeNs && left.pid == right.pid &&
           left.tid == right.tid && left.handle == right.handle && left.line() == right.line();
}

void requireSame(Lines const& left, Lines const& right, char const* otherwise) {
    require(std::equal(left.begin(), left.end(), right.begin(), right.end(), isSame), otherwise);
}

// In the order of their tickets, each whole. Tickets may pass their highest number.
void requireGood(Lines const& lines) {
    for (std::size_t i = 0; i < lines.size(); ++i) {
        require(lines[i].length <= zelq::ringLineMax && lines[i].text[lines[i].length] == '\0', "a line without end");
        require(i == 0 || lines[i].ticket - lines[0].ticket > lines[i - 1].ticket - lines[0].ticket,
                "lines in disorder");
        require(lines[i].ticket - lines[0].ticket < slotCount, "more tickets than slots");
    }
}

Lines newest(RingReader& reader, TraceFilter const& filter = {}) {
    Lines lines(slotCount + 1);
    lines.resize(reader.newest(filter, lines.data(), lines.size()));
    requireGood(lines);
    return lines;
}

Lines followed(RingReader& reader) {
    Lines lines(slotCount + 1);
    zelq::TraceProgress const progress = reader.follow({}, lines.data(), lines.size());
    require(!progress.more, "more lines than slots");
    lines.resize(progress.count);
    requireGood(lines);
    return lines;
}

// A reader sees the same through the file and in memory, with a filter and without one.
Lines checkReaders(Ring& ring) {
    RingReader inMemory;
    inMemory.attach(ring.header(), ring.slots(), slotCount);
    Lines const lines = newest(inMemory);
    TraceFilter filter;
    filter.handle = 1;
    Lines matching;
    std::copy_if(lines.begin(), lines.end(), std::back_inserter(matching),
                 [](TraceEntry const& entry) { return entry.handle == 1; });
    requireSame(newest(inMemory, filter), matching, "a filter shows other lines");

    RingReader follower;
    follower.attach(ring.header(), ring.slots(), slotCount);
    Lines const beginning = followed(follower);
    require(beginning.empty() ||
                std::search(lines.begin(), lines.end(), beginning.begin(), beginning.end(), isSame) != lines.end(),
            "following shows other lines");

    RingReader fromFile;
    if (fromFile.open() == 0) {
        requireSame(newest(fromFile), lines, "the file shows other lines");
        followed(fromFile);
    } else {
        require(fromFile.problem()[0] != '\0', "refused without a reason");
    }
    return lines;
}

// What the viewer prints.
void checkPrinting(Lines const& lines) {
    static Printed printed;
    zelq::TraceOptions options;
    for (bool const json : {false, true}) {
        zelq::Output output(zelq::ColourMode::never, zelq::Paging::never);
        options.json = json;
        require(printTrace(options, output) == zelq::exitFine && output.flush(), "the lines cannot be printed");
        std::string const text = printed.take();
        if (!json) {
            requireHarmless(text);
        }
        std::size_t count = 0;
        for (std::size_t begin = 0, end; begin < text.size(); begin = end + 1) {
            end = text.find('\n', begin);
            rapidjson::Document line;
            require(
                !json || !line.Parse<rapidjson::kParseValidateEncodingFlag>(&text[begin], end - begin).HasParseError(),
                "not a JSON object");
            count += text.compare(begin, 3, "-- ") == 0 ? 0U : 1U;
        }
        require(count == lines.size(), "another number of lines was printed");
    }
}

// Whatever is in the ring, a snapshot is rows of text, each as wide as was asked for at most.
void checkSnapshot() {
    constexpr unsigned int rowsMax = 250;
    for (unsigned int const width : {80U, 12U}) {
        std::string buffer(rowsMax * width, '#');
        int rows = -1;
        int bytes = -1;
        require(xtr_fetch(buffer.data(), rowsMax, width, &rows, &bytes) == 0, "no snapshot");
        require(rows >= 0 && bytes >= 0 && static_cast<std::size_t>(bytes) <= buffer.size(), "a snapshot of odd size");
        buffer.resize(static_cast<std::size_t>(bytes));
        requireHarmless(buffer);
        require(std::count(buffer.begin(), buffer.end(), '\n') == rows, "another number of rows");
        for (std::size_t begin = 0, end; begin < buffer.size(); begin = end + 1) {
            end = buffer.find('\n', begin);
            require(end - begin < width, "a row is too wide");
        }
    }
}

}  // namespace

std::vector<std::string> seeds() {
    auto const patch = [](std::size_t position, std::string const& bytes) {
        return std::string{static_cast<char>(position), static_cast<char>(position >> 8),
                           static_cast<char>(position >> 16), static_cast<char>(bytes.size())} +
               bytes;
    };
    std::size_t const slot = zelq::ringHeaderSize + 7 * zelq::ringSlotSize;
    std::string const zeros(8, '\0');
    return {"",
            "\x05",
            patch(0, "other"),
            patch(offsetof(zelq::RingHeader, nextTicket), zeros),
            patch(offsetof(zelq::RingHeader, nextTicket), std::string(8, '\xFF')),
            patch(slot, "\x01" + zeros) + patch(slot + 8, "\x07") + patch(slot + 16, zeros + zeros),
            patch(slot + offsetof(zelq::RingSlot, length), "\xFF\xFF") +
                patch(slot + offsetof(zelq::RingSlot, text), "\x1B[31m\xC2\x80\xFF\n") + '\x80'};
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    static Ring ring;
    ring.restore();
    std::string_view input(reinterpret_cast<char const*>(data), size);
    constexpr std::size_t headSize = 4;
    while (input.size() >= headSize) {
        auto const byte = [&input](std::size_t i) { return std::size_t{static_cast<unsigned char>(input[i])}; };
        std::size_t const position = byte(0) | byte(1) << 8 | byte(2) << 16;
        std::string_view const bytes = input.substr(headSize, byte(3));
        ring.patch(position, bytes);
        input.remove_prefix(headSize + bytes.size());
    }

    Lines const lines = checkReaders(ring);
    RingReader reader;
    if (reader.open() == 0 && !lines.empty()) {
        checkPrinting(lines);
    }
    checkSnapshot();
    for (std::size_t i = 0; i < slotCount + firstEmpty; ++i) {
        xtr_trace("one more line");
    }
    checkReaders(ring);
    checkSnapshot();

    if (!input.empty() && reader.slotCount() != 0) {
        ring.cut(static_cast<unsigned char>(input[0]) * fileSize / 256);
        newest(reader);
        followed(reader);
    }
    return 0;
}
