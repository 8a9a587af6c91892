#ifndef ZELQCOOD_BLOCK_APPEND_H
#define ZELQCOOD_BLOCK_APPEND_H

#include <cstdint>

// What the public block functions do, with the same trace lines, for a caller that says how much memory
// its block has. Given that, an append copies the block only when it is outgrown, and then leaves
// half as much again to spare: a block of many children is built in time that is proportional to its size.
// Without it (null) each append moves the block to a buffer of exactly its new size.

/// The memory that a block under construction begins with: enough for the fields of most classes.
constexpr std::uint32_t firstBlockRoom = 128;

unsigned char* newBlock(unsigned short blockType, unsigned short blockFormat, std::uint32_t room);

unsigned char* appendLeaf(unsigned char** pData, std::uint32_t* room, unsigned int blockSize, unsigned short blockType,
                          unsigned short blockFormat, unsigned char* pBlockData);

unsigned char* appendBlock(unsigned char** pData, std::uint32_t* room, unsigned char* pBlockData);

#endif
