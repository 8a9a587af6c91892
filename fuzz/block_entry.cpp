// What `zelq block` makes of a file.
//
// Input: what is in the file, taken as bytes and as text.

#include "entry.h"
#include "support/failingnew.h"
#include "support/jsonblocks.h"
#include "support/sampleblocks.h"
#include "surroundings.h"
#include "tools/block/hextext.h"
#include "tools/block/jsonprinter.h"
#include "tools/block/treeprinter.h"

NoFailingNew::NoFailingNew() = default;
NoFailingNew::~NoFailingNew() = default;

namespace {

constexpr std::size_t bytesMost = 1U << 20;

// As JSON, no byte is lost.
void checkJson(std::string input, Printed& printed) {
    zelq::Output output(zelq::ColourMode::never, false);
    zelq::BlockJsonPrinter printer(output);
    walkBlocks(input, printer);
    require(output.flush(), "the output failed");
    require(bytesOfJsonLines(printed.take()) == input, "the JSON stands for other bytes");
}

void checkTree(std::string input, bool isLong, Printed& printed) {
    zelq::Output output(zelq::ColourMode::never, false);
    zelq::BlockTreePrinter printer({isLong, isLong}, input.size(), output);
    walkBlocks(input, printer);
    require(output.flush(), "the output failed");
    requireHarmless(printed.take());
}

// A dump of the bytes, with offsets where the third argument gives a mark to put behind them.
std::string dump(std::string const& bytes, std::size_t row, char const* mark) {
    std::string text;
    for (std::size_t at = 0; at < bytes.size(); at += row) {
        std::string const part = bytes.substr(at, row);
        if (mark != nullptr) {
            text += zelq::hexDigits(at, 8) + mark;
        }
        text += toHex(reinterpret_cast<unsigned char const*>(part.data()), part.size()) + "\n";
    }
    return text;
}

void requireReadAs(std::string const& text, std::string const& bytes) {
    std::string read;
    if (std::string const reason = zelq::parseHexText(text, bytesMost, &read); !reason.empty()) {
        fail(reason + " in a good dump");
    }
    require(read == bytes, "a dump stands for other bytes");
    std::string part;
    require(bytes.empty() || !zelq::parseHexText(text, bytes.size() - 1, &part).empty(),
            "read more than was asked for");
}

}  // namespace

std::vector<std::string> seeds() {
    std::vector<std::string> inputs;
    for (Kind const kind : allKinds) {
        Bytes const block = richBlock(kind);
        inputs.emplace_back(block.begin(), block.end());
    }
    std::string const two = inputs[0] + inputs[1];
    return inputs.insert(inputs.end(), {two, dump(two, 16, nullptr), dump(two, 16, ": "), dump(two, 8, "  ")}), inputs;
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    static Printed printed;
    std::string const input(reinterpret_cast<char const*>(data), size);
    checkJson(input, printed);
    checkTree(input, size % 2 == 0, printed);
    char const* const marks[] = {nullptr, ": ", "  "};
    requireReadAs(dump(input, 16, marks[size % 3]), input);
    std::string bytes;
    zelq::isPlainText(input);
    if (zelq::parseHexText(input, bytesMost, &bytes).empty()) {
        require(bytes.size() <= bytesMost, "more bytes than were asked for");
        requireReadAs(dump(bytes, 16, ": "), bytes);
    }
    return 0;
}
