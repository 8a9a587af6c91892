// The command line of zelq log

#include "tools/log/command.h"

#include <cctype>
#include <memory>

#include <CLI/CLI.hpp>

#include "store/severity.h"

namespace zelq {
namespace {

constexpr long long second = 1000000;

/// What the options of all these commands say: only one of them runs.
struct Given {
    LogOptions options;
    std::optional<std::size_t> newest;
    bool isFollowing = false;
    LogPruneOptions prune;
};

// The first digits of an id.
std::string parseId(std::string text) {
    for (char& c : text) {
        if (std::isxdigit(static_cast<unsigned char>(c)) == 0) {
            throw Failure{exitUsage, "not an id: '" + text + "' (hexadecimal digits, at least the first of them)"};
        }
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return text;
}

// As lists show it.
std::uint64_t parseClass(std::string const& text) {
    bool const hasPrefix = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    std::optional<std::uint64_t> const number = parseNumber(std::string_view(text).substr(hasPrefix ? 2 : 0), 16, 8);
    if (!number.has_value()) {
        throw Failure{exitUsage, "not a class: '" + text + "' (two hexadecimal digits, as the list shows it)"};
    }
    return *number;
}

/// The shown words of all severities.
std::string severityChoice(char const* between) {
    std::string choice;
    for (Severity const& severity : severities) {
        choice += (choice.empty() ? "" : between) + std::string(severity.shown);
    }
    return choice;
}

std::string parseSeverity(std::string const& text) {
    Severity const* const severity = severityNamed(text);
    if (severity == nullptr) {
        throw Failure{exitUsage, "not a severity: '" + text + "' (" + severityChoice(" or ") + ")"};
    }
    return severity->shown;
}

// The list shows times without their fraction: one that is given back means the whole second.
long long endOf(long long timeUs) {
    return timeUs + (timeUs % second == 0 ? second - 1 : 0);
}

void addFilter(CLI::App& command, LogFilter& filter) {
    addRepeatable(command, "--severity", "only " + severityChoice(", or only "), "NAME",
                  [&filter](std::string const& text) { filter.severities.push_back(parseSeverity(text)); });
    addRepeatable(command, "--class",
                  "only this class, in hexadecimal digits as listed; 0a is\nwhat reference codes call A0", "CLASS",
                  [&filter](std::string const& text) { filter.classes.push_back(parseClass(text)); });
    addRepeatable(command, "--event", "only this event; * and ? stand for other characters", "NAME",
                  [&filter](std::string const& text) { filter.events.push_back(text); });
    addRepeatable(command, "--program", "only logs of this program; * and ? as above", "NAME",
                  [&filter](std::string const& text) { filter.programs.push_back(text); });
    addValue(command, "-S,--since",
             "only logs since a time: \"2026-11-22 10:00\" (local, UTC\n"
             "with a Z behind it), 10:00, today, yesterday,\n"
             "\"10 min ago\", -10min, @SECONDS",
             "TIME", [&filter](std::string const& text) { filter.sinceUs = parseTime(text); });
    addValue(command, "-U,--until", "only logs up to a time, given likewise", "TIME",
             [&filter](std::string const& text) { filter.untilUs = endOf(parseTime(text)); });
    addValue(command, "-g,--grep",
             "only logs that say it: an extended regular expression,\n"
             "looked for in event, log id, reference code and texts\n"
             "(the backtrace too, but not traces); case counts only if\n"
             "it has capital letters",
             "REGEX", [&filter](std::string const& text) { filter.text = TextPattern(text); });
}

void addLogFormat(CLI::App& command, LogOptions& options, char const* what, std::vector<std::string> const& names) {
    addFormat(command, what, names,
              [&options](std::string const& name) { options.writer.format = logFormatNamed(name); });
}

void addList(CLI::App& command, Given& given) {
    addNewest(command, "only the newest N logs (10 when N is left out)", given.newest);
    command.add_flag("-f,--follow", given.isFollowing, "begin with the newest 10 logs, then show new ones");
    command.add_flag("-r,--reverse", given.options.writer.isReversed, "the newest first");
    addFilter(command, given.options.filter);
    std::vector<std::string> names;
    for (LogFormat const& format : logFormats) {
        names.emplace_back(format.name);
    }
    addLogFormat(command, given.options,
                 "short, a table; verbose, everything; json, the stored\nlines; csv, for spreadsheets", names);
    command.add_flag("--full", given.options.writer.isFull, "with verbose: whole traces, not only their last 10 lines");
}

void addShow(CLI::App& command, Given& given) {
    auto const takeId = [&given](std::string const& text) { given.options.id = parseId(text); };
    addValue(command, "ID", "the log's id or how it begins; without one, the newest", "", takeId);
    addFilter(command, given.options.filter);
    command.add_flag("--full", given.options.writer.isFull, "whole traces, not only their last 10 lines");
    addLogFormat(command, given.options, "short, for people, or json, the stored line", {"short", "json"});
}

void addPrune(CLI::App& command, LogPruneOptions& options) {
    addValue(command, "--keep-days", "remove logs older than N days, up to the first one that\nis not", "N",
             [&options](std::string const& text) { options.limits.sinceUs = parseDaysBeforeNow(text); });
    addValue(command, "--keep-bytes",
             "remove the oldest logs until the store has at most N\nbytes; K, M or G may follow", "N",
             [&options](std::string const& text) { options.limits.bytes = parseBytes(text); });
    command.add_flag("--dry-run", options.isDryRun, "only tell what would be removed");
}

// The parser gives an option that a command does not know to the 'log' above it, which knows those
// of the list.
void refuseMisplacedOptions(CLI::App const& log) {
    for (CLI::App const* const command : log.get_subcommands()) {
        for (CLI::Option const* const option : log.get_options()) {
            if (option->count() > 0 && command->get_option_no_throw(option->get_name()) == nullptr) {
                throw Failure{exitUsage, "'" + option->get_name() + "' belongs to 'log list', not to 'log " +
                                             command->get_name() + "'"};
            }
        }
    }
}

ExitStatus runList(Given const& given, Output& output) {
    LogOptions options = given.options;
    if (!given.isFollowing) {
        options.newest = given.newest.value_or(options.newest);
        return listLogs(options, output);
    }
    if (options.writer.isReversed) {
        throw Failure{exitUsage, "--follow goes with the order of time, not with --reverse"};
    }
    options.newest = given.newest.value_or(followedNewest);
    return followLogs(options, output);
}

ExitStatus runShow(LogOptions options, Output& output) {
    if (options.writer.format == logFormatNamed("short")) {
        options.writer.format = logFormatNamed("verbose");
    }
    return showLog(options, output);
}

ExitStatus runPrune(LogPruneOptions const& options, Output& output) {
    if (!options.limits.sinceUs.has_value() && !options.limits.bytes.has_value()) {
        throw Failure{exitUsage, "'log prune' needs --keep-days or --keep-bytes"};
    }
    return pruneStore(options, output);
}

}  // namespace

Command addLogCommand(CLI::App& app) {
    auto const given = std::make_shared<Given>();
    CLI::App& log = *app.add_subcommand("log", "error logs; without a command of its own, lists them");
    log.require_subcommand(0, 1);
    addList(log, *given);
    addList(*log.add_subcommand("list", "one line for each log, the newest last"), *given);
    CLI::App& show = *log.add_subcommand("show", "everything about one log");
    addShow(show, *given);
    CLI::App& stats = *log.add_subcommand("stats", "how many logs of each severity, event and reference code");
    addFilter(stats, given->options.filter);
    addLogFormat(stats, given->options, "short, for people, or json, one object", {"short", "json"});
    CLI::App& verify = *log.add_subcommand("verify", "read every line of the store, name each that is damaged");
    CLI::App& prune = *log.add_subcommand("prune", "remove old logs; programs may go on recording meanwhile");
    addPrune(prune, given->prune);
    return {&log, [given, &log, &show, &stats, &verify, &prune](Output& output) {
                refuseMisplacedOptions(log);
                return show.parsed()     ? runShow(given->options, output)
                       : stats.parsed()  ? countLogs(given->options, output)
                       : verify.parsed() ? verifyStore(output)
                       : prune.parsed()  ? runPrune(given->prune, output)
                                         : runList(*given, output);
            }};
}

}  // namespace zelq
