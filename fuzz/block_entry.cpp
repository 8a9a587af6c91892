// What `zelq block` makes of a file.
//
// Input: what is in the file, taken as bytes and as text.

#include <set>

#include "entry.h"
#include "support/failingnew.h"
#include "support/jsonblocks.h"
#include "support/sampleblocks.h"
#include "surroundings.h"
#include "tools/block/command.h"
#include "tools/block/hextext.h"
#include "tools/block/layout.h"

NoFailingNew::NoFailingNew() = default;
NoFailingNew::~NoFailingNew() = default;

namespace {

constexpr std::size_t bytesMost = 1U << 20;

// As JSON, no byte is lost.
void checkJson(std::string input, Printed& printed) {
    zelq::Output output(zelq::ColourMode::never, zelq::Paging::never);
    printBlockJson(input, output);
    require(output.flush(), "the output failed");
    require(bytesOfJsonLines(printed.take()) == input, "the JSON stands for other bytes");
}

void checkTree(std::string input, bool isLong, Printed& printed) {
    zelq::Output output(zelq::ColourMode::never, zelq::Paging::never);
    zelq::BlockOptions options;
    options.offsets = options.full = isLong;
    printBlockTree(input, options, output);
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
    zelq::HexText const read = zelq::parseHexText(text, bytesMost);
    if (!read.fault.empty()) {
        fail(read.fault + " in a good dump");
    }
    require(read.bytes == bytes, "a dump stands for other bytes");
    require(bytes.empty() || !zelq::parseHexText(text, bytes.size() - 1).fault.empty(), "read more than was asked for");
}

// A class that has a block form is known to the viewer, and to the tests that damage blocks.
void requireSamplesOfWhatIsKnown() {
    std::set<std::string> known;
    for (BlockLayout const& layout : zelq::blockLayouts()) {
        known.insert(layout.name);
    }
    std::set<std::string> sampled(std::begin(classNames), std::end(classNames));
    sampled.insert("locationBlock");  // nothing on its own
    require(known == sampled, "the viewer knows other classes than there are samples of");
}

}  // namespace

std::vector<std::string> seeds() {
    requireSamplesOfWhatIsKnown();
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
    zelq::isPlainText(input);
    zelq::HexText const text = zelq::parseHexText(input, bytesMost);
    if (text.fault.empty()) {
        require(text.bytes.size() <= bytesMost, "more bytes than were asked for");
        requireReadAs(dump(text.bytes, 16, ": "), text.bytes);
    }
    return 0;
}
