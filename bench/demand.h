#ifndef ZELQCOOD_BENCH_DEMAND_H
#define ZELQCOOD_BENCH_DEMAND_H

#include <cstddef>
#include <cstdint>
#include <utility>

#include "zelqcood/exception.h"

// What the definition of an operation cannot do without: its trace lines, the memory that it names,
// and the bytes that it copies, in its order and in its sizes. Running that and nothing else is the
// limit that the ledger compares the operation with, on the machine at hand.
//
// Left out: putting numbers into the text of a line, looking up names, choosing, checking.

namespace demand {

struct Counts {
    std::uint64_t lines = 0;
    std::uint64_t allocations = 0;
    std::uint64_t bytes = 0;  ///< copied or cleared; those of lines are not counted
};
inline Counts counts;

/// A trace line: the clock is read, and 200 bytes are copied.
void line();

void* take(std::size_t size);
void* takeCopy(void const* bytes, std::size_t size);
void give(void* memory);
void copy(void* to, void const* from, std::size_t size);

/// Two lines, and 200 bytes for the time between them.
class Scope {
public:
    Scope();
    ~Scope();
    Scope(Scope const&) = delete;
    Scope& operator=(Scope const&) = delete;

private:
    void* line_;
};

/// A copied text. Short ones live in the object that they belong to.
class Text {
public:
    Text() = default;
    explicit Text(char const* characters);
    Text(Text const& other) { append(other); }
    Text& operator=(Text const&) = delete;
    ~Text() { give(long_); }

    void append(Text const& other);
    void append(char const* characters, std::size_t length);
    char const* characters() const { return long_ != nullptr ? long_ : short_; }
    std::size_t length() const { return length_; }

private:
    static constexpr std::size_t shortSize = 128;

    char* long_ = nullptr;
    std::size_t length_ = 0;
    char short_[shortSize] = "";
};

/// A block under construction: new memory, with half as much to spare, only when a part does not fit.
class Block {
public:
    explicit Block(std::size_t room = 128);
    Block(Block&& other) noexcept
        : bytes_(std::exchange(other.bytes_, nullptr)), size_(other.size_), room_(other.room_) {}
    ~Block() { give(bytes_); }
    Block& operator=(Block const&) = delete;

    void addLeaf(void const* body, std::size_t size);
    void addText(Text const& text) { addLeaf(text.characters(), text.length() + 1); }
    void addBlock(Block const& block);

private:
    unsigned char* append(std::size_t added);

    unsigned char* bytes_;
    std::size_t size_;
    std::size_t room_;
};

Block dataItemAsBlock(void const* bytes, std::size_t size);

/// The lines of a search in a block.
void findBlock();

/// The lines that a log writes when it is asked for its list of data items.
void askForData();

/// A plain log or a microcode log, with its data items.
class Log {
public:
    enum Kind { plain, microcode };
    struct FromBlock {};  ///< of a constructor: as the other log comes out of its block

    Log(Kind kind, Text const& eventName, Text const& logId, Text const& text, Text const& backtrace);
    Log(Log const& other);
    Log(FromBlock, Log const& other);
    ~Log();
    Log& operator=(Log const&) = delete;

    void addData(void const* bytes, std::size_t size);
    void addSnapshots();

    /// Leaves out the item that each recording adds.
    void record() { record(text_); }
    void record(Text const& text);

    Block asLogBlock() const;
    Block asMicrocodeLogBlock() const;
    Block asEndMicrocodeLogBlock() const;

    Text const& text() const { return text_; }
    Text const& backtrace() const { return backtrace_; }

private:
    struct Item {
        void* bytes;
        std::size_t size;
        char rest[sizeof(XLogData) - 2 * sizeof(void*)];
    };
    struct Node {
        Node* next;
        Node* previous;
        Item* item;
    };

    static Node* newNode(void const* bytes, std::size_t size);
    static void unlink(Node* node);
    static void link(Node* node, Node* next);
    void readItems(Log const& other);

    Kind kind_;
    Node* list_;  ///< a circle
    std::size_t itemCount_ = 0;
    void* refcodes_ = nullptr;
    Text eventName_;
    Text logId_;
    Text text_;
    Text backtrace_;
};

/// An exception with one location and a microcode log.
class Exception {
public:
    Exception(Text const& text, Text const& file, Text const& function, Log const& log);
    Exception(Exception const& other);
    Exception(Log::FromBlock, Exception const& other);
    ~Exception();
    Exception& operator=(Exception const&) = delete;

    Block asBlock() const;
    void record();

private:
    void takeMemory(Log const* log);
    Block asBaseBlock() const;
    Text asString() const;

    Text text_;
    Text name_;
    Text file_;
    Text function_;
    void* texts_;
    void* locations_;
    Log* log_;
};

/// The return addresses of the calling thread, from that many calls deeper, and memory with a text.
void takeBacktrace(Text const& text, int frames = 6);

}  // namespace demand

#endif
