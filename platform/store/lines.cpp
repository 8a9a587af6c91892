#include "store/lines.h"

#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <utility>

#include "common/systemcalls.h"

namespace zelq {
namespace {

constexpr std::size_t stepSize = 128 * 1024;
constexpr std::size_t stepSizeMax = 8 * stepSize;

// As many of the bytes as the file has; -1 with errno when reading fails.
ssize_t readFully(int file, char* to, std::size_t size, off_t offset) {
    std::size_t done = 0;
    while (done < size) {
        ssize_t const count =
            uninterrupted([&] { return pread(file, to + done, size - done, offset + static_cast<off_t>(done)); });
        if (count <= 0) {
            return count < 0 ? -1 : static_cast<ssize_t>(done);
        }
        done += static_cast<std::size_t>(count);
    }
    return static_cast<ssize_t>(done);
}

}  // namespace

ForwardLines::ForwardLines(int file, off_t offset, ReadProgress progress)
    : file_(file), position_(offset), number_(offset == 0 ? 1 : 0), progress_(std::move(progress)) {}

std::optional<FileLine> ForwardLines::next() {
    if (sizeAtEnd_ >= 0) {
        if (fileSize(file_) == sizeAtEnd_) {
            return std::nullopt;
        }
        sizeAtEnd_ = -1;
        rest_ = {};
    }
    for (;;) {
        std::size_t const found = buffer_.find('\n', scanned_);
        if (found != std::string::npos) {
            off_t const size = static_cast<off_t>(found - begin_) + skipped_;
            FileLine line = {position_, size, {}, number_, true};
            number_ += number_ > 0 ? 1 : 0;
            if (!line.isTooLong()) {
                line.text = {buffer_.data() + begin_, found - begin_};
            }
            position_ += size + 1;
            begin_ = scanned_ = found + 1;
            skipped_ = 0;
            return line;
        }
        scanned_ = buffer_.size();
        if (skipped_ > 0 || buffer_.size() - begin_ > lineSizeMax) {
            skipped_ += static_cast<off_t>(buffer_.size() - begin_);
            buffer_.clear();
            begin_ = scanned_ = 0;
        }
        if (!fill()) {
            return std::nullopt;
        }
    }
}

// At the end of the file the piece of a line is not kept: its writer may take it back, and another
// one put something else in its place.
bool ForwardLines::fill() {
    buffer_.erase(0, begin_);
    begin_ = 0;
    scanned_ = buffer_.size();
    std::size_t const size = buffer_.size();
    off_t const end = position_ + skipped_ + static_cast<off_t>(size);
    buffer_.resize(size + stepSize);
    ssize_t const count = readFully(file_, &buffer_[size], stepSize, end);
    buffer_.resize(size + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    if (count > 0) {
        if (progress_) {
            progress_(count);
        }
        return true;
    }
    failure_ = count < 0 && failure_ == 0 ? errno : failure_;
    rest_ = {position_, end - position_, {}, number_, false};
    sizeAtEnd_ = end;
    buffer_.clear();
    scanned_ = 0;
    skipped_ = 0;
    return false;
}

std::optional<FileLine> ForwardLines::rest() const {
    return rest_.size > 0 ? std::optional<FileLine>(rest_) : std::nullopt;
}

BackwardLines::BackwardLines(int file, off_t end) : file_(file), start_(end) {}

std::optional<FileLine> BackwardLines::next() {
    if (isFirst_ && !prepend()) {
        return std::nullopt;
    }
    if (end_ == 0 && start_ == 0) {
        return std::nullopt;
    }
    // The '\n' that ends this line is behind it already, but for the last line of a file.
    for (std::size_t scanned = end_;;) {
        std::size_t const found = scanned == 0 ? std::string::npos : buffer_.rfind('\n', scanned - 1);
        bool const isFirstLine = found == std::string::npos && start_ == 0;
        if (found == std::string::npos && !isFirstLine) {
            if (dropped_ > 0 || end_ > lineSizeMax) {
                dropped_ += static_cast<off_t>(end_);
                buffer_.clear();
                end_ = 0;
            }
            std::size_t const before = end_;
            if (!prepend()) {
                return std::nullopt;
            }
            scanned = end_ - before;
            continue;
        }
        std::size_t const begin = isFirstLine ? 0 : found + 1;
        FileLine line = {
            start_ + static_cast<off_t>(begin), static_cast<off_t>(end_ - begin) + dropped_, {}, 0, isComplete_};
        if (!line.isTooLong()) {
            line.text = {buffer_.data() + begin, end_ - begin};
        }
        isComplete_ = true;
        dropped_ = 0;
        end_ = isFirstLine ? 0 : found;
        return line;
    }
}

// Reads more at once the longer the line is, so that it is not copied over and over.
bool BackwardLines::prepend() {
    if (start_ == 0) {
        return false;
    }
    std::size_t const step = std::min(std::max(stepSize, end_), stepSizeMax);
    std::size_t const size = static_cast<std::size_t>(std::min<off_t>(start_, static_cast<off_t>(step)));
    std::string text(size, '\0');
    text.reserve(size + end_);
    off_t const from = start_ - static_cast<off_t>(size);
    ssize_t const count = readFully(file_, &text[0], size, from);
    if (count < 0 || (static_cast<std::size_t>(count) < size && !isFirst_)) {
        failure_ = count < 0 ? errno : EIO;
        return false;
    }
    text.resize(static_cast<std::size_t>(count));
    text.append(buffer_, 0, end_);
    buffer_ = std::move(text);
    end_ = buffer_.size();
    start_ = from;
    if (isFirst_) {
        isFirst_ = false;
        isComplete_ = end_ > 0 && buffer_[end_ - 1] == '\n';
        end_ -= isComplete_ ? 1 : 0;
    }
    return true;
}

off_t fileSize(int file) {
    struct stat status = {};
    return fstat(file, &status) == 0 ? status.st_size : 0;
}

std::optional<std::string> readAt(int file, off_t offset, std::size_t size) {
    std::optional<std::string> text(std::in_place, size, '\0');
    return readFully(file, text->data(), size, offset) == static_cast<ssize_t>(size) ? std::move(text) : std::nullopt;
}

std::size_t lineNumberAt(int file, off_t offset) {
    std::size_t number = 1;
    std::string buffer(stepSize, '\0');
    for (off_t at = 0; at < offset;) {
        std::size_t const wanted = static_cast<std::size_t>(std::min<off_t>(stepSize, offset - at));
        ssize_t const count = readFully(file, &buffer[0], wanted, at);
        if (count <= 0) {
            break;
        }
        number += static_cast<std::size_t>(std::count(buffer.begin(), buffer.begin() + count, '\n'));
        at += count;
    }
    return number;
}

off_t endOfLastLine(int file) {
    off_t const size = fileSize(file);
    BackwardLines lines(file, size);
    std::optional<FileLine> const line = lines.next();
    if (!line.has_value()) {
        return 0;
    }
    return line->isComplete ? line->offset + line->size + 1 : line->offset;
}

}  // namespace zelq
