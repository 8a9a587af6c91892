#include "store/recordreader.h"

#include <cctype>
#include <cstring>

#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include "common/text.h"
#include "store/jsonmemory.h"
#include "tools/commandline/timetext.h"

namespace zelq {
namespace {

// A record is four levels deep; what later versions may add will hardly be deeper than this.
constexpr int depthMax = 64;
constexpr std::size_t flagsMax = 64;

struct NumberField {
    std::string_view name;
    std::uint64_t Record::*value;
};

struct TextField {
    std::string_view name;
    std::string Record::*value;
};

constexpr NumberField numberFields[] = {
    {"v", &Record::version},
    {"pid", &Record::pid},
    {"tid", &Record::tid},
    {"class", &Record::logClass},
    {"type", &Record::logType},
    {"user", &Record::user},
    {"attributes", &Record::attributes},
    {"lost_before", &Record::lostBefore},
};

constexpr TextField textFields[] = {
    {"id", &Record::id},           {"host", &Record::host},
    {"program", &Record::program}, {"severity", &Record::severity},
    {"event", &Record::event},     {"log_id", &Record::logId},
};

/// Gets the pieces of a line from RapidJSON, whose function names these are, and puts them into a
/// record. Nothing is kept beside it: a hostile line costs no more memory than its own length.
/// The first field that is not what it should be ends the reading.
class RecordHandler : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, RecordHandler> {
public:
    explicit RecordHandler(Record& record) : record_(record) {}

    std::string const& reason() const { return reason_; }

    /// To be called when the line has been read.
    bool finish() {
        // Where the exact bytes are given, they count; the text beside them has replacements in it.
        if (hasExactEvent_) {
            record_.event = std::move(exactEvent_);
        }
        if (hasExactLogId_) {
            record_.logId = std::move(exactLogId_);
        }
        return (hasId_ && hasTime_) || fail("not a record, it has no id or no time");
    }

    bool Default() { return value(Kind::other, {}, 0); }
    bool Uint(unsigned number) { return value(Kind::number, {}, number); }
    bool Uint64(std::uint64_t number) { return value(Kind::number, {}, number); }
    bool String(char const* text, rapidjson::SizeType size, bool) { return value(Kind::text, {text, size}, 0); }

    bool Key(char const* text, rapidjson::SizeType size, bool) {
        if (!isSkipping()) {
            (depth_ == inItem ? itemField_ : field_).assign(text, size);
        }
        return true;
    }

    bool StartObject() { return enter(Kind::object); }
    bool StartArray() { return enter(Kind::list); }

    bool EndObject(rapidjson::SizeType) {
        bool const isItem = depth_ == inItem && !isSkipping();
        leave();
        return !isItem || finishItem();
    }

    bool EndArray(rapidjson::SizeType) {
        leave();
        return true;
    }

private:
    enum class Kind { number, text, object, list, other };
    enum Depth { outside, inRecord, inList, inItem };

    bool isSkipping() const { return skippedDepth_ != 0; }

    bool fail(std::string reason) {
        reason_ = std::move(reason);
        return false;
    }

    bool fail(std::string_view name, char const* what) { return fail("field '" + std::string(name) + "' " + what); }

    bool enter(Kind kind) {
        if (depth_ == depthMax) {
            return fail("nested too deeply");
        }
        if (!isSkipping()) {
            bool const isExpected = depth_ == outside ? kind == Kind::object
                                    : depth_ == inRecord
                                        ? kind == Kind::list && (field_ == "items" || field_ == "flags")
                                        : depth_ == inList && kind == Kind::object && field_ == "items";
            if (!isExpected && !value(kind, {}, 0)) {
                return false;
            }
            if (!isExpected) {
                skippedDepth_ = depth_ + 1;
            } else if (depth_ == inList) {
                record_.items.push_back({0, false, {}});
                itemSize_ = 0;
                hasData_ = false;
            }
        }
        ++depth_;
        return true;
    }

    void leave() {
        if (depth_ == skippedDepth_) {
            skippedDepth_ = 0;
        }
        --depth_;
    }

    bool value(Kind kind, std::string_view text, std::uint64_t number) {
        if (isSkipping()) {
            return true;
        }
        switch (depth_) {
        case outside: return fail("not an object");
        case inRecord: return recordField(kind, text, number);
        case inList: return listEntry(kind, text);
        default: return itemField(kind, text, number);
        }
    }

