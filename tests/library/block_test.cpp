#include "zelqcood/block.h"

#include <gtest/gtest.h>

#include "support/failingnew.h"
#include "support/fakeservices.h"
#include "support/hex.h"

namespace {

// A block that stays owned while the append functions replace it.
struct Growing {
    explicit Growing(unsigned short type) : block(createBlock(type, 1)) {}
    ~Growing() { delete[] block; }
    Growing& leaf(unsigned short type, Bytes body, unsigned short format = 1) {
        EXPECT_EQ(addHeaderBlock(&block, static_cast<unsigned>(body.size()), type, format, body.data()), block);
        return *this;
    }
    std::string hex() const { return toHex(block, sizeOf(block)); }
    unsigned char* block;
};

TEST(Block, GrowsByWholeChildren) {
    Growing parent(0x8005);
    EXPECT_EQ(parent.hex(), "08 00 00 00 05 80 01 00");
    parent.leaf(1, {0xAA, 0xBB});
    addHeaderBlock(&parent.block, 3, 2, 9, nullptr);
    addHeaderBlock(&parent.block, 0, 3, 1, nullptr);
    Growing child(0x8006);
    child.leaf(7, {0xCC});
    EXPECT_EQ(addBlock(&parent.block, child.block), parent.block);
    EXPECT_EQ(parent.hex(),
              "36 00 00 00 05 80 01 00 "
              "0A 00 00 00 01 00 01 00 AA BB "
              "0B 00 00 00 02 00 09 00 00 00 00 "
              "08 00 00 00 03 00 01 00 "
              "11 00 00 00 06 80 01 00 09 00 00 00 07 00 01 00 CC");
}

TEST(Block, FindsTheFirstDirectChildOfAType) {
    Growing grandchild(0x8006);
    Growing child(0x8005);
    child.leaf(9, {1});
    Growing parent(0x8002);
    EXPECT_EQ(findBlock(parent.block, 0x8002), nullptr);
    parent.leaf(1, {}).leaf(2, {5}, 77).leaf(2, {6});
    addBlock(&parent.block, child.block);
    EXPECT_EQ(findBlock(parent.block, 1), parent.block + 8);
    EXPECT_EQ(findBlock(parent.block, 2), parent.block + 16);
    EXPECT_EQ(findBlock(parent.block, 0x8005), parent.block + 34);
    EXPECT_EQ(findBlock(parent.block, 9), nullptr);
    EXPECT_EQ(findBlock(nullptr, 9), nullptr);
}

// Each block ends where its memory ends, so that a sanitizer sees any read behind it.
TEST(Block, SearchEndsAtADamagedChild) {
    struct {
        char const* why;
        char const* hex;
        int offset;  // of the child of type 2; -1: not found
    } const cases[] = {
        {"size 0", "18000000 0280 0100, 00000000 0100 0100, 08000000 0200 0100", -1},
        {"size 7", "18000000 0280 0100, 07000000 0100 0100, 08000000 0200 0100", -1},
        {"a match of size 7", "10000000 0280 0100, 07000000 0200 0100", -1},
        {"a match beyond the end", "10000000 0280 0100, 09000000 0200 0100", -1},
        {"a size that wraps", "18000000 0280 0100, F8FFFFFF 0100 0100, 08000000 0200 0100", -1},
        {"a cut header", "0F000000 0280 0100, 08000000 0200 01", -1},
        {"outer size 0", "00000000 0280 0100", -1},
        {"outer size 7", "07000000 0280 0100", -1},
        {"damage behind the match", "18000000 0280 0100, 08000000 0200 0100, FFFFFFFF 0100 0100", 8},
    };
    for (auto const& c : cases) {
        Bytes const bytes = fromHex(c.hex);
        Block block(new unsigned char[bytes.size()]);
        std::copy(bytes.begin(), bytes.end(), block.get());
        unsigned char* const found = findBlock(block.get(), 2);
        EXPECT_EQ(found, c.offset < 0 ? nullptr : block.get() + c.offset) << c.why;
    }
}

TEST(Block, RefusesToReach4GiB) {
    Growing parent(1);
    std::string const before = parent.hex();
    unsigned char* const address = parent.block;
    for (unsigned size : {0xFFFFFFFFu, 0xFFFFFFF8u, 0xFFFFFFF0u}) {
        EXPECT_THROW(addHeaderBlock(&parent.block, size, 2, 1, nullptr), std::bad_alloc);
    }
    Bytes huge = fromHex("F8FFFFFF 0200 0100");
    EXPECT_THROW(addBlock(&parent.block, huge.data()), std::bad_alloc);
    EXPECT_EQ(parent.block, address);
    EXPECT_EQ(parent.hex(), before);
}

}  // namespace
