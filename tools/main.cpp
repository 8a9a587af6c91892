// zelq: chooses the command and turns whatever ends it into messages and an exit status.

#include <cctype>
#include <csignal>
#include <cstdio>
#include <map>
#include <new>
#include <optional>
#include <sstream>
#include <string>

#include <CLI/CLI.hpp>

#include "tools/block/command.h"
#include "tools/log/command.h"
#include "tools/trace/command.h"

namespace {

void addGeneralOptions(CLI::App& app, zelq::ColourMode& colour, bool& noPager) {
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
}

/// "zelq log show", when that was given.
std::string givenCommand(CLI::App const& app) {
    std::string command = app.get_name();
    for (CLI::App const* at = &app; !at->get_subcommands().empty();) {
        at = at->get_subcommands().front();
        command += " " + at->get_name();
    }
    return command;
}

zelq::ExitStatus showHelp(CLI::App const& app, CLI::Success const& wish) {
    zelq::Output output(zelq::ColourMode::never, zelq::Paging::never);
    std::ostringstream text;
    app.exit(wish, text, text);
    output.raw(text.str());
    output.close();
    return zelq::exitFine;
}

zelq::ExitStatus run(CLI::App& app, int argc, char** argv) {
    zelq::ColourMode colour = zelq::ColourMode::automatic;
    bool noPager = false;
    addGeneralOptions(app, colour, noPager);
    zelq::Command const commands[] = {zelq::addLogCommand(app), zelq::addTraceCommand(app), zelq::addBlockCommand(app)};
    try {
        app.parse(argc, argv);
    } catch (CLI::Success const& wish) {
        return showHelp(app, wish);
    } catch (CLI::ParseError const& error) {
        std::string message = error.what();
        message[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(message[0])));
        throw zelq::Failure{zelq::exitUsage, message};
    }
    zelq::Command const* chosen = &commands[0];
    for (zelq::Command const& command : commands) {
        chosen = command.parser->parsed() ? &command : chosen;
    }
    zelq::Output output(colour, noPager ? zelq::Paging::never : zelq::Paging::automatic);
    try {
        zelq::ExitStatus const status = chosen->run(output);
        output.close();
        return status;
    } catch (zelq::Failure const&) {
        output.finish();  // what was printed before comes before the complaint
        throw;
    }
}

}  // namespace

// Any other exception is a fault of the program itself, and ends it.
// NOLINTNEXTLINE(bugprone-exception-escape)
int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);  // a closed pipe becomes a failed write, which Output::close() judges
    try {
        CLI::App app("Shows the error logs and the trace of this user's programs.", "zelq");
        try {
            return run(app, argc, argv);
        } catch (zelq::Failure const& failure) {
            if (!failure.message.empty()) {
                zelq::complain(failure.message);
            }
            if (failure.status == zelq::exitUsage) {
                zelq::complain("see '" + givenCommand(app) + " --help'");
            }
            return failure.status;
        }
    } catch (std::bad_alloc const&) {
        std::fputs("zelq: out of memory\n", stderr);
        return zelq::exitFailed;
    }
}
