#ifndef ZELQ_TOOLS_LOG_FOLDERREPORT_H
#define ZELQ_TOOLS_LOG_FOLDERREPORT_H

#include <string>

#include "store/reader.h"
#include "tools/log/filter.h"
#include "tools/terminal/output.h"

namespace zelq {

/// Complains that the state folder `path` could not be opened; `failure` is what
/// openStateFolder() returned.
void complainAboutFolder(std::string const& path, int failure);

/// Opens the store. When that fails or there is none, says so and returns the status for it.
ExitStatus openStore(StoreReader& store);

/// Complains that no record of the store matches.
void complainAboutNothing(StoreReader const& store, LogFilter const& filter);

}  // namespace zelq

#endif
