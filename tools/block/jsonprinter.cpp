#include "tools/block/jsonprinter.h"

#include <algorithm>

#include "common/text.h"

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

}  // namespace

BlockJsonPrinter::BlockJsonPrinter(Output& output) : stream_(output), writer_(stream_, &memory_, 16), levels_(1) {}

void BlockJsonPrinter::begin(BlockNode const& node) {
    Level& parent = levels_.back();
    if (levels_.size() > 1 && !parent.hasChildren) {
        parent.hasChildren = true;
        writer_.Key("children");
        writer_.StartArray();
    }
    writer_.StartObject();
    write("offset", node.offset);
    if (node.name != nullptr) {
        write("name", node.name);
    }
    write("type", node.header.type);
    write("format", node.header.format);
    write("size", node.header.size);
    levels_.emplace_back();
}

void BlockJsonPrinter::end() {
    endChildren();
    writeFaults();
    writer_.EndObject();
    levels_.pop_back();
    if (levels_.size() == 1) {
        endLine();
    }
}

void BlockJsonPrinter::fields(BlockNode const& node, TableRange<BlockField> fields) {
    auto const* const body = reinterpret_cast<unsigned char const*>(node.body.data());
    auto const forEach = [&](auto write) {
        for (BlockField const& field : fields) {
            if (field.offset + field.size <= node.body.size()) {
                write(field);
            }
        }
    };
    writer_.Key("fields");
    writer_.StartObject();
    forEach([&](BlockField const& field) {
        if (field.isText) {
            write(keyOf(field.name), textOf(node.body.substr(field.offset, field.size)));
        } else {
            writer_.Key(keyOf(field.name).c_str());
            writer_.Int64(fieldNumber(field, body));
        }
    });
    writer_.EndObject();
    writer_.Key("words");
    writer_.StartObject();
    forEach([&](BlockField const& field) {
        std::string const words = field.isText ? "" : fieldWords(field, fieldNumber(field, body));
        if (!words.empty()) {
            write(keyOf(field.name), words);
        }
    });
    writer_.EndObject();
    writeHex("hex", node.body);
}

void BlockJsonPrinter::text(BlockNode const& node, bool) {
    write("text", textOf(node.body));
    writeHex("hex", node.body);
}

void BlockJsonPrinter::bytes(BlockNode const& node) {
    writeHex("hex", node.body);
}

void BlockJsonPrinter::rest(std::size_t offset, std::string_view bytes) {
    bool const isBehindAll = levels_.size() == 1;
    if (isBehindAll) {
        writer_.StartObject();
        write("offset", offset);
    }
    endChildren();
    writeHex("rest", bytes);
    if (isBehindAll) {
        writeFaults();
        writer_.EndObject();
        endLine();
    }
}

void BlockJsonPrinter::fault(std::string const& what) {
    levels_.back().faults.push_back(what);
}

void BlockJsonPrinter::write(char const* name, std::uint64_t number) {
    writer_.Key(name);
    writer_.Uint64(number);
}

void BlockJsonPrinter::write(std::string_view name, std::string_view text) {
    writer_.Key(name.data(), static_cast<rapidjson::SizeType>(name.size()));
    writer_.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
}

void BlockJsonPrinter::writeHex(char const* name, std::string_view bytes) {
    std::string digits(2 * bytes.size(), '0');
    char* end = digits.data();
    for (char const c : bytes) {
        end = putHexDigits(end, static_cast<unsigned char>(c), 2);
    }
    write(name, digits);
}

void BlockJsonPrinter::endChildren() {
    if (levels_.back().hasChildren) {
        levels_.back().hasChildren = false;
        writer_.EndArray();
    }
}

void BlockJsonPrinter::writeFaults() {
    if (levels_.back().faults.empty()) {
        return;
    }
    writer_.Key("faults");
    writer_.StartArray();
    for (std::string const& what : levels_.back().faults) {
        writer_.String(what.data(), static_cast<rapidjson::SizeType>(what.size()));
    }
    writer_.EndArray();
    levels_.back().faults.clear();
}

void BlockJsonPrinter::endLine() {
    stream_.Put('\n');
    stream_.Flush();
    writer_.Reset(stream_);
}

void BlockJsonPrinter::Stream::Put(char c) {
    pending_.push_back(c);
    if (pending_.size() == 4096) {
        Flush();
    }
}

void BlockJsonPrinter::Stream::Flush() {
    output_.print(pending_);
    pending_.clear();
}

}  // namespace zelq
