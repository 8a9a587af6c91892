#ifndef ZELQ_TOOLS_LOG_COMMAND_H
#define ZELQ_TOOLS_LOG_COMMAND_H

#include "tools/commandline/options.h"

namespace zelq {

/// Adds `log` and its commands with their options to the parser.
Command addLogCommand(CLI::App& app);

}  // namespace zelq

#endif
