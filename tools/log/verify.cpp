// zelq log verify

#include "store/reader.h"
#include "tools/log/command.h"
#include "tools/log/report.h"
#include "tools/terminal/terminal.h"

namespace zelq {
namespace {

/// Prints each fault when it is found: there may be more of them than memory for them.
class FaultPrinter : public FaultSink {
public:
    FaultPrinter(Progress& progress, Output& output) : progress_(progress), output_(output) {}

private:
    void keep(Fault&& fault) override {
        progress_.hide();
        output_.printLine(describe(fault), fault.kind == Fault::damaged ? Style::alarm : Style::plain);
        output_.flush();
    }

    Progress& progress_;
    Output& output_;
};

}  // namespace

ExitStatus verifyStore(Output& output) {
    StoreReader store;
    if (!openStore(store)) {
        return exitNothing;
    }
    Progress progress("verifying", store.files().totalSize());
    FaultPrinter faults(progress, output);
    std::uint64_t records = 0;
    store.visit(
        StoreReader::Order::oldestFirst, faults,
        [&](Record const&, std::string_view, RecordPlace const&) {
            ++records;
            return !output.isDone();
        },
        [&](off_t bytes) { progress.advance(bytes); });
    progress.hide();
    std::string summary = counted(records, "record") + " in " + counted(store.files().files().size(), "file") + ", " +
                          byteCount(static_cast<std::uint64_t>(store.files().totalSize())) + ": ";
    std::uint64_t const damaged = faults.count(Fault::damaged);
    std::uint64_t const torn = faults.count(Fault::torn);
    std::uint64_t const newer = faults.count(Fault::newer);
    if (damaged + torn + newer == 0) {
        summary += "all fine";
    } else {
        summary += std::to_string(damaged) + " damaged, " + std::to_string(torn) + " torn";
    }
    if (newer > 0) {
        summary += ", " + std::to_string(newer) + " newer than this zelq";
    }
    output.printLine(summary);
    return damaged > 0 ? exitDamaged : exitFine;
}

}  // namespace zelq
