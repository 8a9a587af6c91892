#ifndef ZELQ_STORE_LINES_H
#define ZELQ_STORE_LINES_H

#include <sys/types.h>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace zelq {

/// A line longer than this is passed over without keeping it. The service writes records that are
/// some hundred KiB long; what is beyond this bound costs time, but no memory.
constexpr std::size_t lineSizeMax = 16U << 20;

/// One line of a file.
struct FileLine {
    off_t offset = 0;        ///< where it begins
    off_t size = 0;          ///< without its '\n'
    std::string_view text;   ///< valid until the next call of the reader; empty when the line is too long
    std::size_t number = 0;  ///< from 1; 0 when it is not known
    bool isComplete = true;  ///< it ends in '\n'

    bool isTooLong() const { return size > static_cast<off_t>(lineSizeMax); }
};

/// Is told, each time that a piece of a file was read, how many bytes that were.
using ReadProgress = std::function<void(off_t bytes)>;

/// Reads the lines of a file that others append to, from `offset` on. Keeps no more than a line.
/// Files are read and not mapped: a writer may cut one short.
class ForwardLines {
public:
    explicit ForwardLines(int file, off_t offset = 0, ReadProgress progress = {});

    /// The next complete line. None at the end, for now: when lines were added, the next call finds
    /// them.
    std::optional<FileLine> next();

    /// What stands behind the last complete line, after next() returned none. None when there is
    /// nothing.
    std::optional<FileLine> rest() const;

    /// Where the first line begins that was not returned.
    off_t position() const { return position_; }

    /// errno of the first read that failed, or 0.
    int failure() const { return failure_; }

private:
    bool fill();

    int file_;
    off_t position_;      // file offset of what is in buffer_ from begin_ on
    std::size_t number_;  // of the line at position_; 0 when lines before it were not read
    ReadProgress progress_;
    std::string buffer_;
    std::size_t begin_ = 0;    // what is before has been returned
    std::size_t scanned_ = 0;  // no '\n' between begin_ and here
    off_t skipped_ = 0;        // bytes of a too long line that are no longer in the buffer
    off_t sizeAtEnd_ = -1;     // of the file, when its end was reached
    FileLine rest_;
    int failure_ = 0;
};

/// Reads the lines of a file from `end` backwards to its beginning. Keeps no more than a line.
class BackwardLines {
public:
    BackwardLines(int file, off_t end);

    /// The line before the last one that was returned; none before the first. The first that is returned
    /// may be incomplete.
    std::optional<FileLine> next();

    /// errno of the first read that failed, or 0. EIO also when somebody cut the file short.
    int failure() const { return failure_; }

private:
    bool prepend();

    int file_;
    off_t start_;  // file offset of the buffer's first byte
    std::string buffer_;
    std::size_t end_ = 0;  // what is behind has been returned
    bool isFirst_ = true;  // nothing was read
    off_t dropped_ = 0;    // bytes of a too long line that were behind the buffer
    bool isComplete_ = false;
    int failure_ = 0;
};

/// `size` bytes at `offset`. None when they are not there.
std::optional<std::string> readAt(int file, off_t offset, std::size_t size);

off_t fileSize(int file);

/// The number of the line that begins at `offset`. Reads everything before it.
std::size_t lineNumberAt(int file, off_t offset);

/// Where the line behind the last '\n' begins: the size of a file that ends in one.
off_t endOfLastLine(int file);

}  // namespace zelq

#endif
