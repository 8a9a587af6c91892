#include "store/recordwriter.h"

#include <cstring>

#include <rapidjson/writer.h>

#include "common/calendar.h"
#include "common/text.h"
#include "store/jsonmemory.h"
#include "store/severity.h"

namespace zelq {
namespace {

// Control characters but for those that shape a text.
bool isSteering(unsigned char const* character, std::size_t length) {
    unsigned char const first = character[0];
    return isControl(character, length) && first != '\n' && first != '\t' && first != '\r';
}

// A program that counted the closing zero byte of a text has it counted in the record too.
std::string_view withoutZero(std::string_view bytes) {
    return bytes.substr(0, bytes.size() - (!bytes.empty() && bytes.back() == '\0' ? 1 : 0));
}

bool isPrintableText(std::string_view text) {
    auto const* const bytes = reinterpret_cast<unsigned char const*>(text.data());
    std::size_t i = 0;
    while (i < text.size()) {
        if (text.size() - i >= 8 && isPrintableWord(textWord(bytes + i))) {
            i += 8;
            continue;
        }
        std::size_t const length = utf8Length(bytes + i, text.size() - i);
        if (length == 0 || isSteering(bytes + i, length)) {
            return false;
        }
        i += length;
    }
    return !text.empty();
}

/// The stream that RapidJSON writes to. Its function names are RapidJSON's.
class LineStream {
public:
    using Ch = char;

    explicit LineStream(std::string& line) : line_(line) {}
    void Put(char c) { line_.push_back(c); }
    void Flush() {}
    std::string& line() { return line_; }

private:
    std::string& line_;
};

/// RapidJSON's writer with two more kinds of string value. Item data is most of a long record, and
/// the writer's own string function looks at one character at a time.
class LineWriter : public rapidjson::Writer<LineStream, rapidjson::UTF8<>, rapidjson::UTF8<>, JsonMemory> {
public:
    LineWriter(LineStream& stream, JsonMemory& memory) : Writer(stream, &memory, 4) {}

    // RapidJSON's functions are inlined wherever they are called: ten times otherwise.
    [[gnu::noinline]] void number(std::uint64_t value) { Uint64(value); }
    [[gnu::noinline]] void beginObject() { StartObject(); }
    [[gnu::noinline]] void endObject() { EndObject(); }
    [[gnu::noinline]] void beginList() { StartArray(); }
    [[gnu::noinline]] void endList() { EndArray(); }

    void text(std::string_view characters) {
        String(characters.data(), static_cast<rapidjson::SizeType>(characters.size()));
    }

    [[gnu::noinline]] void printableText(std::string_view text) {
        Prefix(rapidjson::kStringType);
        std::string& line = os_->line();
        line.push_back('"');
        std::size_t begin = 0;
        for (std::size_t i = 0; i < text.size();) {
            if (text.size() - i >= 8 && needsNoEscape(textWord(text.data() + i))) {
                i += 8;
                continue;
            }
            char const escape = escapeOf(text[i]);
            if (escape != 0) {
                line.append(text.data() + begin, i - begin);
                line.push_back('\\');
                line.push_back(escape);
                begin = i + 1;
            }
            ++i;
        }
        line.append(text.data() + begin, text.size() - begin);
        line.push_back('"');
        EndValue(true);
    }

    [[gnu::noinline]] void base64(std::string_view bytes) {
        Prefix(rapidjson::kStringType);
        std::string& line = os_->line();
        line.push_back('"');
        appendBase64(bytes, line);
        line.push_back('"');
        EndValue(true);
    }

private:
    static bool needsNoEscape(unsigned long long word) {
        return isPrintableWord(word) && !containsByte(word, '"') && !containsByte(word, '\\');
    }

    // Of the characters in printable text, only these five may not stand in JSON as they are.
    static char escapeOf(char c) {
        switch (c) {
        case '"': return '"';
        case '\\': return '\\';
        case '\n': return 'n';
        case '\t': return 't';
        case '\r': return 'r';
        default: return 0;
        }
    }
};

/// Writes the value of one field, with its name before it.
class FieldWriter {
public:
    FieldWriter(LineWriter& writer, RecordField<std::string_view> const& field) : writer_(writer), field_(field) {}

