#include "recordreader.h"

#include <cctype>

#include <rapidjson/document.h>
#include <rapidjson/error/en.h>

#include "services/jsonmemory.h"
#include "timetext.h"

namespace zelq {
namespace {

using Document = rapidjson::GenericDocument<rapidjson::UTF8<>, rapidjson::MemoryPoolAllocator<JsonMemory>, JsonMemory>;
using Value = Document::ValueType;

int base64Digit(char c) {
    if (c >= 'A' && c <= 'Z') {
        return c - 'A';
    }
    if (c >= 'a' && c <= 'z') {
        return c - 'a' + 26;
    }
    if (c >= '0' && c <= '9') {
        return c - '0' + 52;
    }
    return c == '+' ? 62 : c == '/' ? 63 : -1;
}

// Strict: padding only at the end and always there, no line ends.
bool decodeBase64(std::string_view text, std::string* bytes) {
    if (text.size() % 4 != 0) {
        return false;
    }
    std::size_t padding = 0;
    while (padding < 2 && !text.empty() && text.back() == '=') {
        text.remove_suffix(1);
        ++padding;
    }
    bytes->reserve(text.size() / 4 * 3 + 3);
    unsigned group = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        int const digit = base64Digit(text[i]);
        if (digit < 0) {
            return false;
        }
        group = group << 6 | static_cast<unsigned>(digit);
        if (i % 4 != 0) {  // the second to fourth digit each complete a byte
            *bytes += static_cast<char>(group >> (6 - i % 4 * 2) & 0xFF);
        }
    }
    return true;
}

/// Takes fields out of a JSON object; the first that is not what it should be gives the reason.
class FieldReader {
public:
    FieldReader(Value const& object, std::string* reason) : object_(object), reason_(reason) {}

    Value const* find(char const* name) {
        auto const found = object_.FindMember(name);
        return found == object_.MemberEnd() ? nullptr : &found->value;
    }

    void read(char const* name, std::uint64_t* number) {
        if (Value const* const value = find(name); value != nullptr) {
            value->IsUint64() ? void(*number = value->GetUint64()) : fail(name, "is not a number");
        }
    }

    bool read(char const* name, std::string* text) {
        Value const* const value = find(name);
        if (value == nullptr) {
            return false;
        }
        value->IsString() ? void(text->assign(value->GetString(), value->GetStringLength()))
                          : fail(name, "is not a string");
        return true;
    }

    bool readBase64(char const* name, std::string* bytes) {
        std::string text;
        if (!read(name, &text)) {
            return false;
        }
        bytes->clear();
        if (!decodeBase64(text, bytes)) {
            fail(name, "is not base64");
        }
        return true;
    }

    void fail(char const* name, char const* what) {
        if (reason_->empty()) {
            *reason_ = std::string("field '") + name + "' " + what;
        }
    }

private:
    Value const& object_;
    std::string* reason_;
};

void readItem(Value const& value, std::string* reason, RecordItem* item) {
    FieldReader reader(value, reason);
    std::uint64_t size = 0;
    reader.read("id", &item->id);
    reader.read("size", &size);
    item->isText = reader.read("text", &item->bytes);
    if (!item->isText && !reader.readBase64("base64", &item->bytes)) {
        reader.fail("items", "has an item without data");
    }
    // A text is stored without its closing zero byte, which only the size tells of.
    if (item->isText && size == item->bytes.size() + 1) {
        item->bytes += '\0';
    }
    if (size != item->bytes.size()) {
        reader.fail("size", "differs from the size of the data");
    }
}

void readLists(FieldReader& reader, std::string* reason, Record* record) {
    if (Value const* const flags = reader.find("flags"); flags != nullptr) {
        if (!flags->IsArray()) {
            reader.fail("flags", "is not a list");
            return;
        }
        for (Value const& flag : flags->GetArray()) {
            if (flag.IsString()) {
                record->flags.emplace_back(flag.GetString(), flag.GetStringLength());
            }
        }
    }
    if (Value const* const items = reader.find("items"); items != nullptr) {
        if (!items->IsArray()) {
            reader.fail("items", "is not a list");
            return;
        }
        for (Value const& value : items->GetArray()) {
            if (!value.IsObject()) {
                reader.fail("items", "holds something that is not an object");
                return;
            }
            readItem(value, reason, &record->items.emplace_back());
        }
    }
}

// RapidJSON's messages are sentences; here they become the end of one.
std::string parseError(Document const& document) {
    std::string reason = rapidjson::GetParseError_En(document.GetParseError());
    reason[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(reason[0])));
    while (!reason.empty() && reason.back() == '.') {
        reason.pop_back();
    }
    return reason + ", at byte " + std::to_string(document.GetErrorOffset() + 1);
}

}  // namespace

std::string parseRecord(std::string_view line, Record* record) {
    if (line.find('\0') != std::string_view::npos) {
        return "zero byte, at byte " + std::to_string(line.find('\0') + 1);  // where the parser would stop
    }
    // Iterative: a line of a million brackets may cost memory, but not the stack.
    rapidjson::MemoryPoolAllocator<JsonMemory> pool(64 * 1024);
    JsonMemory stack;
    Document document(&pool, 1024, &stack);
    document.Parse<rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag>(line.data(), line.size());
    if (document.HasParseError()) {
        return parseError(document);
    }
    if (!document.IsObject()) {
        return "not an object";
    }
    std::string reason;
    std::string time;
    FieldReader reader(document, &reason);
    if (!reader.read("id", &record->id) || !reader.read("time", &time)) {
        return "not a record, it has no id or no time";
    }
    if (reason.empty() && !parseStoredTime(time, &record->timeUs)) {
        reader.fail("time", "is not a time");
    }
    reader.read("host", &record->host);
    reader.read("program", &record->program);
    reader.read("pid", &record->pid);
    reader.read("tid", &record->tid);
    reader.read("class", &record->logClass);
    reader.read("type", &record->logType);
    reader.read("user", &record->user);
    reader.read("severity", &record->severity);
    reader.read("attributes", &record->attributes);
    reader.read("event", &record->event);
    // Where the exact bytes are given, they count; the text beside them has replacements in it.
    reader.readBase64("event_base64", &record->event);
    reader.read("log_id", &record->logId);
    reader.readBase64("log_id_base64", &record->logId);
    reader.read("lost_before", &record->lostBefore);
    readLists(reader, &reason, record);
    return reason;
}

}  // namespace zelq
