// zelq block in the test's own process: thousands of damaged blocks are shown, and the sanitizers look on.

#include <gtest/gtest.h>

#include "support/failingnew.h"
#include "support/jsonblocks.h"
#include "support/printed.h"
#include "support/sampleblocks.h"
#include "tools/block/command.h"
#include "tools/block/hextext.h"

// The services in tests/support allow allocations that a test makes fail. None fails here.
NoFailingNew::NoFailingNew() = default;
NoFailingNew::~NoFailingNew() = default;

namespace {

struct Shown {
    int status;
    std::string text;
    std::string complaints;
};

Shown show(std::string const& input, bool asJson) {
    int const file = memfd_create("block", MFD_CLOEXEC);
    EXPECT_EQ(write(file, input.data(), input.size()), static_cast<ssize_t>(input.size()));
    zelq::BlockOptions options;
    options.file = "/proc/self/fd/" + std::to_string(file);
    options.json = asJson;
    options.raw = true;
    Printed out;
    Printed complaints(STDERR_FILENO);
    zelq::Output output(zelq::ColourMode::never, false);
    int const status = zelq::showBlocks(options, output);
    output.flush();
    close(file);
    return {status, out.take(), complaints.take()};
}

// Whatever is cut off or wrong, no byte is lost, and the tree is printed to its end.
Shown expectWhole(std::string const& input, std::string const& what) {
    Shown const json = show(input, true);
    EXPECT_EQ(bytesOfJsonLines(json.text), input) << what;
    EXPECT_EQ(show(input, false).status, json.status) << what;
    return json;
}

TEST(ViewerBlock, losesNoByteOfDamagedBlocks) {
    Bytes const bytes = richBlock(exception);
    std::string const good(bytes.begin(), bytes.end());
    std::string const whole = " of " + std::to_string(good.size()) + " bytes are here\n";
    for (std::size_t size = 0; size < good.size(); ++size) {
        std::string const number = std::to_string(size);
        Shown const shown = expectWhole(good.substr(0, size), "cut to " + number);
        EXPECT_EQ(shown.status, size == 0 ? 1 : 3) << size;
        std::string const place = "at 0x0000: " + (size < 8 ? number + " byte" : "cut short: " + number + whole);
        EXPECT_TRUE(size == 0 || shown.complaints.find(place) != std::string::npos) << shown.complaints;
    }
    for (std::size_t at = 0; at < good.size(); ++at) {
        for (char const wrong : {'\0', '\7', '\xFF'}) {
            std::string damaged = good;
            damaged[at] = wrong;
            expectWhole(damaged, std::to_string(wrong) + " at " + std::to_string(at));
        }
    }
    std::string large(70000, 'x');
    Block const block(XLogData(large.data(), large.size(), 1).asBinary());
    expectWhole({block.get(), block.get() + sizeOf(block.get())}, "70000 bytes");
    expectWhole(good + good + "abc", "two blocks and 3 bytes");
}

TEST(ViewerBlock, readsNoMoreOfADumpThanItIsAskedFor) {
    std::string bytes;
    EXPECT_EQ(zelq::parseHexText("1a00 " + std::string(3000, ' ') + "\n05", 2, &bytes), "line 2: more than 2 bytes");
}

}  // namespace
