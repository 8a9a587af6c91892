#include "tools/block/command.h"

#include <fcntl.h>
#include <unistd.h>
#include <cerrno>
#include <cstring>
#include <memory>

#include <CLI/CLI.hpp>

#include "common/systemcalls.h"
#include "tools/block/hextext.h"

namespace zelq {
namespace {

// All of it is in memory at once. A program of 32 bits hardly builds a larger block.
constexpr std::size_t inputMax = std::size_t{64} << 20;

/// Reads the whole input, which complaints call `name`.
std::string readInput(std::string const& file, std::string const& name) {
    int const opened = file == "-" ? dup(STDIN_FILENO) : open(file.c_str(), O_RDONLY | O_CLOEXEC);
    Descriptor const descriptor(opened);
    std::string input;
    ssize_t count = opened < 0 ? -1 : 1;
    while (count > 0 && input.size() <= inputMax) {
        char buffer[64 * 1024];
        count = uninterrupted([&] { return read(opened, buffer, sizeof buffer); });
        input.append(buffer, count > 0 ? static_cast<std::size_t>(count) : 0);
    }
    if (count < 0) {
        throw Failure{exitFailed, "cannot read " + name + ": " + std::strerror(errno)};
    }
    if (input.size() > inputMax) {
        throw Failure{exitFailed, name + " has more than 64 MiB, which is more than this command reads"};
    }
    return input;
}

}  // namespace

ExitStatus showBlocks(BlockOptions const& options, Output& output) {
    std::string const name = options.file == "-" ? "standard input" : "'" + options.file + "'";
    std::string input = readInput(options.file, name);
    if (options.hex || (!options.raw && isPlainText(input))) {
        HexText dump = parseHexText(input, inputMax);
        if (!dump.fault.empty()) {
            throw Failure{exitDamaged,
                          name + " is no hex dump" + (options.hex ? "" : ", though it is text") + ": " + dump.fault};
        }
        input.swap(dump.bytes);
    }
    if (input.empty()) {
        throw Failure{exitNothing, name + " is empty"};
    }
    BlockFaults const faults = options.json ? printBlockJson(input, output) : printBlockTree(input, options, output);
    if (faults.count == 0) {
        return exitFine;
    }
    output.flush();
    complain(name + " is damaged " + faults.first +
             (faults.count == 1 ? "" : " (and " + std::to_string(faults.count - 1) + " more)"));
    return exitDamaged;
}

Command addBlockCommand(CLI::App& app) {
    CLI::App& block = *app.add_subcommand("block", "what a binary block holds, as a tree");
    auto const options = std::make_shared<BlockOptions>();
    block.add_option("FILE", options->file, "the file; standard input without one or with -")->type_name("");
    block.add_flag("--offsets", options->offsets, "before each line, where in the block it is from");
    block.add_flag("--full", options->full, "long data and traces, which are folded otherwise");
    CLI::Option* const raw = block.add_flag("--raw", options->raw, "the file is the block, byte for byte");
    block.add_flag("--hex", options->hex, "the file is a hex dump")->excludes(raw);
    addFormat(block, "short, for people, or json, one object per block", {"short", "json"},
              [options](std::string const& name) { options->json = name == "json"; });
    block.footer(
        "A file of printable ASCII is taken for a hex dump, any other for the block\n"
        "itself: a block is never text, since its header has control bytes. A hex dump is\n"
        "words of two digits a byte, or lines with offsets as from xxd, hexdump -C and\n"
        "dumps in the trace. Several blocks may follow each other. More than 64 MiB are\n"
        "refused.\n"
        "With -o json no byte is lost: an object stands for its header (size, type,\n"
        "format; little-endian), then the bytes of \"hex\", of \"children\" and of \"rest\".\n"
        "Exit status 3: something is damaged; what could be read was shown.");
    return {&block, [options](Output& output) { return showBlocks(*options, output); }};
}

}  // namespace zelq
