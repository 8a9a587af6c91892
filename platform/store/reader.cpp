#include "store/reader.h"

#include <cstring>
#include <ctime>
#include <utility>

#include "common/text.h"

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

bool isTorn(std::optional<FileLine> const& line) {
    return line.has_value() && !line->isComplete && line->size > 0;
}

void addReadFailure(StoreFile const& file, int failure, FaultSink& faults) {
    if (failure != 0) {
        faults.add({nullptr, 0, 0, Fault::damaged, "cannot read '" + file.name() + "': " + std::strerror(failure)});
    }
}

}  // namespace

void FaultSink::add(Fault fault) {
    ++counts_[fault.kind];
    bool const isTold = fault.kind == Fault::newer && fault.file == newerIn_;
    newerIn_ = fault.kind == Fault::newer ? fault.file : newerIn_;
    if (!isTold) {
        keep(std::move(fault));
    }
}

int StoreReader::open() {
    return files_.open();
}

void StoreReader::visit(Order order, FaultSink& faults, Visitor const& visitor, ReadProgress const& progress) {
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

bool StoreReader::visitForward(std::size_t index, FaultSink& faults, Visitor const& visitor,
                               ReadProgress const& progress) {
    StoreFile const& file = files_.files()[index];
    ForwardLines lines(file.descriptor.get(), 0, progress);
    for (int patience = file.index == 0 ? patienceMax : 0;;) {
        while (std::optional<FileLine> const line = lines.next()) {
            if (!visitLine(index, *line, faults, visitor)) {
                return false;
            }
        }
        if (!lines.rest().has_value() || !waitForWriter(patience)) {
            break;
        }
    }
    addReadFailure(file, lines.failure(), faults);
    std::optional<FileLine> rest = lines.rest();
    if (!rest.has_value()) {
        return true;
    }
    std::optional<std::string> text;
    if (!rest->isTooLong()) {
        text = readAt(file.descriptor.get(), rest->offset, static_cast<std::size_t>(rest->size));
    }
    rest->text = text.has_value() ? *text : std::string_view();
    return visitLine(index, *rest, faults, visitor);
}

bool StoreReader::visitBackward(std::size_t index, FaultSink& faults, Visitor const& visitor) {
    StoreFile const& file = files_.files()[index];
    BackwardLines lines(file.descriptor.get(), file.size);
    std::optional<FileLine> line = lines.next();
    for (int patience = file.index == 0 ? patienceMax : 0; isTorn(line) && waitForWriter(patience);) {
        lines = BackwardLines(file.descriptor.get(), fileSize(file.descriptor.get()));
        line = lines.next();
    }
    for (; line.has_value(); line = lines.next()) {
        if (!visitLine(index, *line, faults, visitor)) {
            return false;
        }
    }
    addReadFailure(file, lines.failure(), faults);
    return true;
}

bool StoreReader::visitLine(std::size_t index, FileLine const& line, FaultSink& faults, Visitor const& visitor) {
    std::optional<Record> record = readLine(files_.files()[index], line, faults);
    return !record.has_value() || visitor(*record, line.text, {index, line.offset, line.text.size()});
}

std::optional<StoredRecord> StoreReader::read(RecordPlace const& place) const {
    std::optional<std::string> line = readAt(files_.files()[place.file].descriptor.get(), place.offset, place.size);
    Record record;
    if (!line.has_value() || parseRecord(*line, record).has_value()) {
        return std::nullopt;
    }
    return StoredRecord{std::move(record), std::move(*line)};
}

std::optional<Record> readLine(StoreFile const& file, FileLine const& line, FaultSink& faults) {
    if (line.size == 0) {
        return std::nullopt;
    }
    auto const tell = [&](Fault::Kind kind, std::string reason) {
        faults.add({&file, line.offset, line.number, kind, std::move(reason)});
    };
    if (line.isTooLong()) {
        tell(Fault::damaged,
             byteCount(static_cast<std::uint64_t>(line.size)) + " long, more than " + byteCount(lineSizeMax));
        return std::nullopt;
    }
    Record record;
    std::optional<RecordFault> const fault = parseRecord(line.text, record);
    std::string const version =
        record.version <= knownVersion
            ? ""
            : "it has version " + std::to_string(record.version) + ", this zelq knows " + std::to_string(knownVersion);
    if (!fault.has_value()) {
        if (!version.empty()) {
            tell(Fault::newer, version + " and may misread it");
        }
        return record;
    }
    // Only what begins like a record can be the beginning of one.
    if (fault->isCutOff || (!line.isComplete && line.text[0] == '{')) {
        tell(Fault::torn,
             line.isComplete ? "it ends in the middle, its writer died" : "its writer died or is still writing");
    } else {
        tell(Fault::damaged, version.empty() ? fault->reason : version + ": " + fault->reason);
    }
    return std::nullopt;
}

}  // namespace zelq
