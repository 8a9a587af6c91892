#ifndef ZELQ_TOOLS_BLOCK_JSONPRINTER_H
#define ZELQ_TOOLS_BLOCK_JSONPRINTER_H

#include <string>
#include <string_view>
#include <vector>

#include <rapidjson/writer.h>

#include "store/jsonmemory.h"
#include "tools/block/walk.h"
#include "tools/terminal/output.h"

namespace zelq {

/// Prints blocks as JSON, an object a line for each block that is not inside another one. No byte is
/// lost: those of an object are its header (`size`, `type` and `format`, when there is a `size`), then
/// those of `hex`, of each of the `children`, and of `rest`.
class BlockJsonPrinter : public BlockVisitor {
public:
    explicit BlockJsonPrinter(Output& output);

    void begin(BlockNode const& node) override;
    void end() override;
    void fields(BlockNode const& node, TableRange<BlockField> fields) override;
    void text(BlockNode const& node, bool isTrace) override;
    void bytes(BlockNode const& node) override;
    void rest(std::size_t offset, std::string_view bytes) override;
    void fault(std::string const& what) override;

private:
    /// The stream that RapidJSON writes to. Its function names are RapidJSON's.
    class Stream {
    public:
        using Ch = char;
        explicit Stream(Output& output) : output_(output) {}
        void Put(char c);
        void Flush();

    private:
        Output& output_;
        std::string pending_;
    };

    /// An object that is being written; the first one stands for the input.
    struct Level {
        bool hasChildren = false;
        std::vector<std::string> faults;
    };

    void write(char const* name, std::uint64_t number);
    void write(std::string_view name, std::string_view text);
    void writeHex(char const* name, std::string_view bytes);
    void endChildren();
    void writeFaults();
    void endLine();

    Stream stream_;
    JsonMemory memory_;
    rapidjson::Writer<Stream, rapidjson::UTF8<>, rapidjson::UTF8<>, JsonMemory> writer_;
    std::vector<Level> levels_;
};

}  // namespace zelq

#endif
