#include "tools/block/walk.h"

#include "tools/terminal/output.h"

namespace zelq {
namespace {

/// A block whose children are walked, or the input as a whole.
struct Parent {
    BlockLayout const* layout;  ///< null for the input
    unsigned char* start;       ///< where the cursor's offsets count from
    std::uint32_t missing = 0;  ///< bytes that have been cut off its end
    bool hasBase = false;       ///< the block of its base class has been met
    std::int64_t itemId = 0;    ///< of a data item, once its field has been met
};

class Walk {
public:
    Walk(std::string& input, BlockVisitor& visitor)
        : input_(reinterpret_cast<unsigned char*>(input.data())), visitor_(visitor) {}

    void blocks(BlockCursor cursor, Parent parent) {
        BlockChild child;
        BlockCursor::Step step = BlockCursor::atChild;
        while (step == BlockCursor::atChild) {
            std::size_t const offset = offsetOf(parent.start) + cursor.offset();
            std::uint32_t const remaining = cursor.remaining();
            step = cursor.next(child);
            if (step == BlockCursor::atChild) {
                block(child, child.header.size, parent);
            } else if (step == BlockCursor::wrongSize && child.header.size > remaining) {
                block(child, remaining, parent);
            } else if (step == BlockCursor::wrongSize) {
                fault(offset, "a block of size " + std::to_string(child.header.size) + ", the least is 8");
                rest(offset, remaining);
            } else if (step == BlockCursor::cutHeader) {
                if (parent.missing == 0) {
                    fault(offset, counted(remaining, "byte") + " where a block should begin, its header has 8");
                }
                rest(offset, remaining);
            }
        }
        unsigned short const base = parent.layout != nullptr ? parent.layout->baseClass : 0;
        if (base != 0 && !parent.hasBase && parent.missing == 0) {
            fault(offsetOf(parent.start), std::string("no ") + blockLayout(base, nullptr)->name + " inside");
        }
    }

    BlockFaults const& faults() const { return faults_; }

private:
    void block(BlockChild child, std::uint32_t available, Parent& parent) {
        std::uint16_t const type = child.header.type;
        BlockLayout const* const layout = blockLayout(type, parent.layout);
        BlockChildKind const* const kind = parent.layout == nullptr ? nullptr : parent.layout->childOf(type);
        bool const isTooDeep = layout != nullptr && depth_ == blockDepthMax;
        BlockNode node = {};
        node.offset = offsetOf(child.start);
        node.header = child.header;
        node.name = layout != nullptr ? layout->name : kind != nullptr ? kind->name : nullptr;
        node.isContainer = layout != nullptr && !isTooDeep;
        node.isRead = parent.layout == nullptr || parent.layout->reads(type);
        node.body = std::string_view(reinterpret_cast<char const*>(child.body()), available - BlockHeader::bytes);
        parent.hasBase = parent.hasBase || (parent.layout != nullptr && parent.layout->baseClass == type);

        visitor_.begin(node);
        std::uint32_t const missing = child.header.size - available;
        if (missing > parent.missing) {  // otherwise the parent's end is missing, and this one's with it
            fault(node.offset, "cut short: " + std::to_string(available) + " of " + counted(child.header.size, "byte") +
                                   " are here");
        }
        child.header.size = available;
        if (node.isContainer) {
            container(node, child, {layout, child.start, missing});
        } else if (layout == nullptr && kind != nullptr) {
            leaf(node, child, *kind, parent, missing != 0);
        } else {
            if (isTooDeep) {
                fault(node.offset, "more than " + std::to_string(blockDepthMax) + " blocks inside each other");
            }
            visitor_.bytes(node);
        }
        visitor_.end();
    }

    // The library does not read a class whose format it does not know, but where it finds one class
    // inside another it reads the inner one all the same. Showing all there is helps more.
    void container(BlockNode const& node, BlockChild const& child, Parent const& parent) {
        if (child.header.format != blockFormat) {
            wrongFormat(node);
        }
        ++depth_;
        blocks(BlockCursor(child.start, child.header.size), parent);
        --depth_;
    }

    void leaf(BlockNode const& node, BlockChild const& child, BlockChildKind const& kind, Parent& parent, bool isCut) {
        ChildFault const found = faultOf(kind, child);
        if (found == ChildFault::wrongFormat) {
            wrongFormat(node);
            visitor_.bytes(node);
            return;
        }
        if (found == ChildFault::tooShort && !isCut) {
            fault(node.offset,
                  counted(node.body.size(), "byte") + " of fields, the least is " + std::to_string(kind.leastBody));
        } else if (found == ChildFault::unterminated && !isCut) {
            fault(node.offset, "a text without its zero byte");
        }
        if (kind.content == BlockChildKind::fields) {
            rememberItemId(child, parent);
            visitor_.fields(node, parent.layout->fields);
        } else if (kind.content == BlockChildKind::text || isTextItem(parent.itemId) || isTraceItem(parent.itemId)) {
            visitor_.text(node, isTraceItem(parent.itemId));
        } else {
            visitor_.bytes(node);
        }
    }

    // The data of an item stands behind the field that tells what they are.
    static void rememberItemId(BlockChild const& child, Parent& parent) {
        for (BlockField const& field : parent.layout->fields) {
            if (field.meaning == FieldMeaning::itemId && field.offset + field.size <= child.bodySize()) {
                parent.itemId = fieldNumber(field, child.body());
            }
        }
    }

    void wrongFormat(BlockNode const& node) {
        fault(node.offset,
              "format " + std::to_string(node.header.format) + ", only " + std::to_string(blockFormat) + " is known");
    }

    void fault(std::size_t offset, std::string const& what) {
        if (faults_.count++ == 0) {
            faults_.first = "at 0x" + hexDigits(offset, 4) + ": " + what;
        }
        visitor_.fault(what);
    }

    void rest(std::size_t offset, std::size_t size) {
        visitor_.rest(offset, std::string_view(reinterpret_cast<char const*>(input_) + offset, size));
    }

    std::size_t offsetOf(unsigned char const* place) const { return static_cast<std::size_t>(place - input_); }

    unsigned char* input_;
    BlockVisitor& visitor_;
    BlockFaults faults_;
    int depth_ = 0;
};

}  // namespace

BlockFaults walkBlocks(std::string& input, BlockVisitor& visitor) {
    Walk walk(input, visitor);
    auto* const start = reinterpret_cast<unsigned char*>(input.data());
    walk.blocks(BlockCursor::overSequence(start, static_cast<std::uint32_t>(input.size())), {nullptr, start});
    return walk.faults();
}

}  // namespace zelq
