// Damaged blocks: one trace line tells what is wrong, what can be read is read, nothing beyond the
// block is touched.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "block/blockcursor.h"
#include "support/sampleblocks.h"

namespace {

char const emptyItem[] = "1A 00 00 00 05 80 01 00 0A 00 00 00 00 00 01 00 00 00 08 00 00 00 01 00 01 00";
char const emptyLog[] =
    "32 00 00 00 02 80 01 00 18 00 00 00 00 00 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
    "09 00 00 00 01 00 01 00 00 09 00 00 00 03 00 01 00 00";

char const emptyRefcode[] = "18 00 00 00 03 00 01 00 10 00 00 00 00 00 01 00 00 00 00 00 00 00 00 00";

TEST(BadBlock, IsReportedInOneLine) {
    std::string const base = "18000000 0000 0100 11 22 0403 00010000 00000000 00000000";
    std::string const event = "0A000000 0100 0100 45 00";
    std::string const innerLog = "08000000 0280 0100";
    std::string const text = "0A000000 0100 0100 54 00";
    struct {
        Kind kind;
        std::string block;
        char const* line;
        std::string result;  // a part of the rebuilt object's block
    } const cases[] = {
        // no block at all
        {logData, "", "XLIBLGDF: Invalid data pointer: 0x00000000", emptyItem},
        {microcodeLogData, "", "XLIBLGDF: Invalid data pointer: 0x00000000", emptyItem},
        {log, "", "XLIBLOGF: Invalid data pointer: 0x00000000", emptyLog},
        {refcode, "", "XLIBMLGF: Invalid data pointer: 0x00000000", emptyRefcode},
        {microcodeLog, "", "XLIBLOGF: Invalid data pointer: 0x00000000", emptyLog},
        {endMicrocodeLog, "", "XLIBLOGF: Invalid data pointer: 0x00000000", emptyLog},
        // headers of the whole block
        {logData, "..0680 0100", "XLIBLGDF: Invalid data type (got 32774, expecting 0x8005)", emptyItem},
        {logData, "..0580 0200", "XLIBLGDF: Invalid data format (got 2, expecting 1)", emptyItem},
        {logData, "07000000 0580 0100", "XLIBLGDF: Invalid data size (got 7, expecting at least 8)", emptyItem},
        {logData, "00000000 0580 0100", "XLIBLGDF: Invalid data size (got 0, expecting at least 8)", emptyItem},
        {log, "..0180 0100", "XLIBLOGF: Invalid data type (got 32769, expecting 0x8002)", emptyLog},
        {log, "..0280 0200", "XLIBLOGF: Invalid data format (got 2, expecting 1)", emptyLog},
        {log, "04000000 0280 0100", "XLIBLOGF: Invalid data size (got 4, expecting at least 8)", emptyLog},
        // children of wrong format or type
        {logData, "..0580 0100 0A000000 0000 0200 0700 0900000001000100 AA",
         "XLIBLGDF: Invalid baseBlock data format (got 2, expecting 1)", "00 00 09 00 00 00 01 00 01 00 AA"},
        {logData, "..0580 0100 0A000000 0000 0100 0700 0900000001000300 AA",
         "XLIBLGDF: Invalid dataBlock data format (got 3, expecting 1)", "07 00 08 00 00 00 01 00 01 00"},
        {logData, "..0580 0100 08000000 AB00 0100 0A000000 0000 0100 0700", "XLIBLGDF: Unknown data type (0xAB)",
         "07 00 08 00 00 00 01 00 01 00"},
        {log, "..0280 0100 18000000 0000 0300 11 22 0403 00010000 00000000 00000000" + event,
         "XLIBLOGF: Invalid baseBlock data format (got 3, expecting 1)", "0A 00 00 00 01 00 01 00 45 00"},
        {log, "..0280 0100" + base + "0A000000 0100 0900 45 00",
         "XLIBLOGF: Invalid eventNameBlock data format (got 9, expecting 1)", "01 00 11 22 04 03 00 01"},
        {log, "..0280 0100" + base + "0A000000 0300 0900 45 00" + event,
         "XLIBLOGF: Invalid logIdBlock data format (got 9, expecting 1)", "0A 00 00 00 01 00 01 00 45 00"},
        {log, "..0280 0100" + base + "0A000000 0200 0100 45 00" + event, "XLIBLOGF: Unknown data type (0x2)",
         "0A 00 00 00 01 00 01 00 45 00"},
        // children that do not fit
        {logData, "..0580 0100 0A000000 0000 0100 0700 0A00000001000100 AA",
         "XLIBLGDF: Invalid dataBlock data size (got 10 at offset 18, expecting 8 to 9)", "07 00 08 00 00 00"},
        {logData, "..0580 0100 07000000 0000 0100 0700",
         "XLIBLGDF: Invalid baseBlock data size (got 7 at offset 8, expecting 8 to 10)", emptyItem},
        {logData, "..0580 0100 00000000 AB00 0100",
         "XLIBLGDF: Invalid child data size (got 0 at offset 8, expecting 8 to 8)", emptyItem},
        {logData, "..0580 0100 0A000000 0000 0100 0700 08000000010001",
         "XLIBLGDF: Invalid data end (got 7 bytes at offset 18, expecting a header of 8)", "07 00 08 00 00 00"},
        {log, "..0280 0100" + event + "FFFFFFFF 0580 0100 0000",
         "XLIBLOGF: Invalid XLogData data size (got 4294967295 at offset 18, expecting 8 to 10)",
         "0A 00 00 00 01 00 01 00 45 00"},
        // bodies that are too short
        {logData, "..0580 0100 09000000 0000 0100 07 0900000001000100 AA",
         "XLIBLGDF: Invalid baseBlock data size (got 9, expecting at least 10)", "09 00 00 00 01 00 01 00 AA"},
        {log, "..0280 0100 17000000 0000 0100 11 22 0403 00010000 00000000 000000" + event,
         "XLIBLOGF: Invalid baseBlock data size (got 23, expecting at least 24)", "0A 00 00 00 01 00 01 00 45 00"},
        {log, "..0280 0100 0A000000 0300 0100 49 44" + event,
         "XLIBLOGF: Invalid logIdBlock data (no zero byte in 2 bytes)", "0B 00 00 00 03 00 01 00 49 44 00"},
        // damage inside an item costs that item's part only
        {log, "..0280 0100 13000000 0580 0100 0A000000 0000 0100 0700 FF" + event,
         "XLIBLGDF: Invalid data end (got 1 bytes at offset 18, expecting a header of 8)",
         "0A 00 00 00 01 00 01 00 45 00"},
        {log, "..0280 0100 08000000 0580 0300" + event, "XLIBLGDF: Invalid data format (got 3, expecting 1)",
         emptyItem},
        // the microcode item: what is inside is read whatever is outside
        {microcodeLogData, "..0780 0100 12000000 0580 0100 0A000000 0000 0100 0101",
         "XLIBMLDT: Invalid data type (got 32775, expecting32774)", "01 01 08 00 00 00 01 00 01 00"},
        {microcodeLogData, "..0680 0500 12000000 0580 0100 0A000000 0000 0100 0101",
         "XLIBMLDT: Invalid data format (got 5, expecting 1)", "01 01 08 00 00 00 01 00 01 00"},
        {microcodeLogData, "..0680 0100", "XLIBLGDF: Invalid data pointer: 0x00000000", emptyItem},
        {microcodeLogData, "..0680 0100 00000000 0580 0100", "XLIBLGDF: Invalid data pointer: 0x00000000", emptyItem},
        // secondary reference codes
        {refcode, "..0380 0100", "XLIBMLGF: Invalid data type (got 32771, expecting 0x3)", emptyRefcode},
        {refcode, "..0300 0200", "XLIBMLGF: Invalid data format (got 2, expecting 1)", emptyRefcode},
        {refcode, "..0300 0100 08000000 0100 0100", "XLIBMLGF: Unknown data type (0x1)", emptyRefcode},
        {refcode, "..0300 0100 10000000 0000 0300 0ADE3000 78563412",
         "XLIBMLGF: Invalid baseBlock data format (got 3, expecting 1)", emptyRefcode},
        {refcode, "..0300 0100 0F000000 0000 0100 0ADE3000 785634",
         "XLIBMLGF: Invalid baseBlock data size (got 15, expecting at least 16)", emptyRefcode},
        // microcode logs
        {microcodeLog, "..0380 0100" + innerLog + "12000000 0000 0200 3000 78563412 01000000" + text,
         "XLIBMLGF: Invalid baseBlock data format (got 2, expecting 1)", "0A 00 00 00 01 00 01 00 54 00"},
        {microcodeLog, "..0380 0100" + innerLog + "11000000 0000 0100 3000 78563412 010000" + text,
         "XLIBMLGF: Invalid baseBlock data size (got 17, expecting at least 18)", "0A 00 00 00 01 00 01 00 54 00"},
        {microcodeLog, "..0380 0100" + innerLog + "0A000000 0100 0700 54 00",
         "XLIBMLGF: Invalid textBlock data format (got 7, expecting 1)", "09 00 00 00 01 00 01 00 00"},
        {microcodeLog, "..0380 0100" + innerLog + "0A000000 0200 0700 54 00" + text,
         "XLIBMLGF: Invalid backtraceBlock data format (got 7, expecting 1)", "0A 00 00 00 01 00 01 00 54 00"},
        {microcodeLog, "..0380 0100" + innerLog + "0A000000 0200 0100 54 55" + text,
         "XLIBMLGF: Invalid backtraceBlock data (no zero byte in 2 bytes)", "0B 00 00 00 02 00 01 00 54 55 00"},
        {microcodeLog, "..0380 0100" + innerLog + "08000000 0400 0100" + text, "XLIBMLGF: Unknown data type (0x4)",
         "0A 00 00 00 01 00 01 00 54 00"},
        {microcodeLog, "..0380 0100" + innerLog + "08000000 0300 0500" + text,
         "XLIBMLGF: Invalid data format (got 5, expecting 1)", emptyRefcode},
        {microcodeLog, "..0380 0100" + text, "XLIBLOGF: Invalid data pointer: 0x00000000", emptyLog},
        {microcodeLog, "..0380 0100" + innerLog + "07000000 0100 0100" + text,
         "XLIBMLGF: Invalid textBlock data size (got 7 at offset 16, expecting 8 to 18)", "09 00 00 00 01 00 01 00 00"},
        {microcodeLog, "..0480 0900 12000000 0000 0100 3000 78563412 01000000" + text + "..0280 0100" + event,
         "XLIBMLGF: Invalid data type (got 32772, expecting 0x8003)",
         "00 00 00 00 00 00 00 00 00 09 00 00 00 01 00 01 00 00"},
        {microcodeLog, "..0480 0900..0280 0100" + event, "XLIBMLGF: Invalid data type (got 32772, expecting 0x8003)",
         "0A 00 00 00 01 00 01 00 45 00"},
        {microcodeLog, "..0380 0900" + text + "..0280 0100" + event,
         "XLIBMLGF: Invalid data format (got 9, expecting 1)", "0A 00 00 00 01 00 01 00 45 00"},
        {endMicrocodeLog, "..0580 0100..0380 0100" + innerLog + text,
         "XLIBEMLF: Invalid data type (got 32773, expecting 0x8004)", "0A 00 00 00 01 00 01 00 54 00"},
        {endMicrocodeLog, "..0480 0200..0380 0100" + innerLog + text,
         "XLIBEMLF: Invalid data format (got 2, expecting 1)", "0A 00 00 00 01 00 01 00 54 00"},
        {endMicrocodeLog, "..0480 0100", "XLIBLOGF: Invalid data pointer: 0x00000000", emptyLog},
    };
    for (auto const& c : cases) {
        GuardedBlock const block(withSizes(c.block));
        clearTrace();
        Block const again = rewritten(c.kind, c.block.empty() ? nullptr : block.get());
        EXPECT_EQ(reportedLines(), std::vector<std::string>{c.line});
        EXPECT_NE(toHex(again).find(c.result), std::string::npos) << c.line << "\n" << toHex(again);
    }
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
