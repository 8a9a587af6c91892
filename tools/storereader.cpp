#include "storereader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <set>
#include <utility>

#include "common/statefolder.h"
#include "services/store.h"

namespace zelq {
namespace {

std::string nameOf(unsigned index) {
    char name[storeNameSize];
    storeFileName(index, name);
    return name;
}

// Files are read and not mapped: a writer may cut one short.
int readAll(int descriptor, std::string* content) {
    lseek(descriptor, 0, SEEK_SET);
    for (;;) {
        constexpr std::size_t step = 1U << 20;
        std::size_t const size = content->size();
        content->resize(size + step);
        ssize_t const count = read(descriptor, &(*content)[size], step);
        content->resize(size + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        if (count == 0) {
            return 0;
        }
        if (count < 0 && errno != EINTR) {
            return errno;
        }
    }
}

}  // namespace

/// One line of a file; the text stays the file's content.
struct StoreReader::Line {
    std::size_t number;
    std::string_view text;
    bool isComplete;  ///< it ends in '\n'
};

std::vector<StoreReader::Line> StoreReader::linesOf(std::string const& content) {
    std::vector<Line> lines;
    for (std::size_t begin = 0; begin < content.size();) {
        std::size_t const found = content.find('\n', begin);
        std::size_t const end = found == std::string::npos ? content.size() : found;
        lines.push_back({lines.size() + 1, {content.data() + begin, end - begin}, found != std::string::npos});
        begin = end + 1;
    }
    return lines;
}

StoreReader::~StoreReader() {
    closeFiles();
}

int StoreReader::open() {
    char path[folderPathSize];
    if (int const failure = stateFolderPath(FolderUse::store, path); failure != 0) {
        return failure;
    }
    folder_ = path;
    int folder = -1;
    if (int const failure = openStateFolder(FolderUse::store, false, &folder); failure != 0) {
        return failure;
    }
    // When a file was begun meanwhile, newer files may have come under the names of older ones.
    constexpr int triesMax = 10;
    for (int tries = 0; tries < triesMax && (tries == 0 || !isNewestOpen(folder)); ++tries) {
        openFiles(folder);
    }
    close(folder);
    return 0;
}

// From the newest to the oldest, the way that files move: a rotation that is going on cannot carry
// a file past us, it can only bring one that is open already. That one is left out.
void StoreReader::openFiles(int folder) {
    closeFiles();
    complaints_.clear();
    std::set<std::pair<dev_t, ino_t>> known;
    for (unsigned index = 0; index < storeFilesMaximum; ++index) {
        std::string const name = nameOf(index);
        int const descriptor = openat(folder, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
        if (descriptor < 0) {
            if (errno != ENOENT) {
                complain(index, 0, "cannot open '" + name + "': " + std::strerror(errno));
            }
            continue;
        }
        struct stat status = {};
        if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
            complain(index, 0, "not a regular file: '" + name + "'");
            close(descriptor);
        } else if (!known.emplace(status.st_dev, status.st_ino).second) {
            close(descriptor);
        } else {
            files_.push_back({descriptor, index});
        }
    }
}

// True when the newest file is still the first of those that are open.
bool StoreReader::isNewestOpen(int folder) const {
    struct stat newest = {};
    struct stat first = {};
    if (fstatat(folder, nameOf(0).c_str(), &newest, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(newest.st_mode)) {
        return files_.empty() || files_[0].index != 0;
    }
    return !files_.empty() && fstat(files_[0].descriptor, &first) == 0 && first.st_ino == newest.st_ino &&
           first.st_dev == newest.st_dev;
}

void StoreReader::closeFiles() {
    for (File const& file : files_) {
        close(file.descriptor);
    }
    files_.clear();
}

void StoreReader::load(File const& file, std::string* content) {
    constexpr int triesMax = 5;
    for (int tries = 0;; ++tries) {
        content->clear();
        int const failure = readAll(file.descriptor, content);
        if (failure != 0) {
            complain(file.index, 0, "cannot read '" + nameOf(file.index) + "': " + std::strerror(failure));
            return;
        }
        // A writer may be in the middle of the last line; it gets a moment to finish.
        bool const isTorn = file.index == 0 && !content->empty() && content->back() != '\n';
        if (!isTorn || tries == triesMax) {
            return;
        }
        timespec const pause = {0, 10000000};
        nanosleep(&pause, nullptr);
    }
}

bool StoreReader::visitLine(unsigned index, Line const& line, Visitor const& visitor) {
    Record record;
    std::string const reason = parseRecord(line.text, &record);
    if (reason.empty()) {
        return visitor(record, line.text);
    }
    std::string const place = "line " + std::to_string(line.number) + " in " + nameOf(index);
    complain(index, line.number,
             line.isComplete ? "bad " + place + ": " + reason
                             : "torn last " + place + ": its writer died or is still writing");
    return true;
}

void StoreReader::visit(Order order, Visitor const& visitor) {
    bool const isReversed = order == Order::newestFirst;
    for (std::size_t i = 0; i < files_.size(); ++i) {
        File const& file = files_[isReversed ? i : files_.size() - 1 - i];
        std::string content;
        load(file, &content);
        std::vector<Line> const lines = linesOf(content);
        for (std::size_t k = 0; k < lines.size(); ++k) {
            Line const& line = lines[isReversed ? lines.size() - 1 - k : k];
            if (!line.text.empty() && !visitLine(file.index, line, visitor)) {
                return;
            }
        }
    }
}

void StoreReader::complain(unsigned index, std::size_t line, std::string text) {
    complaints_.push_back({index, line, std::move(text)});
}

std::vector<std::string> StoreReader::complaints() const {
    std::vector<Complaint> sorted = complaints_;
    std::sort(sorted.begin(), sorted.end(), [](Complaint const& left, Complaint const& right) {
        return left.index != right.index ? left.index > right.index : left.line < right.line;
    });
    std::vector<std::string> texts;
    texts.reserve(sorted.size());
    for (Complaint& complaint : sorted) {
        texts.push_back(std::move(complaint.text));
    }
    return texts;
}

}  // namespace zelq
