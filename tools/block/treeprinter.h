#ifndef ZELQ_TOOLS_BLOCK_TREEPRINTER_H
#define ZELQ_TOOLS_BLOCK_TREEPRINTER_H

#include <string>

#include "tools/block/walk.h"
#include "tools/terminal/output.h"

namespace zelq {

/// Prints blocks as a tree, one line for each block and field.
class BlockTreePrinter : public BlockVisitor {
public:
    struct Options {
        bool offsets = false;  ///< before each line, where in the input it is from
        bool full = false;     ///< long data and traces, which are folded otherwise
    };

    BlockTreePrinter(Options const& options, std::size_t inputSize, Output& output);

    void begin(BlockNode const& node) override;
    void end() override;
    void fields(BlockNode const& node, TableRange<BlockField> fields) override;
    void text(BlockNode const& node, bool isTrace) override;
    void bytes(BlockNode const& node) override;
    void rest(std::size_t offset, std::string_view bytes) override;
    void fault(std::string const& what) override;

private:
    std::size_t indent() const;
    void startLine(std::size_t offset);
    void printNote(Style style, std::string const& note);
    void printDump(std::size_t offset, std::string_view bytes);

    Options options_;
    Output& output_;
    int offsetDigits_;
    std::size_t depth_ = 0;
    std::size_t blocks_ = 0;  // on the outermost level
};

}  // namespace zelq

#endif
