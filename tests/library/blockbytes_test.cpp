// The bytes of every class's block, good and damaged. Builds of both widths are held against the same files.

#include <gtest/gtest.h>

#include <climits>
#include <map>
#include <sstream>

#include "block/cursor.h"
#include "support/files.h"
#include "support/sampleblocks.h"

namespace {

/// The blocks of blocks.txt in hexadecimal, by their titles. No title begins with a digit of that.
std::map<std::string, std::string> expectedBlocks() {
    std::map<std::string, std::string> blocks;
    std::istringstream file(contents(EXPECTED_FILES "/blocks.txt"));
    std::string title;
    for (std::string line; std::getline(file, line);) {
        bool const isTitle = line.find_first_of("#Xd") == 0 || line.find("Secondary") == 0;
        title = isTitle ? line : title;
        blocks[title] += isTitle ? "" : line;
    }
    for (auto& [name, hex] : blocks) {
        Bytes const bytes = fromHex(hex);
        hex = toHex(bytes.data(), bytes.size());
    }
    return blocks;
}

Kind kindOf(std::string const& name) {
    auto const* const found = std::find(std::begin(classNames), std::end(classNames), name);
    EXPECT_NE(found, std::end(classNames)) << name;
    return allKinds[found - classNames];
}

std::string hexOf(Bytes const& bytes) {
    return toHex(bytes.data(), bytes.size());
}

// The numbers at their ends, and items beyond the 64 KiB that a narrow size could hold.
Bytes extremeBlock() {
    XEndMicrocodeLog log(0xFF, 0xFEDC, 0xFFFE, INT_MIN, "EVENT", "two\nlines", XMicrocodeLog::omitAllTraces, INT_MIN,
                         "log \xC3\xA4");
    std::string bytes(100001, 'x');
    log.addData(XLogData(bytes.data(), bytes.size(), 0xFFFF));
    log.addData(XMicrocodeLogData(bytes.data(), 70000, XMicrocodeLogData::textFormat)).addData(XLogData());
    log.secondaryRefcodes()->emplace_back(0xFF, 0xFE, 0xFFFD, INT_MAX);
    XException thrown(static_cast<char*>(nullptr), ZoException::unrecoverable, -1);
    thrown.setErrorId(0xFEDCBA98);
    for (unsigned long line = 1; line <= 7; ++line) {
        thrown.addLocation(ZoExceptionLocation("file.cpp", line % 2 == 0 ? nullptr : "function", line << 28));
    }
    thrown.setErrorCodeGroup("group");  // a pointer, which means something in this process alone
    thrown.setLogInfo(&log);
    return toBytes(Block(thrown.asBinary()));
}

TEST(BlockBytes, AreTheSameInEveryBuild) {
    std::map<std::string, std::string> const expected = expectedBlocks();
    for (std::size_t i = 0; i < std::size(allKinds); ++i) {
        Bytes const block = richBlock(allKinds[i]);
        EXPECT_EQ(hexOf(block), expected.at(classNames[i]));
        std::string wrong;
        EXPECT_EQ(hexOf(roundTrip(allKinds[i], block, wrong)), expected.at(classNames[i]));
        EXPECT_EQ(wrong, "") << classNames[i];
    }
    EXPECT_EQ(toHex(Block(XLogData(nullptr, 0, 0).asBinary())), expected.at("default XLogData"));
    EXPECT_EQ(toHex(Block(XLog().asBinary())), expected.at("default XLog"));
    EXPECT_EQ(toHex(Block(XMicrocodeLog::SecondaryRefcodeInfo(0, 0, 0, 0).asBinary())),
              expected.at("default SecondaryRefcodeInfo"));
    Bytes const extreme = extremeBlock();
    std::string wrong;
    EXPECT_EQ(hexOf(roundTrip(exception, extreme, wrong)).size(), hexOf(extreme).size());
    EXPECT_EQ(wrong, "");
    std::uint32_t sum = 0x811C9DC5;  // too long to be shown
    for (std::size_t i = 0; i < extreme.size(); ++i) {
        bool const isPointer = sizeof(void*) == 4 && i >= 28 && i < 32;  // travels between programs of 32 bits alone
        sum = (sum ^ (isPointer ? 0 : extreme[i])) * 0x01000193;
    }
    EXPECT_EQ(sum, 1066227317U);
}

TEST(BadBlock, IsReportedInOneLine) {
    std::map<std::string, std::string> const expected = expectedBlocks();
    std::istringstream file(contents(EXPECTED_FILES "/damage.txt"));
    unsigned cases = 0;
    for (std::string name, hex, line, result; std::getline(file, name);) {
        if (name.empty() || name[0] == '#') {
            continue;
        }
        std::getline(std::getline(std::getline(file, hex), line), result);
        SCOPED_TRACE(name + " " + hex);
        ++cases;
        GuardedBlock const block(hex == "-" ? Bytes() : withSizes(hex));
        clearTrace();
        Block const again = rewritten(kindOf(name), hex == "-" ? nullptr : block.get());
        EXPECT_EQ(reportedLines(), line == "-" ? std::vector<std::string>() : std::vector<std::string>{line});
        std::string const part = expected.count(result) != 0 ? expected.at(result) : result;
        EXPECT_NE(toHex(again).find(part), std::string::npos) << part << "\nis not in\n" << toHex(again);
    }
    EXPECT_GT(cases, 60U);
}

struct Header {
    std::size_t offset;
    std::uint32_t size;
    std::vector<std::size_t> parents;  // their offsets, the outermost one first
};

// All headers of a good block, the outermost one first. Beside whole classes, locations and secondary
// reference codes have children.
std::vector<Header> headersIn(Bytes& block, Header const& parent) {
    std::vector<Header> headers{parent};
    unsigned char* const start = &block[parent.offset];
    std::uint16_t const type = BlockHeader::load(start).type;
    std::uint16_t const outer = parent.parents.empty() ? 0 : BlockHeader::load(&block[parent.parents.back()]).type;
    if (type >= 0x8000 || (type == 2 && outer == 0x8008) || (type == 3 && (outer == 0x8003 || outer == 0))) {
        std::vector<std::size_t> parents = parent.parents;
        parents.push_back(parent.offset);
        BlockCursor cursor(start, parent.size);
        for (BlockChild child; cursor.next(child) == BlockCursor::atChild;) {
            auto const offset = static_cast<std::size_t>(child.start - block.data());
            for (Header const& inner : headersIn(block, {offset, child.header.size, parents})) {
                headers.push_back(inner);
            }
        }
    }
    return headers;
}

void expectSurvived(Kind kind, Bytes const& damaged, char const* what, std::size_t at) {
    std::string wrong;
    roundTrip(kind, damaged, wrong);
    EXPECT_EQ(wrong, "") << "kind " << kind << ", " << what << " at " << at;
}

// The block with something done to its header's bytes, and the parents' sizes as the result needs them.
template <class Edit>
Bytes edited(Bytes block, Header const& header, Edit edit) {
    std::size_t const size = block.size();
    edit(block, block.begin() + static_cast<std::ptrdiff_t>(header.offset));
    for (std::size_t parent : header.parents) {
        BlockHeader outer = BlockHeader::load(&block[parent]);
        outer.size = static_cast<std::uint32_t>(outer.size + block.size() - size);
        outer.store(&block[parent]);
    }
    return block;
}

TEST(BadBlock, EveryHeaderFieldMayBeWrong) {
    for (Kind kind : allKinds) {
        Bytes good = richBlock(kind);
        for (Header const& header : headersIn(good, {0, sizeOf(good.data()), {}})) {
            BlockHeader const right = BlockHeader::load(&good[header.offset]);
            auto const expectHeaderSurvived = [&](BlockHeader wrong, char const* what) {
                Bytes damaged = good;
                wrong.store(&damaged[header.offset]);
                expectSurvived(kind, damaged, what, header.offset);
            };
            for (std::uint32_t size : {0u, 1u, 7u, 8u, 9u, right.size - 1, right.size + 1, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
                if (header.offset != 0 || size <= right.size) {  // the outer size is all that a reader knows
                    expectHeaderSurvived({size, right.type, right.format}, "size");
                }
            }
            for (int change : {-1, 1}) {
                auto const changed = [change](std::uint16_t number) {
                    return static_cast<std::uint16_t>(number + change);
                };
                expectHeaderSurvived({right.size, changed(right.type), right.format}, "type");
                expectHeaderSurvived({right.size, right.type, changed(right.format)}, "format");
            }
        }
    }
}

TEST(BadBlock, EveryChildMayBeMissingDoubledOrElsewhere) {
    for (Kind kind : allKinds) {
        Bytes good = richBlock(kind);
        for (Header const& header : headersIn(good, {0, sizeOf(good.data()), {}})) {
            if (header.parents.empty()) {
                continue;
            }
            auto const size = static_cast<std::ptrdiff_t>(header.size);
            auto const remove = [&](Bytes& block, auto at) { block.erase(at, at + size); };
            auto const repeat = [&](Bytes& block, auto at) {
                Bytes const child(at, at + size);
                block.insert(at, child.begin(), child.end());
            };
            expectSurvived(kind, edited(good, header, remove), "missing", header.offset);
            expectSurvived(kind, edited(good, header, repeat), "doubled", header.offset);
            std::size_t const parent = header.parents.back();
            std::size_t const next = header.offset + header.size;
            if (next < parent + sizeOf(&good[parent])) {
                auto const both = size + static_cast<std::ptrdiff_t>(sizeOf(&good[next]));
                auto const swap = [&](Bytes&, auto at) { std::rotate(at, at + size, at + both); };
                expectSurvived(kind, edited(good, header, swap), "swapped", header.offset);
            }
        }
    }
}

TEST(BadBlock, EveryTruncationIsSurvived) {
    for (Kind kind : allKinds) {
        Bytes const good = richBlock(kind);
        for (std::uint32_t size = 8; size < good.size(); ++size) {
            Bytes damaged(good.data(), good.data() + size);
            std::memcpy(damaged.data(), &size, sizeof size);
            expectSurvived(kind, damaged, "cut", size);
        }
    }
}

}  // namespace
