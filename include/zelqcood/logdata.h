#ifndef ZELQCOOD_LOGDATA_H
#define ZELQCOOD_LOGDATA_H

#include "zelqplatform/zobase.h"

/// A private copy of a run of bytes, with a block id that tells the receiver what they are.
///
/// The item owns its copy; the caller's bytes are read during the call only. Where memory is
/// exhausted, std::bad_alloc leaves the call and the item is as it was before. An item is used by
/// one thread at a time and not in signal handlers.
class ZELQ_API XLogData : public ZoVBase {
public:
    /// An item that never received data: data() is null, size and block id are 0.
    XLogData();

    /// Copies `size` bytes from `data`, which may be null only when `size` is 0.
    XLogData(void* data, unsigned long size, unsigned short blockId);

    XLogData(XLogData const& other);

    /// Rebuilds an item from the block that asBinary() wrote; `block` stays the caller's. Damage is
    /// reported in the trace, never thrown; what could not be read is as in an empty item.
    XLogData(unsigned char* block);

    virtual ~XLogData();

    XLogData& operator=(XLogData const& other);

    /// True for the same buffer, size and block id: two items that hold data of their own are
    /// never equal, even when their bytes are.
    virtual bool operator==(XLogData const& other);

    /// The bytes, owned by the item and valid until it changes. Null only in an item that never
    /// received data.
    void* data() const;

    /// Number of bytes.
    unsigned long size() const;

    unsigned short blockId() const;
    XLogData& setBlockId(unsigned short blockId);

    /// Replaces the bytes by a copy of `size` bytes from `data`.
    XLogData& setData(void* data, unsigned long size);

    /// A new copy of the same class, owned by the caller.
    virtual XLogData* clone() const;

    /// The item as a block of type 0x8005 (26 bytes and the data); release it with delete[].
    virtual unsigned char* asBinary() const;

private:
    unsigned char* data_;
    unsigned long size_;
    unsigned short blockId_;
};

/// The data item of microcode logs and exceptions: its block id carries the format of the data.
class ZELQ_API XMicrocodeLogData : public XLogData {
public:
    /// These values reach disk and other processes.
    enum Format {
        binaryFormat = 0x100,  ///< raw bytes
        textFormat = 0x101     ///< characters
    };

    /// Copies `size` bytes, and for a text of non-zero size the zero byte behind them as well.
    XMicrocodeLogData(void* data, unsigned long size, Format format);

    /// Copies exactly `size` bytes, under any block id.
    XMicrocodeLogData(void* data, unsigned long size, unsigned short blockId);

    XMicrocodeLogData(XMicrocodeLogData const& other);

    /// Rebuilds an item from the block that asBinary() wrote, as XLogData does. An item inside a
    /// block of wrong type or format is read all the same.
    XMicrocodeLogData(unsigned char* block);

    virtual ~XMicrocodeLogData();

    XMicrocodeLogData& operator=(XMicrocodeLogData const& other) = default;

    /// textFormat for block id 0x101, binaryFormat for any other.
    Format format() const;

    /// Stores the format as block id; the bytes stay as they are.
    XMicrocodeLogData& setFormat(Format format);

    XMicrocodeLogData* clone() const override;

    /// The item as a block of type 0x8006 (34 bytes and the data); release it with delete[].
    unsigned char* asBinary() const override;
};

#endif
