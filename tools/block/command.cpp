#include "tools/block/command.h"

#include <fcntl.h>
#include <unistd.h>
#include <cerrno>
#include <cstring>

#include "common/systemcalls.h"
#include "tools/block/hextext.h"
#include "tools/block/printer.h"

namespace zelq {
namespace {

// All of it is in memory at once. A program of 32 bits hardly builds a larger block.
constexpr std::size_t inputMax = std::size_t{64} << 20;

/// Reads the whole input, or says why not. Returns false then.
bool readInput(std::string const& file, std::string const& name, std::string* input) {
    int const descriptor = file == "-" ? STDIN_FILENO : open(file.c_str(), O_RDONLY | O_CLOEXEC);
    ssize_t count = descriptor < 0 ? -1 : 1;
    while (count > 0 && input->size() <= inputMax) {
        char buffer[64 * 1024];
        count = uninterrupted([&] { return read(descriptor, buffer, sizeof buffer); });
        input->append(buffer, count > 0 ? static_cast<std::size_t>(count) : 0);
    }
    if (count < 0) {
        complain("cannot read " + name + ": " + std::strerror(errno));
    } else if (input->size() > inputMax) {
        complain(name + " has more than 64 MiB, which is more than this command reads");
    }
    if (descriptor > STDIN_FILENO) {
        close(descriptor);
    }
    return count >= 0 && input->size() <= inputMax;
}

}  // namespace

int showBlocks(BlockOptions const& options, Output& output) {
    std::string const name = options.file == "-" ? "standard input" : "'" + options.file + "'";
    std::string input;
    if (!readInput(options.file, name, &input)) {
        return exitFailed;
    }
    bool const isHex = options.hex || (!options.raw && isPlainText(input));
    if (isHex) {
        std::string bytes;
        if (std::string const reason = parseHexText(input, inputMax, &bytes); !reason.empty()) {
            complain(name + " is no hex dump" + (options.hex ? "" : ", though it is text") + ": " + reason);
            return exitDamaged;
        }
        input.swap(bytes);
    }
    if (input.empty()) {
        complain(name + " is empty");
        return exitNothing;
    }
    BlockFaults const faults =
        options.json ? printBlockJson(input, output) : printBlockTree(input, {options.offsets, options.full}, output);
    if (faults.count == 0) {
        return exitFine;
    }
    output.flush();
    complain(name + " is damaged " + faults.first +
             (faults.count == 1 ? "" : " (and " + std::to_string(faults.count - 1) + " more)"));
    return exitDamaged;
}

}  // namespace zelq
