#include "tools/commandline/logcommandline.h"

#include <algorithm>
#include <iterator>

#include "tools/commandline/arguments.h"

namespace zelq {
namespace {

constexpr long long second = 1000000;

void addFormat(CLI::App& command, std::string& format, std::vector<std::string> const& formats, char const* what) {
    command.add_option("-o,--output", format, what)->check(CLI::IsMember(formats).description(""))->type_name("FORMAT");
}

// Each use of the option adds one value, and takes no other words of the command line.
void addRepeatable(CLI::App& command, char const* name, std::vector<std::string>& values, char const* what,
                   char const* type) {
    command.add_option(name, values, what)->allow_extra_args(false)->type_name(type);
}

LogFormat const* formatNamed(std::string const& name) {
    return std::find_if(std::begin(logFormats), std::end(logFormats),
                        [&](LogFormat const& format) { return format.name == name; });
}

}  // namespace

LogCommandLine::LogCommandLine(CLI::App& app)
    : log_(app.add_subcommand("log", "error logs; without a command of its own, lists them")) {
    log_->require_subcommand(0, 1);
    addListOptions(*log_);
    list_ = log_->add_subcommand("list", "one line for each log, the newest last");
    addListOptions(*list_);

    show_ = log_->add_subcommand("show", "everything about one log");
    show_->add_option("ID", id_, "the log's id or how it begins; without one, the newest")->type_name("");
    addFilter(*show_);
    show_->add_flag("--full", isFull_, "whole traces, not only their last 10 lines");
    addFormat(*show_, format_, {"short", "json"}, "short, for people, or json, the stored line");

    stats_ = log_->add_subcommand("stats", "how many logs of each severity, event and reference code");
    addFilter(*stats_);
    addFormat(*stats_, format_, {"short", "json"}, "short, for people, or json, one object");

    verify_ = log_->add_subcommand("verify", "read every line of the store, name each that is damaged");

    prune_ = log_->add_subcommand("prune", "remove old logs; programs may go on recording meanwhile");
    prune_->add_option("--keep-days", keepDays_, "remove logs older than N days, up to the first one that\nis not")
        ->type_name("N");
    prune_
        ->add_option("--keep-bytes", keepBytes_,
                     "remove the oldest logs until the store has at most N\nbytes; K, M or G may follow")
        ->type_name("N");
    prune_->add_flag("--dry-run", isDryRun_, "only tell what would be removed");
}

void LogCommandLine::addFilter(CLI::App& command) {
    addRepeatable(command, "--severity", severities_, "only error, or only info", "NAME");
    addRepeatable(command, "--class", classes_,
                  "only this class, in hexadecimal digits as listed; 0a is\nwhat reference codes call A0", "CLASS");
    addRepeatable(command, "--event", events_, "only this event; * and ? stand for other characters", "NAME");
    addRepeatable(command, "--program", programs_, "only logs of this program; * and ? as above", "NAME");
    command
        .add_option("-S,--since", since_,
                    "only logs since a time: \"2026-11-22 10:00\" (local, UTC\n"
                    "with a Z behind it), 10:00, today, yesterday,\n"
                    "\"10 min ago\", -10min, @SECONDS")
        ->type_name("TIME");
    command.add_option("-U,--until", until_, "only logs up to a time, given likewise")->type_name("TIME");
    command
        .add_option("-g,--grep", grep_,
                    "only logs that say it: an extended regular expression,\n"
                    "looked for in event, log id, reference code and texts\n"
                    "(the backtrace too, but not traces); case counts only if\n"
                    "it has capital letters")
        ->type_name("REGEX");
}

void LogCommandLine::addListOptions(CLI::App& command) {
    command.add_option("-n,--lines", newest_, "only the newest N logs (10 when N is left out)")
        ->expected(0, 1)
        ->default_str("10")
        ->type_name("N");
    command.add_flag("-f,--follow", isFollowing_, "begin with the newest 10 logs, then show new ones");
    command.add_flag("-r,--reverse", isReversed_, "the newest first");
    addFilter(command);
    addFormat(command, format_, {"short", "verbose", "json", "csv"},
              "short, a table; verbose, everything; json, the stored\nlines; csv, for spreadsheets");
    command.add_flag("--full", isFull_, "with verbose: whole traces, not only their last 10 lines");
}

LogFilter LogCommandLine::filter() const {
    LogFilter filter;
    for (std::string const& text : severities_) {
        filter.severities.push_back(parseSeverity(text));
    }
    for (std::string const& text : classes_) {
        filter.classes.push_back(parseClass(text));
    }
    filter.events = events_;
    filter.programs = programs_;
    if (!since_.empty()) {
        filter.sinceUs = parseTime(since_);
    }
    if (!until_.empty()) {
        filter.untilUs = parseTime(until_);
        // The list shows times without their fraction: one that is given back means the whole second.
        *filter.untilUs += *filter.untilUs % second == 0 ? second - 1 : 0;
    }
    if (!grep_.empty()) {
        filter.text = parsePattern(grep_);
    }
    return filter;
}

LogListOptions LogCommandLine::listOptions() const {
    LogListOptions options;
    options.filter = filter();
    options.writer = {formatNamed(format_), isFull_, isReversed_};
    if (!newest_.empty()) {
        options.newest = parseNewest(newest_);
    }
    return options;
}

LogPruneOptions LogCommandLine::pruneOptions() const {
    LogPruneOptions options;
    options.isDryRun = isDryRun_;
    if (!keepDays_.empty()) {
        options.sinceUs = parseDaysBeforeNow(keepDays_);
    }
    if (!keepBytes_.empty()) {
        options.bytes = parseBytes(keepBytes_);
    }
    if (!options.sinceUs.has_value() && !options.bytes.has_value()) {
        throw UsageError{"'log prune' needs --keep-days or --keep-bytes"};
    }
    return options;
}

// The parser gives an option that a command does not know to the 'log' above it, which knows those
// of the list.
void LogCommandLine::refuseMisplacedOptions() const {
    for (CLI::App const* const command : log_->get_subcommands()) {
        for (CLI::Option const* const option : log_->get_options()) {
            if (option->count() > 0 && command->get_option_no_throw(option->get_name()) == nullptr) {
                throw UsageError{"'" + option->get_name() + "' belongs to 'log list', not to 'log " +
                                 command->get_name() + "'"};
            }
        }
    }
}

// Following begins with ten logs, so that the screen shows where it starts.
int LogCommandLine::runList(Output& output) const {
    LogListOptions options = listOptions();
    if (!isFollowing_) {
        return listLogs(options, output);
    }
    if (isReversed_) {
        throw UsageError{"--follow goes with the order of time, not with --reverse"};
    }
    if (newest_.empty()) {
        options.newest = 10;
    }
    return followLogs(options, output);
}

int LogCommandLine::run(Output& output) const {
    refuseMisplacedOptions();
    if (show_->parsed()) {
        return showLog(
            {filter(), parseId(id_), {formatNamed(format_ == "short" ? "verbose" : format_), isFull_, false}}, output);
    }
    if (stats_->parsed()) {
        return countLogs({filter(), format_ == "json"}, output);
    }
    if (verify_->parsed()) {
        return verifyStore(output);
    }
    return prune_->parsed() ? pruneStore(pruneOptions(), output) : runList(output);
}

}  // namespace zelq
