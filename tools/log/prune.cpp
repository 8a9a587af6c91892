// zelq log prune

#include "store/prune.h"

#include <cstring>

#include "tools/log/command.h"
#include "tools/log/report.h"
#include "tools/terminal/terminal.h"

namespace zelq {
namespace {

PruneCut cutStore(StoreReader& store, LogPruneOptions const& options) {
    Progress progress("reading", store.files().totalSize());
    auto const advance = [&](off_t bytes) { progress.advance(bytes); };
    return options.isDryRun ? findCut(store.files(), options.limits, advance) : prune(store, options.limits, advance);
}

}  // namespace

ExitStatus pruneStore(LogPruneOptions const& options, Output& output) {
    StoreReader store;
    if (!openStore(store)) {
        return exitFine;  // what is not there need not be removed
    }
    try {
        PruneCut const cut = cutStore(store, options);
        off_t const left = store.files().totalSize() - cut.bytes;
        output.print(cut.bytes == 0
                         ? "nothing to remove"
                         : (options.isDryRun ? "would remove " : "removed ") + counted(cut.records, "record") +
                               (cut.badLines > 0 ? " and " + counted(cut.badLines, "bad line") : "") + ", " +
                               byteCount(static_cast<std::uint64_t>(cut.bytes)));
        output.printLine("; " + byteCount(static_cast<std::uint64_t>(left)) + " stay");
    } catch (PruneFailure const& failure) {
        std::string const reason = failure.reason != 0 ? std::string(": ") + std::strerror(failure.reason) : "";
        throw Failure{exitFailed, "cannot " + failure.step + reason};
    }
    for (std::string const& reason : store.files().unreadable()) {
        complain(reason);
    }
    return store.files().unreadable().empty() ? exitFine : exitDamaged;
}

}  // namespace zelq
