#include "store/recordreader.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <utility>

#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include "common/calendar.h"
#include "common/text.h"
#include "store/jsonmemory.h"

namespace zelq {
namespace {

// A record is four levels deep; what later versions may add will hardly be deeper than this.
constexpr int depthMax = 64;
constexpr std::size_t textsMax = 64;

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
        for (Exact& exact : exact_) {
            record_.*exact.text = std::move(exact.bytes);
        }
        return (hasId_ && hasTime_) || fail("not a record, it has no id or no time");
    }

    bool Default() { return value(Kind::other, {}, 0); }
    bool Uint(unsigned number) { return value(Kind::number, {}, number); }
    bool Uint64(std::uint64_t number) { return value(Kind::number, {}, number); }
    bool String(char const* text, rapidjson::SizeType size, bool) { return value(Kind::text, {text, size}, 0); }

    bool Key(char const* text, rapidjson::SizeType size, bool) {
        if (!isSkipping()) {
            (depth_ == inItem ? itemField_ : fieldName_).assign(text, size);
        }
        if (!isSkipping() && depth_ == inRecord) {
            findField();
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
    using Field = RecordField<std::string>;

    struct Exact {
        std::string Record::*text;
        std::string bytes;
    };

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
                                        ? kind == Kind::list && isList()
                                        : depth_ == inList && kind == Kind::object && items() != nullptr;
            if (!isExpected && !value(kind, {}, 0)) {
                return false;
            }
            if (!isExpected) {
                skippedDepth_ = depth_ + 1;
            } else if (depth_ == inList) {
                items()->push_back({0, false, {}});
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

    void findField() {
        std::string_view const name = fieldName_;
        auto const isNamed = [name](Field const& field) { return field.name == name; };
        auto const* const end = std::end(recordFields<std::string>);
        auto const* found = std::find_if(std::begin(recordFields<std::string>), end, isNamed);
        isExact_ = found == end && name.size() > exactSuffix.size() &&
                   name.substr(name.size() - exactSuffix.size()) == exactSuffix;
        if (isExact_) {
            auto const isOfText = [text = name.substr(0, name.size() - exactSuffix.size())](Field const& field) {
                return field.name == text && field.rule == FieldRule::exactBytes;
            };
            found = std::find_if(std::begin(recordFields<std::string>), end, isOfText);
        }
        field_ = found == end ? nullptr : found;
    }

    template <class Member>
    Member const* memberAs() const {
        return field_ == nullptr ? nullptr : std::get_if<Member>(&field_->member);
    }

    std::vector<RecordItem>* items() const {
        auto const* const member = memberAs<std::vector<RecordItem> Record::*>();
        return member == nullptr ? nullptr : &(record_.**member);
    }

    bool isList() const { return items() != nullptr || memberAs<std::vector<std::string> Record::*>() != nullptr; }

    bool recordField(Kind kind, std::string_view text, std::uint64_t number) {
        if (auto const* const count = memberAs<std::uint64_t Record::*>()) {
            record_.** count = number;
            return kind == Kind::number || fail(fieldName_, "is not a number");
        }
        if (auto const* const characters = memberAs<std::string Record::*>()) {
            return textField(*characters, kind, text);
        }
        if (auto const* const time = memberAs<long long Record::*>()) {
            return timeField(*time, kind, text);
        }
        return !isList() || fail(fieldName_, "is not a list");
    }

    bool textField(std::string Record::*member, Kind kind, std::string_view text) {
        if (kind != Kind::text) {
            return fail(fieldName_, "is not a string");
        }
        hasId_ = hasId_ || member == &Record::id;
        if (!isExact_) {
            (record_.*member).assign(text);
            return true;
        }
        auto const known =
            std::find_if(exact_.begin(), exact_.end(), [member](Exact const& exact) { return exact.text == member; });
        Exact& exact = known == exact_.end() ? exact_.emplace_back(Exact{member, {}}) : *known;
        return decode(fieldName_, text, exact.bytes);
    }

    bool timeField(long long Record::*member, Kind kind, std::string_view text) {
        if (kind != Kind::text) {
            return fail(fieldName_, "is not a string");
        }
        std::optional<long long> const time = parseStoredTime(text);
        record_.*member = time.value_or(0);
        hasTime_ = hasTime_ || member == &Record::timeUs;
        return time.has_value() || fail(fieldName_, "is not a time");
    }

    bool decode(std::string_view name, std::string_view text, std::string& bytes) {
        std::optional<std::string> decoded = decodeBase64(text);
        bytes = std::move(decoded).value_or("");
        return decoded.has_value() || fail(name, "is not base64");
    }

    bool listEntry(Kind kind, std::string_view text) {
        auto const* const texts = memberAs<std::vector<std::string> Record::*>();
        if (texts == nullptr) {
            return fail(fieldName_, "holds something that is not an object");
        }
        if ((record_.**texts).size() == textsMax) {
            return fail(fieldName_, "holds too many");
        }
        if (kind == Kind::text) {
            (record_.**texts).emplace_back(text);
        }
        return true;
    }

    bool itemField(Kind kind, std::string_view text, std::uint64_t number) {
        RecordItem& item = items()->back();
        if (itemField_ == itemFields::id || itemField_ == itemFields::size) {
            (itemField_ == itemFields::id ? item.id : itemSize_) = number;
            return kind == Kind::number || fail(itemField_, "is not a number");
        }
        if (itemField_ == itemFields::text) {
            item.isText = true;
            item.bytes.assign(text);
            hasData_ = true;
            return kind == Kind::text || fail(itemField_, "is not a string");
        }
        if (itemField_ == itemFields::base64 && !item.isText) {
            hasData_ = true;
            return kind == Kind::text ? decode(itemField_, text, item.bytes) : fail(itemField_, "is not a string");
        }
        return true;
    }

    bool finishItem() {
        RecordItem& item = items()->back();
        if (!hasData_) {
            return fail(fieldName_, "has an item without data");
        }
        // A text is stored without its closing zero byte, which only the size tells of.
        if (item.isText && itemSize_ == item.bytes.size() + 1) {
            item.bytes += '\0';
        }
        return itemSize_ == item.bytes.size() || fail(itemFields::size, "differs from the size of the data");
    }

    Record& record_;
    std::string reason_;
    int depth_ = outside;
    int skippedDepth_ = 0;  // of the container whose contents are passed over, 0 when none is
    std::string fieldName_;
    Field const* field_ = nullptr;  // null when it is not known
    bool isExact_ = false;          // its bytes are being given, beside its text
    std::vector<Exact> exact_;
    std::string itemField_;
    std::uint64_t itemSize_ = 0;
    bool hasData_ = false;
    bool hasId_ = false;
    bool hasTime_ = false;
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
