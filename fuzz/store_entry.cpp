// Reading the error-log store.
//
// Input: what the newest file of the store holds. The byte 0x1D ends it and begins the next older one.

#include <fcntl.h>

#include <algorithm>
#include <set>

#include "entry.h"
#include "store/layout.h"
#include "store/reader.h"
#include "store/recordwriter.h"
#include "surroundings.h"
#include "tools/log/writer.h"

// A reader gives the writer of a last line a moment to end it. Nobody writes here.
extern "C" int nanosleep(timespec const*, timespec*) {
    return 0;
}

namespace {

using zelq::Record;
using zelq::StoreReader;

constexpr char fileSeparator = '\x1D';
constexpr unsigned filesMax = 3;

struct Faults : zelq::FaultSink {
    void keep(zelq::Fault&& fault) override {
        if (fault.kind != zelq::Fault::newer) {  // those are shown
            reasons.insert(std::move(fault.reason));
        }
    }

    std::multiset<std::string> reasons;
};

/// A record as its program would have handed it to the service: fields are cut to what holds them there.
struct Handed {
    explicit Handed(Record const& read) : record(), entries(read.items.size()) {
        record.attributes = static_cast<std::uint16_t>(read.attributes);
        record.logClass = static_cast<std::uint8_t>(read.logClass);
        record.logType = static_cast<std::uint8_t>(read.logType);
        record.user = static_cast<std::uint16_t>(read.user);
        read.event.copy(record.eventName, sizeof record.eventName);
        read.logId.copy(record.logId, sizeof record.logId - 1);
        for (std::size_t i = entries.size(); i-- > 0;) {
            std::string const& bytes = read.items[i].bytes;
            entries[i] = {static_cast<std::uint32_t>(bytes.size()),
                          static_cast<std::uint8_t>(read.items[i].id),
                          {},
                          bytes.data(),
                          record.details};
            record.details = &entries[i];
        }
    }

    xlog_record_interface record;
    std::vector<xlog_detail_entry> entries;
};

std::string written(Record const& read) {
    Handed const handed(read);
    zelq::RecordView view = zelq::viewOf(handed.record);
    view.id = read.id;
    view.timeUs = std::max(read.timeUs, 0LL);
    view.host = read.host;
    view.program = read.program;
    view.pid = read.pid;
    view.tid = read.tid;
    view.lostBefore = read.lostBefore;
    std::string line;
    zelq::renderRecord(view, line);
    return line;
}

Record parsed(std::string const& line) {
    Record record;
    require(line.find('\n') == line.size() - 1, "a written record is not one line");
    if (auto const fault = parseRecord(std::string_view(line).substr(0, line.size() - 1), record)) {
        fail(fault->reason + " in the written line\n" + line);
    }
    return record;
}

// What the service writes of a record is a record again, no byte of its items is lost, and from then
// on reading and writing change nothing any more.
void checkRoundTrip(Record const& record) {
    std::string const once = written(record);
    Record const again = parsed(once);
    require(again.items.size() == record.items.size(), "another number of items");
    for (std::size_t i = 0; i < record.items.size(); ++i) {
        require(again.items[i].bytes == record.items[i].bytes, "an item lost bytes");
    }
    if (std::string const twice = written(again); twice != once) {
        fail("not the same again:\n" + once + twice);
    }
}

// Puts the files into the folder, and counts the lines that a reader will have to account for.
std::size_t putFiles(std::string const& folder, std::string_view input) {
    std::size_t lines = 0;
    for (unsigned index = 0; index < filesMax; ++index) {
        std::string const path = folder + "/" + zelq::storeFileName(index).text;
        if (index > 0 && input.empty()) {
            unlink(path.c_str());
            continue;
        }
        int const file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        std::string_view const content = input.substr(0, input.find(fileSeparator));
        require(write(file, content.data(), content.size()) == static_cast<ssize_t>(content.size()), "no store");
        close(file);
        input.remove_prefix(std::min(content.size() + 1, input.size()));
        for (std::size_t i = 0; i < content.size(); ++i) {
            lines += content[i] != '\n' && (i == 0 || content[i - 1] == '\n') ? 1U : 0U;
        }
    }
    return lines;
}

}  // namespace

std::vector<std::string> seeds() {
    Record record;
    record.id = "0123456789abcdef";
    record.timeUs = 1700000000123456;
    record.host = "host";
    record.program = "program";
    record.pid = 11;
    record.tid = 12;
    record.logClass = 10;
    record.logType = 2;
    record.user = 0x1234;
    record.attributes = 0xF743;
    record.event = "EVENT";
    record.logId = "log \xC3\xA4";
    record.lostBefore = 3;
    std::string const plain = written(record);
    record.event = "\xFF";
    record.items = {{0xE0, true, std::string("text\n\n#0  0x1  main\n\nDeserialized\n#0  0x2  main\0", 47)},
                    {0xE1, true, std::string("Secondary Reference Codes:\n\nA0010002 00000003\0", 47)},
                    {0xEF, true, std::string("10:00:00.000 1/1 a row\n10:00:00.001 1/1 the next\n\0", 50)},
                    {0xEE, false, std::string(1, '\0')},
                    {3, false, std::string("\x1B[31m\x80\xFF", 7)},
                    {0xF0, false, std::string("\x22\x00\x18\x00\x00\x00", 6)}};
    std::string const rich = written(record);
    std::string later = plain;
    later.replace(later.find("\"v\":1"), 5, "\"v\":2");
    return {plain, rich, plain + fileSeparator + rich + rich, "{\"id\":\"x\"}\n\n[[[[\n" + plain.substr(0, 100),
            plain + later + later + "{\"v\":3,\"id\":7}\n"};
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    static StateFolder const folder;
    static Printed printed;
    std::size_t const expected = putFiles(folder.path().string(), {reinterpret_cast<char const*>(data), size});

    std::vector<std::string> lines;
    StoreReader oldestFirst;
    require(oldestFirst.open() == 0, "the store cannot be opened");
    zelq::Output output(zelq::ColourMode::never, zelq::Paging::never);
    Faults faults;
    oldestFirst.visit(StoreReader::Order::oldestFirst, faults, [&](Record& record, std::string_view line, auto const&) {
        lines.emplace_back(line);
        checkRoundTrip(record);
        printRecord(record, lines.size() % 2 == 0, output);
        return true;
    });
    require(output.flush(), "the output failed");
    requireHarmless(printed.take());

    StoreReader newestFirst;
    require(newestFirst.open() == 0, "the store cannot be opened");
    std::size_t left = lines.size();
    Faults faultsAgain;
    newestFirst.visit(StoreReader::Order::newestFirst, faultsAgain, [&](Record&, std::string_view line, auto const&) {
        require(left-- > 0 && lines[left] == line, "another order, other records");
        return true;
    });
    require(left == 0 && faultsAgain.reasons == faults.reasons, "another order, other records");

    require(lines.size() + faults.reasons.size() == expected, "a line was neither shown nor complained about");
    return 0;
}
