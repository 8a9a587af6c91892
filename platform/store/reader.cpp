#include "store/reader.h"

#include <cstring>
#include <ctime>

namespace zelq {
namespace {

constexpr int patienceMax = 5;

// A writer may be in the middle of the last line; it gets a moment to finish. False when it had
// enough of them.
bool waitForWriter(int& patience) {
    if (patience == 0) {
        return false;
    }
    --patience;
    timespec const pause = {0, 10000000};
    nanosleep(&pause, nullptr);
    return true;
}

bool isTorn(FileLine const& line) {
    return !line.isComplete && line.size > 0;
}

void addReadFailure(StoreFile const& file, int failure, FaultSink& faults) {
    if (failure != 0) {
        faults.add({nullptr, 0, 0, Fault::damaged, "cannot read '" + file.name() + "': " + std::strerror(failure)});
    }
}

}  // namespace

int StoreReader::open() {
    return files_.open();
}

void StoreReader::visit(Order order, FaultSink& faults, Visitor const& visitor, Progress* progress) {
    for (std::string const& reason : files_.unreadable()) {
        faults.add({nullptr, 0, 0, Fault::damaged, reason});
    }
    std::size_t const count = files_.files().size();
    for (std::size_t i = 0; i < count; ++i) {
        bool const goesOn = order == Order::newestFirst ? visitBackward(i, faults, visitor)
                                                        : visitForward(count - 1 - i, faults, visitor, progress);
        if (!goesOn) {
            return;
        }
    }
}

bool StoreReader::visitForward(std::size_t index, FaultSink& faults, Visitor const& visitor, Progress* progress) {
    StoreFile const& file = files_.files()[index];
    ForwardLines lines(file.descriptor.get(), 0, progress);
    FileLine line;
    for (int patience = file.index == 0 ? patienceMax : 0;;) {
        while (lines.next(&line)) {
            if (!visitLine(index, line, faults, visitor)) {
                return false;
            }
        }
        if (!lines.rest(&line) || !waitForWriter(patience)) {
            break;
        }
    }
    addReadFailure(file, lines.failure(), faults);
    std::string text;
    if (lines.rest(&line) && !line.isTooLong() &&
        readAt(file.descriptor.get(), line.offset, static_cast<std::size_t>(line.size), &text)) {
        line.text = text;
    }
    return visitLine(index, line, faults, visitor);
}

bool StoreReader::visitBackward(std::size_t index, FaultSink& faults, Visitor const& visitor) {
    StoreFile const& file = files_.files()[index];
    FileLine line;
    BackwardLines lines(file.descriptor.get(), file.size);
    bool isAnything = lines.next(&line);
    for (int patience = file.index == 0 ? patienceMax : 0; isTorn(line) && waitForWriter(patience);) {
        lines = BackwardLines(file.descriptor.get(), fileSize(file.descriptor.get()));
        isAnything = lines.next(&line);
    }
    for (; isAnything; isAnything = lines.next(&line)) {
        if (!visitLine(index, line, faults, visitor)) {
            return false;
        }
    }
    addReadFailure(file, lines.failure(), faults);
    return true;
}

bool StoreReader::visitLine(std::size_t index, FileLine const& line, FaultSink& faults, Visitor const& visitor) {
    Record record;
    return !readLine(files_.files()[index], line, faults, &record) ||
           visitor(record, line.text, {index, line.offset, line.text.size()});
}

bool StoreReader::read(RecordPlace const& place, Record* record, std::string* line) const {
    *record = {};
    return readAt(files_.files()[place.file].descriptor.get(), place.offset, place.size, line) &&
           parseRecord(*line, record).reason.empty();
}

bool readLine(StoreFile const& file, FileLine const& line, FaultSink& faults, Record* record) {
    if (line.size == 0) {
        return false;
    }
    if (line.isTooLong()) {
        faults.add({&file, line.offset, line.number, Fault::damaged,
                    byteCount(static_cast<std::uint64_t>(line.size)) + " long, more than " + byteCount(lineSizeMax)});
        return false;
    }
    RecordFault fault = parseRecord(line.text, record);
    bool const isRecord = fault.reason.empty();
    if (record->version > knownVersion) {
        fault.reason = "it has version " + std::to_string(record->version) + ", this zelq knows " +
                       std::to_string(knownVersion) + (isRecord ? " and may misread it" : ": " + fault.reason);
    }
    if (isRecord) {
        if (!fault.reason.empty()) {
            faults.add({&file, line.offset, line.number, Fault::newer, std::move(fault.reason)});
        }
        return true;
    }
    // Only what begins like a record can be the beginning of one.
    bool const isTorn = fault.isCutOff || (!line.isComplete && line.text[0] == '{');
    if (isTorn) {
        fault.reason =
            line.isComplete ? "it ends in the middle, its writer died" : "its writer died or is still writing";
    }
    faults.add({&file, line.offset, line.number, isTorn ? Fault::torn : Fault::damaged, std::move(fault.reason)});
    return false;
}

}  // namespace zelq