    bool recordField(Kind kind, std::string_view text, std::uint64_t number) {
        for (NumberField const& field : numberFields) {
            if (field.name == field_) {
                record_.*field.value = number;
                return kind == Kind::number || fail(field_, "is not a number");
            }
        }
        for (TextField const& field : textFields) {
            if (field.name == field_) {
                (record_.*field.value).assign(text);
                hasId_ = hasId_ || field.value == &Record::id;
                return kind == Kind::text || fail(field_, "is not a string");
            }
        }
        if (field_ == "time") {
            hasTime_ = true;
            return kind != Kind::text                        ? fail(field_, "is not a string")
                   : !parseStoredTime(text, &record_.timeUs) ? fail(field_, "is not a time")
                                                             : true;
        }
        if (field_ == "event_base64") {
            hasExactEvent_ = true;
            return exactBytes(field_, kind, text, &exactEvent_);
        }
        if (field_ == "log_id_base64") {
            hasExactLogId_ = true;
            return exactBytes(field_, kind, text, &exactLogId_);
        }
        return (field_ != "flags" && field_ != "items") || fail(field_, "is not a list");
    }

    bool exactBytes(std::string_view name, Kind kind, std::string_view text, std::string* bytes) {
        if (kind != Kind::text) {
            return fail(name, "is not a string");
        }
        std::optional<std::string> decoded = decodeBase64(text);
        if (!decoded.has_value()) {
            return fail(name, "is not base64");
        }
        *bytes = std::move(*decoded);
        return true;
    }

    bool listEntry(Kind kind, std::string_view text) {
        if (field_ == "items") {
            return fail(field_, "holds something that is not an object");
        }
        if (record_.flags.size() == flagsMax) {
            return fail(field_, "holds too many");
        }
        if (kind == Kind::text) {
            record_.flags.emplace_back(text);
        }
        return true;
    }

    bool itemField(Kind kind, std::string_view text, std::uint64_t number) {
        RecordItem& item = record_.items.back();
        if (itemField_ == "id" || itemField_ == "size") {
            (itemField_ == "id" ? item.id : itemSize_) = number;
            return kind == Kind::number || fail(itemField_, "is not a number");
        }
        if (itemField_ == "text") {
            item.isText = true;
            item.bytes.assign(text);
            hasData_ = true;
            return kind == Kind::text || fail(itemField_, "is not a string");
        }
        if (itemField_ == "base64" && !item.isText) {
            hasData_ = true;
            return exactBytes(itemField_, kind, text, &item.bytes);
        }
        return true;
    }

    bool finishItem() {
        RecordItem& item = record_.items.back();
        if (!hasData_) {
            return fail("items", "has an item without data");
        }
        // A text is stored without its closing zero byte, which only the size tells of.
        if (item.isText && itemSize_ == item.bytes.size() + 1) {
            item.bytes += '\0';
        }
        return itemSize_ == item.bytes.size() || fail("size", "differs from the size of the data");
    }

    Record& record_;
    std::string reason_;
    int depth_ = outside;
    int skippedDepth_ = 0;  // of the container whose contents are passed over, 0 when none is
    std::string field_;
    std::string itemField_;
    std::uint64_t itemSize_ = 0;
    bool hasData_ = false;
    bool hasId_ = false;
    bool hasTime_ = false;
    bool hasExactEvent_ = false;
    bool hasExactLogId_ = false;
    std::string exactEvent_;
    std::string exactLogId_;
};

// RapidJSON's messages are sentences; here they become the end of one.
std::string parseError(rapidjson::ParseResult const& result) {
    std::string reason = rapidjson::GetParseError_En(result.Code());
    reason[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(reason[0])));
    while (!reason.empty() && reason.back() == '.') {
        reason.pop_back();
    }
    return reason + ", at byte " + std::to_string(result.Offset() + 1);
}

}  // namespace

std::optional<RecordFault> parseRecord(std::string_view line, Record& record) {
    if (std::size_t const zero = line.find('\0'); zero != std::string_view::npos) {
        return RecordFault{"zero byte, at byte " + std::to_string(zero + 1), false};  // where the parser would stop
    }
    JsonMemory memory;
    rapidjson::GenericReader<rapidjson::UTF8<>, rapidjson::UTF8<>, JsonMemory> reader(&memory);
    rapidjson::MemoryStream stream(line.data(), line.size());
    RecordHandler handler(record);
    rapidjson::ParseResult const result = reader.Parse<rapidjson::kParseValidateEncodingFlag>(stream, handler);
    if (!handler.reason().empty()) {
        return RecordFault{handler.reason(), false};
    }
    if (result.IsError()) {
        // The service begins each line with a brace; one that ends in the middle is half a record.
        return RecordFault{parseError(result), !line.empty() && line[0] == '{' && result.Offset() >= line.size()};
    }
    return handler.finish() ? std::nullopt : std::optional(RecordFault{handler.reason(), false});
}

}  // namespace zelq
