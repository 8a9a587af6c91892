#ifndef ZELQ_STOREREADER_H
#define ZELQ_STOREREADER_H

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "recordreader.h"

namespace zelq {

/// Reads the records of a store, all its files taken together, while programs write to it. Takes
/// no lock and changes nothing: it never delays a writer, and works on a read-only folder.
class StoreReader {
public:
    enum class Order { oldestFirst, newestFirst };

    /// Gets a record and the line it stands in; false ends the visit.
    using Visitor = std::function<bool(Record&, std::string_view line)>;

    StoreReader() = default;
    ~StoreReader();
    StoreReader(StoreReader const&) = delete;
    StoreReader& operator=(StoreReader const&) = delete;

    /// Opens the store's files. Returns 0 or an errno of opening the folder: ENOENT when there is
    /// none, EPERM when it is not safe. A store without files, or files that cannot be read, are
    /// no failure here: the latter are told by complaints().
    int open();

    /// Path of the store's folder, also when it could not be opened.
    std::string const& folder() const { return folder_; }

    /// True when the store has no file at all.
    bool isMissing() const { return files_.empty() && complaints_.empty(); }

    /// Visits the records. Lines that are no records are left out and complained about.
    void visit(Order order, Visitor const& visitor);

    /// What could not be read, oldest first, such as "bad line 12 in errors.jsonl: ...".
    std::vector<std::string> complaints() const;

private:
    struct File {
        int descriptor;
        unsigned index;  // in its name; the higher, the older
    };

    struct Complaint {
        unsigned index;
        std::size_t line;
        std::string text;
    };

    struct Line;

    static std::vector<Line> linesOf(std::string const& content);

    void openFiles(int folder);
    void closeFiles();
    bool isNewestOpen(int folder) const;
    void load(File const& file, std::string* content);
    bool visitLine(unsigned index, Line const& line, Visitor const& visitor);
    void complain(unsigned index, std::size_t line, std::string text);

    std::string folder_;
    std::vector<File> files_;  // newest first
    std::vector<Complaint> complaints_;
};

}  // namespace zelq

#endif
