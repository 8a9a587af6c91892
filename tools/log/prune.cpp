// zelq log prune

#include "store/prune.h"

#include <cstring>

#include "tools/log/commands.h"
#include "tools/log/folderreport.h"
#include "tools/terminal/progress.h"

namespace zelq {
namespace {

PruneCut cutStore(StoreReader& store, LogPruneOptions const& options) {
    Progress progress("reading", store.files().totalSize());
    auto const advance = [&](off_t bytes) { progress.advance(bytes); };
    return options.isDryRun ? findCut(store.files(), options.limits, advance) : prune(store, options.limits, advance);
}

}  // namespace

int pruneStore(LogPruneOptions const& options, Output& output) {
    StoreReader store;
    if (ExitStatus const status = openStore(store); status != exitFine) {
        return status == exitNothing ? exitFine : status;  // what is not there need not be removed
    }
    try {
        PruneCut const cut = cutStore(store, options);
        off_t const left = store.files().totalSize() - cut.bytes;
        output.print(cut.bytes == 0
                         ? "nothing to remove"
                         : (options.isDryRun ? "would remove " : "removed ") + counted(cut.records, "record") +
                               (cut.badLines > 0 ? " and " + counted(cut.badLines, "bad line") : "") + ", " +
                               byteCount(static_cast<std::uint64_t>(cut.bytes)));
        output.print("; " + byteCount(static_cast<std::uint64_t>(left)) + " stay\n");
    } catch (PruneFailure const& failure) {
        output.finish();
        complain("cannot " + failure.step + (failure.reason != 0 ? ": " : "") +
                 (failure.reason != 0 ? std::strerror(failure.reason) : ""));
        return exitFailed;
    }
    for (std::string const& reason : store.files().unreadable()) {
        complain(reason);
    }
    return store.files().unreadable().empty() ? exitFine : exitDamaged;
}

}  // namespace zelq
