#ifndef ZELQ_TOOLS_TERMINAL_JSON_H
#define ZELQ_TOOLS_TERMINAL_JSON_H

#include <cstdint>
#include <string>
#include <string_view>

#include <rapidjson/writer.h>

#include "store/jsonmemory.h"
#include "tools/terminal/output.h"

namespace zelq {

/// The output as a stream of RapidJSON's, whose function names these are.
struct JsonStream {
    using Ch = char;
    void Put(char c) { output.raw({&c, 1}); }
    void Flush() {}

    Output& output;
};

/// Writes JSON to the output, an object a line.
class JsonLines : public rapidjson::Writer<JsonStream, rapidjson::UTF8<>, rapidjson::UTF8<>, JsonMemory> {
public:
    explicit JsonLines(Output& output) : Writer(stream_, &memory_), stream_{output} {}

    void key(std::string_view name) { Key(name.data(), static_cast<rapidjson::SizeType>(name.size())); }
    void string(std::string_view text) { String(text.data(), static_cast<rapidjson::SizeType>(text.size())); }
    void field(std::string_view name, std::string_view text) {
        key(name);
        string(text);
    }
    void field(std::string_view name, std::uint64_t number) {
        key(name);
        Uint64(number);
    }

    /// A field with the bytes as text. As in the store: where they are not UTF-8, they stand beside it
    /// in NAME_base64.
    void exactField(std::string const& name, std::string_view bytes) {
        std::string text;
        appendReplacingInvalid(bytes, text);
        field(name, text);
        if (text != bytes) {
            std::string exact;
            appendBase64(bytes, exact);
            field(name + "_base64", exact);
        }
    }

    void endLine() {
        stream_.Put('\n');
        Reset(stream_);
    }

private:
    JsonStream stream_;
    JsonMemory memory_;
};

}  // namespace zelq

#endif
