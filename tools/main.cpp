// The command line of zelq. What the commands do stands in logcommands.h and tracecommand.h.

#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iostream>
#include <map>
#include <new>
#include <optional>
#include <string>

#include <CLI/CLI.hpp>

#include "logcommands.h"
#include "output.h"
#include "timetext.h"
#include "tracecommand.h"

namespace {

/// What the options say, as text where the text has a meaning of its own. The commands share it:
/// only one of them runs.
struct CommandLine {
    std::string newest;
    std::string since;
    std::string format = "short";
    std::string id;
    zelq::ColourMode colour = zelq::ColourMode::automatic;
    bool follow = false;
    bool full = false;
    std::optional<std::uint32_t> pid;
    std::optional<std::uint32_t> tid;
    std::optional<std::uint32_t> handle;
};

/// A mistake on the command line that only shows when the values are looked at.
struct UsageError {
    std::string message;
};

// The values are read here and not by the parser, whose messages would not name the fault.
std::size_t parseNewest(std::string const& text) {
    if (text == "all") {
        return std::numeric_limits<std::size_t>::max();
    }
    char* end = nullptr;
    errno = 0;
    unsigned long long const count = std::strtoull(text.c_str(), &end, 10);
    if (std::isdigit(static_cast<unsigned char>(text[0])) == 0 || *end != '\0' || errno != 0 || count > SIZE_MAX) {
        throw UsageError{"not a number of lines: '" + text + "'"};
    }
    return static_cast<std::size_t>(count);
}

long long parseSince(std::string const& text) {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    long long since = 0;
    if (!zelq::parseGivenTime(text, static_cast<long long>(now.tv_sec) * 1000000 + now.tv_nsec / 1000, &since)) {
        throw UsageError{"not a time: '" + text + "' (such as \"2026-11-22 10:00\", \"10 min ago\", yesterday)"};
    }
    return since;
}

std::string parseId(std::string text) {
    for (char& c : text) {
        if (std::isxdigit(static_cast<unsigned char>(c)) == 0) {
            throw UsageError{"not an id: '" + text + "' (hexadecimal digits, at least the first of them)"};
        }
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return text;
}

void addFormat(CLI::App& command, CommandLine& line) {
    command.add_option("-o,--output", line.format, "short, for people, or json, one object per line")
        ->check(CLI::IsMember({"short", "json"}).description(""))
        ->type_name("FORMAT");
}

void addNewest(CLI::App& command, CommandLine& line, char const* what) {
    command.add_option("-n,--lines", line.newest, what)->expected(0, 1)->default_str("10")->type_name("N");
}

void addListOptions(CLI::App& command, CommandLine& line) {
    addNewest(command, line, "only the newest N records (10 when N is left out)");
    command
        .add_option("-S,--since", line.since,
                    "only records since a time: \"2026-11-22 10:00\" (local, UTC with a Z\n"
                    "behind it), 10:00, today, yesterday, \"10 min ago\", -10min, @SECONDS")
        ->type_name("TIME");
    addFormat(command, line);
}

int runList(CommandLine const& line, zelq::Output& output) {
    zelq::LogListOptions options;
    options.json = line.format == "json";
    if (!line.newest.empty()) {
        options.newest = parseNewest(line.newest);
    }
    if (!line.since.empty()) {
        options.sinceUs = parseSince(line.since);
    }
    return zelq::listLogs(options, output);
}

int runShow(CommandLine const& line, zelq::Output& output) {
    zelq::LogShowOptions options;
    options.json = line.format == "json";
    options.full = line.full;
    return zelq::showLog(parseId(line.id), options, output);
}

// Following begins with ten lines, so that the screen shows where it starts.
int runTrace(CommandLine const& line, zelq::Output& output) {
    zelq::TraceOptions options;
    options.json = line.format == "json";
    options.follow = line.follow;
    options.filter.pid = line.pid;
    options.filter.tid = line.tid;
    options.filter.handle = line.handle;
    if (!line.newest.empty()) {
        options.newest = parseNewest(line.newest);
    } else if (line.follow) {
        options.newest = 10;
    }
    return zelq::printTrace(options, output);
}

// A failed write counts more than anything else: what was not shown may be anything. A reader who
// has seen enough and closed the pipe needs no message.
int finish(zelq::Output& output, int status) {
    if (output.flush()) {
        return status;
    }
    if (output.failure() != EPIPE) {
        zelq::complain(std::string("cannot write to standard output: ") + std::strerror(output.failure()));
    }
    return zelq::exitFailed;
}

int usageError(std::string message) {
    message[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(message[0])));
    zelq::complain(message);
    zelq::complain("see 'zelq --help'");
    return zelq::exitUsage;
}

int run(int argc, char** argv) {
    CommandLine line;
    CLI::App app("Shows the error logs and the trace of this user's programs.", "zelq");
    app.set_version_flag("--version", "zelq " ZELQ_VERSION);
    app.fallthrough();
    app.require_subcommand(0, 1);
    std::map<std::string, zelq::ColourMode> const colours = {{"auto", zelq::ColourMode::automatic},
                                                             {"always", zelq::ColourMode::always},
                                                             {"never", zelq::ColourMode::never}};
    app.add_option("--color", line.colour, "auto (on a terminal, unless NO_COLOR is set), always, never")
        ->transform(CLI::Transformer(colours, CLI::ignore_case).description(""))
        ->type_name("WHEN");
    app.add_flag("--no-pager", "accepted and without effect: there is no pager");
    app.footer(
        "Without a command, lists the error logs. Times are shown in UTC.\n"
        "Reads ZELQ_DIR, or else the store in /var/log/zelq (root) or ~/.local/state/zelq\n"
        "and the trace in /dev/shm/zelq-UID.\n"
        "Exit status: 0 fine, 1 nothing there or nothing matched, 2 usage, 3 damaged input\n"
        "(the rest was shown), 4 folder refused, output failed or out of memory.");

    CLI::App& log = *app.add_subcommand("log", "error logs; without a command of its own, lists them");
    log.require_subcommand(0, 1);
    addListOptions(log, line);
    CLI::App& list = *log.add_subcommand("list", "one line for each log, the newest last");
    addListOptions(list, line);
    CLI::App& show = *log.add_subcommand("show", "everything about one log");
    show.add_option("ID", line.id, "the log's id or how it begins; without one, the newest log")->type_name("");
    show.add_flag("--full", line.full, "whole traces, which are folded to their last 10 lines otherwise");
    addFormat(show, line);

    CLI::App& trace = *app.add_subcommand("trace", "trace lines, oldest first");
    addNewest(trace, line, "only the newest N lines (10 when N is left out)");
    trace.add_flag("-f,--follow", line.follow, "begin with the newest 10 lines, then show new ones as they come");
    trace.add_option("--pid", line.pid, "only lines of this process")->type_name("PID");
    trace.add_option("--tid", line.tid, "only lines of this thread")->type_name("TID");
    trace.add_option("--handle", line.handle, "only lines of this trace; 0 is the default one")->type_name("NUMBER");
    addFormat(trace, line);

    try {
        app.parse(argc, argv);
        if (show.parsed() && (log.count("-n") > 0 || log.count("-S") > 0)) {
            // The parser gives what 'show' does not know to 'log', which does.
            throw UsageError{"-n and --since belong to 'log list'"};
        }
        zelq::Output output(line.colour);
        int const status = show.parsed()    ? runShow(line, output)
                           : trace.parsed() ? runTrace(line, output)
                                            : runList(line, output);
        return finish(output, status);
    } catch (CLI::Success const& help) {
        zelq::Output output(zelq::ColourMode::never);
        std::ostringstream text;
        app.exit(help, text, text);
        output.print(text.str());
        return finish(output, zelq::exitFine);
    } catch (CLI::ParseError const& error) {
        return usageError(error.what());
    } catch (UsageError const& error) {
        return usageError(error.message);
    }
}

}  // namespace

// Any other exception is a fault of the program itself, and ends it.
// NOLINTNEXTLINE(bugprone-exception-escape)
int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);  // a closed pipe becomes a failed write, which finish() judges
    try {
        return run(argc, argv);
    } catch (std::bad_alloc const&) {
        std::fputs("zelq: out of memory\n", stderr);
        return zelq::exitFailed;
    }
}
