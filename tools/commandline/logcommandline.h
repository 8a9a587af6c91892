#ifndef ZELQ_TOOLS_COMMANDLINE_LOGCOMMANDLINE_H
#define ZELQ_TOOLS_COMMANDLINE_LOGCOMMANDLINE_H

#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "tools/log/commands.h"

namespace zelq {

/// The part of the command line that belongs to `zelq log`: its commands and their options.
class LogCommandLine {
public:
    /// Adds the commands to `app`. The object must outlive the parsing.
    explicit LogCommandLine(CLI::App& app);

    /// Runs the command that was given; without one, the list. Throws UsageError.
    int run(Output& output) const;

private:
    CLI::App* addCommand(char const* name, char const* what);
    void addFilter(CLI::App& command);
    void addListOptions(CLI::App& command);
    void refuseMisplacedOptions() const;

    LogFilter filter() const;
    LogListOptions listOptions() const;
    LogPruneOptions pruneOptions() const;
    int runList(Output& output) const;

    CLI::App* log_;
    CLI::App* list_;
    CLI::App* show_;
    CLI::App* stats_;
    CLI::App* verify_;
    CLI::App* prune_;

    // What the options say, as text where the text has a meaning of its own. The commands share it:
    // only one of them runs.
    std::vector<std::string> severities_;
    std::vector<std::string> classes_;
    std::vector<std::string> events_;
    std::vector<std::string> programs_;
    std::string since_;
    std::string until_;
    std::string grep_;
    std::string newest_;
    std::string format_ = "short";
    std::string id_;
    std::string keepDays_;
    std::string keepBytes_;
    bool isFollowing_ = false;
    bool isReversed_ = false;
    bool isFull_ = false;
    bool isDryRun_ = false;
};

}  // namespace zelq

#endif
