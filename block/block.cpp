#include "zelqcood/block.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "block/append.h"
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

// A block under construction outgrows its memory by halves, but never by more than this.
constexpr std::uint32_t spareMost = 64U << 20;

/// A block with memory behind it for a child that is to be appended. Unless the block has room for it where it
/// stands, that is a new buffer, and the block itself stays as it is until nothing can fail any more.
class LargerBlock {
public:
    LargerBlock(unsigned char** pData, std::uint32_t* room, std::uint32_t added)
        : pData_(pData), header_(BlockHeader::load(*pData)), child_(header_.size) {
        if (__builtin_add_overflow(header_.size, added, &header_.size)) {
            throw std::bad_alloc();  // the size field holds 32 bits
        }
        if (room != nullptr && header_.size <= *room) {
            start_ = *pData;
        } else {
            std::uint32_t const larger = room != nullptr ? std::max(header_.size, withSpare(*room)) : header_.size;
            start_ = new unsigned char[larger];
            std::memcpy(start_, *pData, child_);
            if (room != nullptr) {
                *room = larger;
            }
        }
        header_.store(start_);
    }

    /// Where the child is to be put.
    unsigned char* child() const { return start_ + child_; }

    unsigned char* replaceOld() const {
        if (start_ != *pData_) {
            delete[] * pData_;
            *pData_ = start_;
        }
        debugLine("Returning ", addressOf(start_), ", newSize=", header_.size);
        return start_;
    }

private:
    static std::uint32_t withSpare(std::uint32_t room) {
        std::uint32_t larger = 0;
        return __builtin_add_overflow(room, std::min(room / 2, spareMost), &larger) ? room : larger;
    }

    unsigned char** pData_;
    BlockHeader header_;
    std::uint32_t child_;
    unsigned char* start_;
};

}  // namespace

unsigned char* newBlock(unsigned short blockType, unsigned short blockFormat, std::uint32_t room) {
    TraceScope const scope(createBlockLine);
    debugLine("blockType=", blockType, ", blockFormat=", blockFormat);
    unsigned char* const block = new unsigned char[room];
    BlockHeader{BlockHeader::bytes, blockType, blockFormat}.store(block);
    debugLine("Returning ", addressOf(block));
    return block;
}

unsigned char* appendLeaf(unsigned char** pData, std::uint32_t* room, unsigned int blockSize, unsigned short blockType,
                          unsigned short blockFormat, unsigned char* pBlockData) {
    TraceScope const scope(addHeaderBlockLine);
    debugLine("pData=", addressOf(*pData), ", blockSize=", blockSize, ", blockType=", blockType,
              ", blockFormat=", blockFormat, ", pBlockData=", addressOf(pBlockData));
    std::uint32_t childSize = 0;
    if (__builtin_add_overflow(blockSize, BlockHeader::bytes, &childSize)) {
        throw std::bad_alloc();
    }
    LargerBlock const larger(pData, room, childSize);
    BlockHeader{childSize, blockType, blockFormat}.store(larger.child());
    if (pBlockData == nullptr) {
        std::memset(larger.child() + BlockHeader::bytes, 0, blockSize);
    } else {
        std::memcpy(larger.child() + BlockHeader::bytes, pBlockData, blockSize);
    }
    return larger.replaceOld();
}

unsigned char* appendBlock(unsigned char** pData, std::uint32_t* room, unsigned char* pBlockData) {
    TraceScope const scope(addBlockLine);
    debugLine("pData=", addressOf(*pData), ", pBlockData=", addressOf(pBlockData));
    std::uint32_t const added = BlockHeader::load(pBlockData).size;
    LargerBlock const larger(pData, room, added);
    std::memcpy(larger.child(), pBlockData, added);
    return larger.replaceOld();
}

unsigned char* createBlock(unsigned short blockType, unsigned short blockFormat) {
    return newBlock(blockType, blockFormat, BlockHeader::bytes);
}

unsigned char* addHeaderBlock(unsigned char** pData, unsigned int blockSize, unsigned short blockType,
                              unsigned short blockFormat, unsigned char* pBlockData) {
    return appendLeaf(pData, nullptr, blockSize, blockType, blockFormat, pBlockData);
}

unsigned char* addBlock(unsigned char** pData, unsigned char* pBlockData) {
    return appendBlock(pData, nullptr, pBlockData);
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
