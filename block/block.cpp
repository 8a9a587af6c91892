#include "zelqcood/block.h"

#include <cstring>
#include <new>

#include "block/cursor.h"
#include "trace/message.h"

namespace {

constexpr char _traceMask[] = "XLIBBLK";
constexpr EntryLine createBlockLine(_traceMask, 'F', "createBlock");
constexpr EntryLine addHeaderBlockLine(_traceMask, 'F', "addHeaderBlock");
constexpr EntryLine addBlockLine(_traceMask, 'F', "addBlock");
constexpr EntryLine findBlockLine(_traceMask, 'F', "findBlock");

template <class... Pieces>
void debugLine(Pieces const&... pieces) {
    traceLine(_traceMask, 'D', pieces...);
}

// A buffer for the block `old` and `added` bytes behind it, holding the old block with its new
// size. The old block stays as it is: the caller releases it once nothing can fail any more.
unsigned char* newLargerBlock(unsigned char const* old, BlockHeader header, std::uint32_t added) {
    std::uint32_t size = 0;
    if (__builtin_add_overflow(header.size, added, &size)) {
        throw std::bad_alloc();  // the size field holds 32 bits
    }
    unsigned char* const larger = new unsigned char[size];
    std::memcpy(larger, old, header.size);
    header.size = size;
    header.store(larger);
    return larger;
}

unsigned char* replaceBlock(unsigned char** pData, unsigned char* larger) {
    delete[] * pData;
    *pData = larger;
    debugLine("Returning ", addressOf(larger), ", newSize=", BlockHeader::load(larger).size);
    return larger;
}

}  // namespace

unsigned char* createBlock(unsigned short blockType, unsigned short blockFormat) {
    TraceScope const scope(createBlockLine);
    debugLine("blockType=", blockType, ", blockFormat=", blockFormat);
    unsigned char* const block = new unsigned char[BlockHeader::bytes];
    BlockHeader{BlockHeader::bytes, blockType, blockFormat}.store(block);
    debugLine("Returning ", addressOf(block));
    return block;
}

unsigned char* addHeaderBlock(unsigned char** pData, unsigned int blockSize, unsigned short blockType,
                              unsigned short blockFormat, unsigned char* pBlockData) {
    TraceScope const scope(addHeaderBlockLine);
    debugLine("pData=", addressOf(*pData), ", blockSize=", blockSize, ", blockType=", blockType,
              ", blockFormat=", blockFormat, ", pBlockData=", addressOf(pBlockData));
    std::uint32_t childSize = 0;
    if (__builtin_add_overflow(blockSize, BlockHeader::bytes, &childSize)) {
        throw std::bad_alloc();
    }
    BlockHeader const old = BlockHeader::load(*pData);
    unsigned char* const larger = newLargerBlock(*pData, old, childSize);
    unsigned char* const child = larger + old.size;
    BlockHeader{childSize, blockType, blockFormat}.store(child);
    if (pBlockData == nullptr) {
        std::memset(child + BlockHeader::bytes, 0, blockSize);
    } else {
        std::memcpy(child + BlockHeader::bytes, pBlockData, blockSize);
    }
    return replaceBlock(pData, larger);
}

unsigned char* addBlock(unsigned char** pData, unsigned char* pBlockData) {
    TraceScope const scope(addBlockLine);
    debugLine("pData=", addressOf(*pData), ", pBlockData=", addressOf(pBlockData));
    BlockHeader const old = BlockHeader::load(*pData);
    std::uint32_t const added = BlockHeader::load(pBlockData).size;
    unsigned char* const larger = newLargerBlock(*pData, old, added);
    std::memcpy(larger + old.size, pBlockData, added);
    return replaceBlock(pData, larger);
}

unsigned char* findBlock(unsigned char* pData, unsigned short blockType) {
    TraceScope const scope(findBlockLine);
    debugLine("pData=", addressOf(pData), ", blockType=", blockType);
    unsigned char* found = nullptr;
    if (pData != nullptr) {
        BlockCursor cursor(pData, BlockHeader::load(pData).size);
        BlockChild child;
        while (found == nullptr && cursor.next(child) == BlockCursor::atChild) {
            if (child.header.type == blockType) {
                found = child.start;
            }
        }
    }
    debugLine("Returning ", addressOf(found));
    return found;
}
