#ifndef ZELQ_TOOLS_LOG_FOLDERREPORT_H
#define ZELQ_TOOLS_LOG_FOLDERREPORT_H

#include <string>

#include "store/reader.h"
#include "tools/log/filter.h"
#include "tools/terminal/output.h"

namespace zelq {

/// Throws the Failure for a state folder `path` that could not be opened; `failure` is what
/// openStateFolder() returned.
[[noreturn]] void refuseFolder(std::string const& path, int failure);

/// Opens the store. When there is none, says so and returns false.
bool openStore(StoreReader& store);

/// Complains that no record of the store matches.
void complainAboutNothing(StoreReader const& store, LogFilter const& filter);

}  // namespace zelq

#endif
