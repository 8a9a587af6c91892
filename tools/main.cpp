// The command line of zelq. What the commands do stands in logcommands.h and tracecommand.h.

#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <new>
#include <optional>
#include <sstream>
#include <string>

#include <CLI/CLI.hpp>

#include "tools/block/command.h"
#include "tools/commandline/arguments.h"
#include "tools/commandline/logcommandline.h"
#include "tools/terminal/output.h"
#include "tools/trace/command.h"

namespace {

/// What the options of `trace` say.
struct TraceCommandLine {
    std::string newest;
    std::string format = "short";
    bool follow = false;
    std::optional<std::uint32_t> pid;
    std::optional<std::uint32_t> tid;
    std::optional<std::uint32_t> handle;
};

CLI::App& addTrace(CLI::App& app, TraceCommandLine& line) {
    CLI::App& trace = *app.add_subcommand("trace", "trace lines, oldest first");
    trace.add_option("-n,--lines", line.newest, "only the newest N lines (10 when N is left out)")
        ->expected(0, 1)
        ->default_str("10")
        ->type_name("N");
    trace.add_flag("-f,--follow", line.follow, "begin with the newest 10 lines, then show new ones");
    trace.add_option("--pid", line.pid, "only lines of this process")->type_name("PID");
    trace.add_option("--tid", line.tid, "only lines of this thread")->type_name("TID");
    trace.add_option("--handle", line.handle, "only lines of this trace; 0 is the default one")->type_name("NUMBER");
    trace.add_option("-o,--output", line.format, "short, for people, or json, one object per line")
        ->check(CLI::IsMember({"short", "json"}).description(""))
        ->type_name("FORMAT");
    return trace;
}

/// What the options of `block` say.
struct BlockCommandLine {
    zelq::BlockOptions options;
    std::string format = "short";
};

CLI::App& addBlock(CLI::App& app, BlockCommandLine& line) {
    CLI::App& block = *app.add_subcommand("block", "what a binary block holds, as a tree");
    block.add_option("FILE", line.options.file, "the file; standard input without one or with -")->type_name("");
    block.add_flag("--offsets", line.options.offsets, "before each line, where in the block it is from");
    block.add_flag("--full", line.options.full, "long data and traces, which are folded otherwise");
    CLI::Option* const raw = block.add_flag("--raw", line.options.raw, "the file is the block, byte for byte");
    block.add_flag("--hex", line.options.hex, "the file is a hex dump")->excludes(raw);
    block.add_option("-o,--output", line.format, "short, for people, or json, one object per block")
        ->check(CLI::IsMember({"short", "json"}).description(""))
        ->type_name("FORMAT");
    block.footer(
        "A file of printable ASCII is taken for a hex dump, any other for the block\n"
        "itself: a block is never text, since its header has control bytes. A hex dump is\n"
        "words of two digits a byte, or lines with offsets as from xxd, hexdump -C and\n"
        "dumps in the trace. Several blocks may follow each other. More than 64 MiB are\n"
        "refused.\n"
        "With -o json no byte is lost: an object stands for its header (size, type,\n"
        "format; little-endian), then the bytes of \"hex\", of \"children\" and of \"rest\".\n"
        "Exit status 3: something is damaged; what could be read was shown.");
    return block;
}

int runBlock(BlockCommandLine const& line, zelq::Output& output) {
    zelq::BlockOptions options = line.options;
    options.json = line.format == "json";
    return zelq::showBlocks(options, output);
}

// Following begins with ten lines, so that the screen shows where it starts.
int runTrace(TraceCommandLine const& line, zelq::Output& output) {
    zelq::TraceOptions options;
    options.json = line.format == "json";
    options.follow = line.follow;
    options.filter.pid = line.pid;
    options.filter.tid = line.tid;
    options.filter.handle = line.handle;
    if (!line.newest.empty()) {
        options.newest = zelq::parseNewest(line.newest);
    } else if (line.follow) {
        options.newest = 10;
    }
    return zelq::printTrace(options, output);
}

int usageError(CLI::App const& app, std::string message) {
    message[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(message[0])));
    zelq::complain(message);
    std::string command = app.get_name();
    for (CLI::App const* at = &app; !at->get_subcommands().empty();) {
        at = at->get_subcommands().front();
        command += " " + at->get_name();
    }
    zelq::complain("see '" + command + " --help'");
    return zelq::exitUsage;
}

int run(int argc, char** argv) {
    zelq::ColourMode colour = zelq::ColourMode::automatic;
    bool noPager = false;
    CLI::App app("Shows the error logs and the trace of this user's programs.", "zelq");
    app.set_version_flag("--version", "zelq " ZELQ_VERSION);
    app.fallthrough();
    app.get_formatter()->column_width(22);  // help fits into 80 columns
    app.require_subcommand(0, 1);
    std::map<std::string, zelq::ColourMode> const colours = {{"auto", zelq::ColourMode::automatic},
                                                             {"always", zelq::ColourMode::always},
                                                             {"never", zelq::ColourMode::never}};
    app.add_option("--color", colour, "auto (on a terminal without NO_COLOR), always, never")
        ->transform(CLI::Transformer(colours, CLI::ignore_case).description(""))
        ->type_name("WHEN");
    app.add_flag("--no-pager", noPager, "print to the terminal, not through $ZELQ_PAGER, $PAGER or\nless");
    app.footer(
        "Without a command, lists the error logs. Times are shown in UTC.\n"
        "Reads ZELQ_DIR, or else the store in /var/log/zelq (root) or ~/.local/state/zelq\n"
        "and the trace in /dev/shm/zelq-UID. Everything else stands in zelq(1).\n"
        "Exit status: 0 fine, 1 nothing there or nothing matched, 2 usage, 3 damaged\n"
        "input (the rest was shown), 4 folder refused, output failed or out of memory.");
    zelq::LogCommandLine const log(app);
    TraceCommandLine line;
    CLI::App const& trace = addTrace(app, line);
    BlockCommandLine blockLine;
    CLI::App const& block = addBlock(app, blockLine);

    try {
        app.parse(argc, argv);
        zelq::Output output(colour, noPager ? zelq::Paging::never : zelq::Paging::automatic);
        int const status = trace.parsed()   ? runTrace(line, output)
                           : block.parsed() ? runBlock(blockLine, output)
                                            : log.run(output);
        output.close();
        return status;
    } catch (CLI::Success const& help) {
        zelq::Output output(zelq::ColourMode::never, zelq::Paging::never);
        std::ostringstream text;
        app.exit(help, text, text);
        output.raw(text.str());
        output.close();
        return zelq::exitFine;
    } catch (CLI::ParseError const& error) {
        return usageError(app, error.what());
    } catch (zelq::UsageError const& error) {
        return usageError(app, error.message);
    }
}

}  // namespace

// Any other exception is a fault of the program itself, and ends it.
// NOLINTNEXTLINE(bugprone-exception-escape)
int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);  // a closed pipe becomes a failed write, which finish() judges
    try {
        return run(argc, argv);
    } catch (zelq::Failure const& failure) {
        if (!failure.message.empty()) {
            zelq::complain(failure.message);
        }
        return failure.status;
    } catch (std::bad_alloc const&) {
        std::fputs("zelq: out of memory\n", stderr);
        return zelq::exitFailed;
    }
}