    void operator()(std::uint64_t number) {
        if (number != 0 || field_.rule != FieldRule::unlessZero) {
            writer_.text(field_.name);
            writer_.number(number);
        }
    }

    // Should be UTF-8, but comes from a caller: what is not valid is shown as U+FFFD.
    void operator()(std::string_view text) {
        writer_.text(field_.name);
        if (isUtf8(text)) {
            writer_.text(text);
            return;
        }
        std::string shown;
        appendReplacingInvalid(text, shown);
        writer_.text(shown);
        if (field_.rule == FieldRule::exactBytes) {
            writer_.text(std::string(field_.name).append(exactSuffix));
            writer_.base64(text);
        }
    }

    void operator()(long long timeUs) {
        writer_.text(field_.name);
        writer_.text(storedTime(timeUs));
    }

    template <class Entry>
    void operator()(std::vector<Entry> const& list) {
        writer_.text(field_.name);
        writer_.beginList();
        for (Entry const& entry : list) {
            write(entry);
        }
        writer_.endList();
    }

private:
    void write(std::string_view text) { writer_.text(text); }

    void write(RecordItemView const& item) {
        writer_.beginObject();
        writer_.text(itemFields::id);
        writer_.number(item.id);
        writer_.text(itemFields::size);
        writer_.number(item.bytes.size());
        writer_.text(item.isText ? itemFields::text : itemFields::base64);
        if (item.isText) {
            writer_.printableText(withoutZero(item.bytes));
        } else {
            writer_.base64(item.bytes);
        }
        writer_.endObject();
    }

    LineWriter& writer_;
    RecordField<std::string_view> const& field_;
};

// One allocation instead of many for a long record: never much too small, base64 being the worst.
std::size_t likelySize(RecordView const& record) {
    std::size_t size = 1024;
    for (RecordItemView const& item : record.items) {
        size += 48 + item.bytes.size() / 3 * 4;
    }
    return size;
}

// Neither field need hold a zero byte: a full event name has none by definition, and a log id without one
// is a caller's mistake that may not be paid for with a read past the record.
template <std::size_t Size>
std::string_view textIn(char const (&characters)[Size]) {
    return {characters, strnlen(characters, Size)};
}

}  // namespace

RecordView viewOf(xlog_record_interface const& record) {
    RecordView view;
    view.version = knownVersion;
    view.logClass = record.logClass;
    view.logType = record.logType;
    view.user = record.user;
    view.severity = severityOf(record.attributes).stored;
    for (xlog_attribute_name const& flag : xlog_attribute_names) {
        if ((record.attributes & flag.bit) != 0) {
            view.flags.emplace_back(flag.name);
        }
    }
    view.attributes = record.attributes;
    view.event = textIn(record.eventName);
    view.logId = textIn(record.logId);
    std::size_t count = 0;
    for (xlog_detail_entry const* entry = record.details; entry != nullptr; entry = entry->next) {
        ++count;
    }
    view.items.reserve(count);
    for (xlog_detail_entry const* entry = record.details; entry != nullptr; entry = entry->next) {
        std::string_view const bytes(static_cast<char const*>(entry->data), entry->data != nullptr ? entry->size : 0);
        view.items.push_back({entry->id, isPrintableText(withoutZero(bytes)), bytes});
    }
    return view;
}

void renderRecord(RecordView const& record, std::string& line) {
    line.reserve(line.size() + likelySize(record));
    JsonMemory memory;
    LineStream stream(line);
    LineWriter writer(stream, memory);
    writer.beginObject();
    for (RecordField<std::string_view> const& field : recordFields<std::string_view>) {
        std::visit([&](auto member) { FieldWriter(writer, field)(record.*member); }, field.member);
    }
    writer.endObject();
    line.push_back('\n');
}

}  // namespace zelq
