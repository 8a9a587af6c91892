// zelq block -o json

#include <algorithm>
#include <vector>

#include "tools/block/command.h"
#include "tools/terminal/json.h"

namespace zelq {
namespace {

std::string keyOf(char const* name) {
    std::string key = name;
    std::replace(key.begin(), key.end(), ' ', '_');
    return key;
}

// JSON has no place for bytes that are not UTF-8; they stand in the hexadecimal digits.
std::string textOf(std::string_view bytes) {
    std::string text;
    std::string_view const characters = bytes.substr(0, bytes.find('\0'));
    appendReplacingInvalid(characters, text);
    return text;
}

class JsonPrinter : public BlockVisitor {
public:
    explicit JsonPrinter(Output& output) : writer_(output), levels_(1) {}

    void begin(BlockNode const& node) override {
        Level& parent = levels_.back();
        if (levels_.size() > 1 && !parent.hasChildren) {
            parent.hasChildren = true;
            writer_.key("children");
            writer_.StartArray();
        }
        writer_.StartObject();
        writer_.field("offset", node.offset);
        if (node.name != nullptr) {
            writer_.field("name", node.name);
        }
        writer_.field("type", node.header.type);
        writer_.field("format", node.header.format);
        writer_.field("size", node.header.size);
        levels_.emplace_back();
    }

    void end() override {
        endChildren();
        endObject();
        levels_.pop_back();
        endOutermost();
    }

    void fields(BlockNode const& node, TableRange<BlockField> fields) override {
        auto const* const body = reinterpret_cast<unsigned char const*>(node.body.data());
        auto const object = [&](char const* name, auto write) {
            writer_.key(name);
            writer_.StartObject();
            for (BlockField const& field : fields) {
                if (field.offset + field.size <= node.body.size()) {
                    write(field);
                }
            }
            writer_.EndObject();
        };
        object("fields", [&](BlockField const& field) {
            writer_.key(keyOf(field.name));
            if (field.isText) {
                writer_.string(textOf(node.body.substr(field.offset, field.size)));
            } else {
                writer_.Int64(fieldNumber(field, body));
            }
        });
        object("words", [&](BlockField const& field) {
            std::string const words = field.isText ? "" : fieldWords(field, fieldNumber(field, body));
            if (!words.empty()) {
                writer_.field(keyOf(field.name), words);
            }
        });
        bytes(node);
    }

    void text(BlockNode const& node, bool) override {
        writer_.field("text", textOf(node.body));
        bytes(node);
    }

    void bytes(BlockNode const& node) override { writer_.field("hex", hexText(node.body)); }

    void rest(std::size_t offset, std::string_view bytes) override {
        bool const isBehindAll = levels_.size() == 1;
        if (isBehindAll) {
            writer_.StartObject();
            writer_.field("offset", offset);
        }
        endChildren();
        writer_.field("rest", hexText(bytes));
        if (isBehindAll) {
            endObject();
            endOutermost();
        }
    }

    void fault(std::string const& what) override { levels_.back().faults.push_back(what); }

private:
    /// An object that is being written; the first one stands for the input.
    struct Level {
        bool hasChildren = false;
        std::vector<std::string> faults;
    };

    void endChildren() {
        if (levels_.back().hasChildren) {
            levels_.back().hasChildren = false;
            writer_.EndArray();
        }
    }

    void endObject() {
        std::vector<std::string>& faults = levels_.back().faults;
        if (!faults.empty()) {
            writer_.key("faults");
            writer_.StartArray();
            for (std::string const& what : faults) {
                writer_.string(what);
            }
            writer_.EndArray();
            faults.clear();
        }
        writer_.EndObject();
    }

    void endOutermost() {
        if (levels_.size() == 1) {
            writer_.endLine();
        }
    }

    JsonLines writer_;
    std::vector<Level> levels_;
};

}  // namespace

BlockFaults printBlockJson(std::string& input, Output& output) {
    JsonPrinter printer(output);
    return walkBlocks(input, printer);
}

}  // namespace zelq
