#include "store/recordwriter.h"

#include <cstdio>
#include <cstring>

#include <rapidjson/writer.h>

#include "common/text.h"
#include "store/flagnames.h"
#include "store/jsonmemory.h"

namespace zelq {
namespace {

// Control characters but for those that shape a text.
bool isSteering(unsigned char const* character, std::size_t length) {
    unsigned char const first = character[0];
    return isControl(character, length) && first != '\n' && first != '\t' && first != '\r';
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

    void text(char const* characters) { String(characters, static_cast<rapidjson::SizeType>(std::strlen(characters))); }

    void field(char const* name, char const* characters) {
        text(name);
        text(characters);
    }

    void field(char const* name, std::uint64_t number) {
        text(name);
        Uint64(number);
    }

    void printableText(std::string_view text) {
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

    void base64(std::string_view bytes) {
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

/// A field of text that should be UTF-8 but comes from a caller: what is not valid is shown as
/// U+FFFD, and the exact bytes follow in a field of their own.
void writeName(LineWriter& writer, char const* name, char const* exactName, std::string_view bytes) {
    writer.text(name);
    if (isUtf8(bytes)) {
        writer.String(bytes.data(), static_cast<rapidjson::SizeType>(bytes.size()));
        return;
    }
    std::string shown;
    appendReplacingInvalid(bytes, shown);
    writer.String(shown.data(), static_cast<rapidjson::SizeType>(shown.size()));
    if (exactName != nullptr) {
        writer.text(exactName);
        writer.base64(bytes);
    }
}

// Text for everything that people can read as such; the rest is carried in base64. A program that
// counted the closing zero byte of a text has it counted here too.
void writeItem(LineWriter& writer, xlog_detail_entry const& entry) {
    std::string_view const bytes(static_cast<char const*>(entry.data), entry.data != nullptr ? entry.size : 0);
    bool const terminated = !bytes.empty() && bytes.back() == '\0';
    std::string_view const text = bytes.substr(0, bytes.size() - (terminated ? 1 : 0));
    writer.StartObject();
    writer.field("id", entry.id);
    writer.field("size", bytes.size());
    if (isPrintableText(text)) {
        writer.text("text");
        writer.printableText(text);
    } else {
        writer.text("base64");
        writer.base64(bytes);
    }
    writer.EndObject();
}

// One allocation instead of many for a long record: never much too small, base64 being the worst.
std::size_t likelySize(xlog_record_interface const& record) {
    std::size_t size = 1024;
    for (xlog_detail_entry const* entry = record.details; entry != nullptr; entry = entry->next) {
        size += 48 + (entry->data != nullptr ? entry->size / 3 * std::size_t{4} : 0);
    }
    return size;
}

// Not gmtime_r: that takes the C library's time zone lock, which a child forked at a bad moment
// finds taken for ever.
void formatTime(timespec const& time, char (&text)[64]) {
    long long const days = time.tv_sec / 86400;
    int const second = static_cast<int>(time.tv_sec % 86400);
    // Years are counted from March, so that the leap day is the last day of a year; 719468 days lie
    // between 1 March of the year 0 and 1970, and an era of 400 years has 146097.
    long long const shifted = days + 719468;
    long long const era = shifted / 146097;
    int const dayOfEra = static_cast<int>(shifted % 146097);
    int const yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    int const dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    int const monthFromMarch = (5 * dayOfYear + 2) / 153;
    int const day = dayOfYear - (153 * monthFromMarch + 2) / 5 + 1;
    int const month = monthFromMarch < 10 ? monthFromMarch + 3 : monthFromMarch - 9;
    int const year = static_cast<int>(era * 400) + yearOfEra + (month <= 2 ? 1 : 0);
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%06dZ", year, month, day, second / 3600,
                  second / 60 % 60, second % 60, static_cast<int>(time.tv_nsec / 1000));
}

}  // namespace

void renderRecord(xlog_record_interface const& record, RecordOrigin const& origin, std::uint64_t lostBefore,
                  std::string& line) {
    line.reserve(line.size() + likelySize(record));
    JsonMemory memory;
    LineStream stream(line);
    LineWriter writer(stream, memory);

    char id[20];
    std::snprintf(id, sizeof id, "%016llx", static_cast<unsigned long long>(origin.id));
    char time[64];
    formatTime(origin.time, time);

    writer.StartObject();
    writer.field("v", 1);
    writer.field("id", id);
    writer.field("time", time);
    writeName(writer, "host", nullptr, origin.host);
    writeName(writer, "program", nullptr, origin.program);
    writer.field("pid", static_cast<unsigned>(origin.pid));
    writer.field("tid", static_cast<unsigned>(origin.tid));
    writer.field("class", record.logClass);
    writer.field("type", record.logType);
    writer.field("user", record.user);
    writer.field("severity", (record.attributes & XLOG_ERROR) != 0 ? "error" : "informational");
    writer.text("flags");
    writer.StartArray();
    for (FlagName const& flag : flagNames) {
        if ((record.attributes & flag.bit) != 0) {
            writer.text(flag.name);
        }
    }
    writer.EndArray();
    writer.field("attributes", record.attributes);
    // Neither field need hold a zero byte: a full event name has none by definition, and a log id
    // without one is a caller's mistake that may not be paid for with a read past the record.
    writeName(writer, "event", "event_base64", {record.eventName, strnlen(record.eventName, sizeof record.eventName)});
    writeName(writer, "log_id", "log_id_base64", {record.logId, strnlen(record.logId, sizeof record.logId)});
    if (lostBefore > 0) {
        writer.field("lost_before", lostBefore);
    }
    writer.text("items");
    writer.StartArray();
    for (xlog_detail_entry const* entry = record.details; entry != nullptr; entry = entry->next) {
        writeItem(writer, *entry);
    }
    writer.EndArray();
    writer.EndObject();
    line.push_back('\n');
}

}  // namespace zelq
