#ifndef ZELQCOOD_BLOCK_H
#define ZELQCOOD_BLOCK_H

#include "zelqplatform/api.h"

/// \file
/// Self-describing binary blocks.
///
/// A block is a byte region that starts with an 8-byte header in host byte order, without padding:
///
///     offset 0, 4 bytes   size of the whole block, header included; never below 8
///     offset 4, 2 bytes   block type: a class code (0x8000 and up), or a small code that means
///                         something only inside its parent
///     offset 6, 2 bytes   block format, 1 in every block that the library writes
///
/// Behind the header stand payload bytes or child blocks, back to back and unaligned. Blocks are
/// allocated with new[]; whoever holds the pointer owns the block and releases it with delete[].
/// When an allocation fails, std::bad_alloc leaves the call and the caller still owns the old,
/// unchanged block. A block that would reach 4 GiB counts as a failed allocation. None of these
/// functions is safe in a signal handler.

/// A new block of 8 bytes: a header without a body. The caller owns it.
ZELQ_API unsigned char* createBlock(unsigned short blockType, unsigned short blockFormat);

/// Appends one leaf child to the block at `*pData`: a header and `blockSize` payload bytes copied
/// from `pBlockData`, or that many zero bytes when `pBlockData` is null. The old buffer is
/// released; the new one is stored in `*pData` and returned.
ZELQ_API unsigned char* addHeaderBlock(unsigned char** pData, unsigned int blockSize, unsigned short blockType,
                                       unsigned short blockFormat, unsigned char* pBlockData);

/// Appends the complete block `pBlockData` as a child of the block at `*pData`. The old buffer is
/// released; the new one is stored in `*pData` and returned. `pBlockData` stays the caller's.
ZELQ_API unsigned char* addBlock(unsigned char** pData, unsigned char* pBlockData);

/// The first direct child of `pData` with the given type, or null. The result points into `pData`.
/// Only a child that lies whole inside its parent is found; the search ends at a damaged one.
ZELQ_API unsigned char* findBlock(unsigned char* pData, unsigned short blockType);

#endif
