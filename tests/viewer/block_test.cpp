// zelq block: what it shows of blocks that the library wrote, and of damaged ones.

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "support/jsonblocks.h"
#include "tools/block/command.h"
#include "tools/block/hextext.h"
#include "zelqcood/exception.h"
#include "zelqplatform/errorlog_service.h"

// The backtrace of every log.
int xlog_get_backtrace(char** text, int, int* length) {
    *text = strdup("#0  main\n#1  start");
    *length = static_cast<int>(std::strlen(*text));
    return 0;
}

namespace {

namespace fs = std::filesystem;

std::string contents(fs::path const& path) {
    return {std::istreambuf_iterator<char>(std::ifstream(path, std::ios::binary).rdbuf()), {}};
}

std::string toText(Bytes const& bytes) {
    return std::string(bytes.begin(), bytes.end());
}

std::string toText(unsigned char* block) {
    return toText(toBytes(Block(block)));
}

/// A file in memory: those on disk would be all that the time goes to.
class MemoryFile {
public:
    MemoryFile() : descriptor_(memfd_create("viewer_block_test", MFD_CLOEXEC)) {}
    explicit MemoryFile(std::string const& bytes) : MemoryFile() {
        EXPECT_EQ(write(descriptor_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    ~MemoryFile() { close(descriptor_); }
    int descriptor() const { return descriptor_; }
    std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

private:
    int descriptor_;
};

/// Puts a file in the place of a descriptor for a while.
class Redirected {
public:
    Redirected(int descriptor, MemoryFile const& file) : descriptor_(descriptor), saved_(dup(descriptor)) {
        dup2(file.descriptor(), descriptor);
    }
    ~Redirected() {
        dup2(saved_, descriptor_);
        close(saved_);
    }

private:
    int descriptor_;
    int saved_;
};

class ViewerBlock : public testing::Test {
protected:
    ViewerBlock() {
        char name[] = "/tmp/viewer_block_test.XXXXXX";
        root_ = mkdtemp(name);
        setenv("ZELQ_DIR", root_.c_str(), 1);
    }
    ~ViewerBlock() override { fs::remove_all(root_); }

    /// What the command prints for this input; status_ and complaints_ are set.
    std::string show(std::string const& input, zelq::BlockOptions options = {}) {
        MemoryFile const file(input);
        MemoryFile const out;
        MemoryFile const err;
        options.file = file.path();
        {
            Redirected const toOut(STDOUT_FILENO, out);
            Redirected const toErr(STDERR_FILENO, err);
            zelq::Output output(zelq::ColourMode::never, false);
            status_ = zelq::showBlocks(options, output);
            output.flush();
            std::fflush(stderr);
        }
        complaints_ = contents(err.path());
        return contents(out.path());
    }

    std::string showJson(std::string const& input) {
        zelq::BlockOptions options;
        options.json = true;
        options.raw = true;
        return show(input, options);
    }

    fs::path root_;
    int status_ = -1;
    std::string complaints_;
};

/// Every kind of block inside each other, and another value in every field.
std::string richBlock() {
    XEndMicrocodeLog log(0x22, 0x3344, 0x5566, -2, "EVENT", "two\nlines \x1b[31m",
                         XMicrocodeLog::omitAllTraces | XMicrocodeLog::rebootSystem, 3, "log id");
    log.secondaryRefcodes()->emplace_back(0x77, 0x88, 0x99AA, 0x0BCCDDEE);
    std::string data = std::string("\0\1bytes of an item ", 19) + std::string(60, '\xFF');
    log.addData(XLogData(data.data(), data.size(), 0x1234));
    data = "text of an item";
    log.addData(XMicrocodeLogData(data.data(), data.size(), XMicrocodeLogData::textFormat));
    data = "row 1\nrow 2\nrow 3\nrow 4\nrow 5\nrow 6\nrow 7\nrow 8\nrow 9\nrow 10\nrow 11\n";
    log.addData(XLogData(data.data(), data.size() + 1, 237));
    XException thrown("error text", ZoException::recoverable, 5);
    thrown.setErrorId(0x12345678);
    thrown.addLocation(ZoExceptionLocation("file.cpp", nullptr, 42));
    thrown.setLogInfo(&log);
    return toText(thrown.asBinary());
}

TEST_F(ViewerBlock, showsEveryFieldOfEveryClass) {
    zelq::BlockOptions options;
    options.offsets = true;
    EXPECT_EQ(show(richBlock(), options), contents(EXPECTED_TREE));
    EXPECT_EQ(status_, 0);
    EXPECT_EQ(complaints_, "");
    EXPECT_EQ(show(toText(XTrapException("trap", 1).asBinary())).find("XTrapException  type 0x8001, "), 0U);
}

// Whatever is cut off or wrong, no byte is lost, and the tree is printed to its end.
TEST_F(ViewerBlock, losesNoByteOfDamagedBlocks) {
    std::string const good = richBlock();
    auto const expectWhole = [&](std::string const& input, std::string const& what) {
        EXPECT_EQ(bytesOfJsonLines(showJson(input)), input) << what;
        int const status = status_;
        zelq::BlockOptions raw;
        raw.raw = true;
        show(input, raw);
        EXPECT_EQ(status_, status) << what;
    };
    for (std::size_t size = 0; size < good.size(); ++size) {
        expectWhole(good.substr(0, size), "cut to " + std::to_string(size));
        EXPECT_EQ(status_, size == 0 ? 1 : 3) << size;
        std::string const place = size < 8
                                      ? "at 0x0000: " + std::to_string(size) + " byte"
                                      : "at 0x0000: cut short: " + std::to_string(size) + " of 544 bytes are here\n";
        EXPECT_TRUE(size == 0 || complaints_.find(place) != std::string::npos) << complaints_;
    }
    for (std::size_t at = 0; at < good.size(); ++at) {
        for (char const wrong : {'\0', '\7', '\xFF'}) {
            std::string damaged = good;
            damaged[at] = wrong;
            expectWhole(damaged, std::to_string(wrong) + " at " + std::to_string(at));
        }
    }
    std::string bytes(70000, 'x');
    zelq::BlockOptions options;
    options.offsets = true;
    std::string const large = toText(XLogData(bytes.data(), bytes.size(), 1).asBinary());
    expectWhole(large, "70000 bytes");
    EXPECT_EQ(show(large, options).find("000000  XLogData"), 0U);
    expectWhole(good + good + "abc", "two blocks and 3 bytes");
    EXPECT_NE(complaints_.find("at 0x0440: 3 bytes where a block should begin"), std::string::npos) << complaints_;
}

TEST_F(ViewerBlock, tellsWhatIsUnknownOrDamaged) {
    std::string const item = "12000000 0580 0100 0A000000 0000 0100 0700";
    struct {
        std::string block;
        int status;
        std::string shown;  // a part of it
    } const cases[] = {
        {"..0280 0100 0B000000 7700 0200 AABBCC" + item, 0,
         "  unknown  type 119, 11 bytes, format 2\n"
         "    aa bb cc                                          |...|\n"
         "  XLogData  type 0x8005, 18 bytes\n"},
        {"..0580 0100 0A000000 0000 0100 EE00", 0, "    block id  0x00ee (238, process trace)\n"},
        {"..0580 0100 0A000000 0000 0100 EF00", 0, "    block id  0x00ef (239, system trace)\n"},
        {"..0580 0100 0A000000 0000 0100 F000", 0, "    block id  0x00f0 (240, error id and reason)\n"},
        {"09000000 0190 0100 AA", 0, "unknown  type 0x9001, 9 bytes\n  aa "},
        {item + item, 0, "block id  0x0007 (7)\n\n-- block 2 --\nXLogData "},
        {"..0580 0100 08000000 0280 0100", 0, "  XLog  type 0x8002, 8 bytes, not read in this place\n"},
        {"..0300 0100 12000000 0000 0100 01023000FFFFFFFF AABB", 0,
         "SecondaryRefcodeInfo  type 3, 26 bytes\n  baseBlock  type 0, 18 bytes\n    class         0x01 (1)\n"
         "    type          0x02 (2)\n    error id      0x0030 (48)\n    error reason  0xffffffff (-1)\n    aa bb "},
        {"..0280 0100 0D000000 0100 0100 4100420000", 0, "  eventNameBlock  type 1, 13 bytes\n    A\n    42 00 00 "},
        {"..0280 0100 08000000 0300 0100", 0, "  logIdBlock  type 3, 8 bytes\n    (empty)\n"},
        {"..0280 0100 0A000000 0300 0100 4142", 3, "  -- a text without its zero byte --\n    AB\n"},
        {"..0280 0100 0A000000 0300 0300 4100" + item, 3, "format 3\n    -- format 3, only 1 is known --\n    41 00 "},
        {"..0580 0300 09000000 0000 0100 07", 3,
         "XLogData  type 0x8005, 17 bytes, format 3\n  -- format 3, only 1 is known --\n"
         "  baseBlock  type 0, 9 bytes\n    -- 1 byte of fields, the least is 2 --\n    07 "},
        {"..0280 0100 07000000 0100 0100" + item, 3,
         "  -- a block of size 7, the least is 8 --\n  07 00 00 00 01 00 01 00  12 00 "},
        {"..0280 0100 FFFFFFFF 0580 0100 0A000000 0000 0100 0700", 3,
         "  XLogData  type 0x8005, 4294967295 bytes\n    -- cut short: 18 of 4294967295 bytes are here --\n"
         "    baseBlock  type 0, 10 bytes\n      block id  0x0007 (7)\n"},
        {"..0280 0100" + item + "0102", 3, "  -- 2 bytes where a block should begin, its header has 8 --\n  01 02 "},
        {"..0080 0100" + item, 3, "0x8005, 18 bytes, not read in this place\n"},
        {"..0080 0100", 3, "XException  type 0x8000, 8 bytes\n  -- no XBaseException inside --\n"},
    };
    for (auto const& c : cases) {
        std::string const block = toText(withSizes(c.block));
        std::string const tree = show(block);
        EXPECT_NE(tree.find(c.shown), std::string::npos) << tree << "instead of\n" << c.shown;
        EXPECT_EQ(status_, c.status) << tree << complaints_;
        EXPECT_EQ(bytesOfJsonLines(showJson(block)), block) << tree;
    }
}

TEST_F(ViewerBlock, depthIsBounded) {
    std::string nested;
    for (int i = 0; i < 40; ++i) {
        nested += "..0280 0100";
    }
    std::string const block = toText(withSizes(nested));
    std::string const tree = show(block);
    EXPECT_NE(tree.find("\n" + std::string(2 * 33, ' ') + "-- more than 32 blocks inside each other --\n"),
              std::string::npos)
        << tree;
    EXPECT_EQ(status_, 3);
    EXPECT_EQ(bytesOfJsonLines(showJson(block)), block);
}

TEST_F(ViewerBlock, readsHexDumps) {
    std::string data(70, '\0');
    data[0] = '|';
    data[60] = 'a';
    std::string const block = toText(XLogData(data.data(), data.size(), 0x3130).asBinary());
    zelq::BlockOptions options;
    options.full = true;
    options.raw = true;
    std::string const tree = show(block, options);
    options.raw = false;
    std::ofstream(root_ / "block", std::ios::binary) << block;
    std::string const words = toHex(reinterpret_cast<unsigned char const*>(block.data()), block.size());
    for (std::string const dump : {"xxd", "xxd | sed G", "xxd -p", "xxd -g1 -c40 -u", "xxd -i <", "hexdump -C",
                                   "od -A x -t x1z", "xxd -s 0 | sed 's/^/12:00:01.5 1-1 MYPROG D: a: /'"}) {
        std::size_t const bar = std::min(dump.find(" | "), dump.size());
        std::string const file = " '" + (root_ / "block").string() + "' ";
        std::string const to = " >'" + (root_ / "dump").string() + "'";
        ASSERT_EQ(std::system((dump.substr(0, bar) + file + dump.substr(bar) + to).c_str()), 0);
        EXPECT_EQ(show(contents(root_ / "dump"), options), tree) << contents(root_ / "dump");
        EXPECT_EQ(status_, 0) << complaints_;
    }
    struct {
        char const* text;
        char const* complaint;
    } const refused[] = {
        {"#include <x>", "line 1: '#include' where two hexadecimal digits a byte should be"},
        {"1a000000\n058 001", "line 2: '058' where"},
        {"0000: 1a00  x\n0003: 00", "line 2: offset 0x3 where 0x2 should be"},
        {"0010: 1a00\nmore", "line 2: 'more' where"},
        {"0010: 1a00\n0012: zz", "line 2: 'zz' where"},
        {"0000  1a 00 |\nmore", "line 2: 'more' where"},
        {"0000  1a 00 |\n*", "line 2: no offset behind the '*'"},
        {"0000  1a 00 |\n*\nffffffffff", "line 3: offset 0xffffffffff is too large"},
    };
    for (auto const& c : refused) {
        EXPECT_EQ(show(c.text, options), "");
        EXPECT_NE(complaints_.find(c.complaint), std::string::npos) << complaints_;
        EXPECT_EQ(status_, 3) << c.text;
    }
    std::string bytes;
    EXPECT_EQ(zelq::parseHexText("1a00 " + std::string(3000, ' ') + "\n05", 2, &bytes), "line 2: more than 2 bytes");
}

TEST_F(ViewerBlock, commandLine) {
    std::ofstream(root_ / "block", std::ios::binary) << richBlock();
    std::ofstream(root_ / "text") << "1a 00";
    std::ofstream(root_ / "huge") << "";
    fs::resize_file(root_ / "huge", std::uintmax_t{1} << 30);
    auto const run = [&](std::string const& arguments) {
        std::string const command =
            "cd '" + root_.string() + "' && '" ZELQ_PROGRAM "' block " + arguments + " >out 2>err";
        int const status = std::system(command.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    };
    zelq::BlockOptions options;
    options.offsets = options.full = true;
    std::string const tree = show(richBlock(), options);
    for (char const* const arguments :
         {"--offsets --full block", "--offsets --full <block", "--full - --offsets <block"}) {
        EXPECT_EQ(run(arguments), 0) << arguments;
        EXPECT_EQ(contents(root_ / "out"), tree) << arguments;
    }
    EXPECT_EQ(run("-o json --raw block"), 0);
    EXPECT_EQ(bytesOfJsonLines(contents(root_ / "out")), richBlock());
    EXPECT_EQ(run("--raw text"), 3);
    EXPECT_NE(contents(root_ / "err").find("5 bytes where"), std::string::npos);
    EXPECT_EQ(run("--hex block"), 3);
    EXPECT_EQ(run("--hex --raw block"), 2);
    EXPECT_EQ(run("nothing"), 4);
    EXPECT_EQ(run("huge"), 4);
    EXPECT_EQ(contents(root_ / "err"), "zelq: 'huge' has more than 64 MiB, which is more than this command reads\n");
}

// What the document shows is a real block, and what is printed of it.
TEST_F(ViewerBlock, documentedExample) {
    std::string const document = contents(BLOCK_FORMAT_DOCUMENT);
    auto const fenced = [&](std::string const& begin) {
        std::size_t const start = document.find("```text\n" + begin);
        EXPECT_NE(start, std::string::npos) << begin;
        std::size_t const text = start + 8;
        return start == std::string::npos ? "" : document.substr(text, document.find("```", text) - text);
    };
    zelq::BlockOptions options;
    options.offsets = true;
    std::string const tree = show(fenced("00000000  "), options);
    EXPECT_EQ(tree, fenced("0000  XLog"));
    XLog log(0x01, 0x10, 0x2000, "DISKGONE", XLog::error, "bay 3");
    char text[] = "disk 3 does not answer";
    log.addData(XMicrocodeLogData(text, sizeof text - 1, XMicrocodeLogData::textFormat));
    EXPECT_EQ(show(toText(log.asBinary()), options), tree);
}

}  // namespace
