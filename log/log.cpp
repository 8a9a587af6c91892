#include "zelqcood/log.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>
#include <new>

#include "block/reader.h"
#include "block/writer.h"
#include "log/layout.h"
#include "log/rollback.h"
#include "trace/message.h"
#include "zelqplatform/errorlog_service.h"

namespace {

using namespace logLayout;

constexpr char _traceMask[] = "XLIBLOG";
constexpr EntryLine addDataLine(_traceMask, 'D', "addData");
constexpr EntryLine removeAllDataLine(_traceMask, 'D', "removeAllData");
constexpr EntryLine dataLine(_traceMask, 'D', "data");
constexpr EntryLine rebuildLine(_traceMask, 'D', "XLog");
constexpr EntryLine asBinaryLine(_traceMask, 'F', "asBinary");
constexpr EntryLine logLine(_traceMask, 'T', "log");

void deleteItems(std::list<XLogData*>& items) {
    for (XLogData* item : items) {
        delete item;
    }
    items.clear();
}

// Appends a clone; the list is unchanged when memory is exhausted.
void appendClone(std::list<XLogData*>& items, XLogData const& original) {
    std::unique_ptr<XLogData> copy(original.clone());
    items.push_back(copy.get());
    static_cast<void>(copy.release());
}

void appendClones(std::list<XLogData*>& items, std::list<XLogData*> const& originals) {
    for (XLogData const* original : originals) {
        appendClone(items, *original);
    }
}

// A list that has no log yet.
struct OwnedItems {
    ~OwnedItems() { deleteItems(list); }
    std::list<XLogData*> list;
};

// Copies as much of the text as the field takes; the field is zero behind it already.
void putText(char* field, std::size_t most, char const* text, std::size_t length) {
    std::memcpy(field, text, std::min(length, most));
}

}  // namespace

// Constant-initialised: whatever runs first in a program, whichever library is loaded first, sees
// them set.
__constinit const XLog::Attribute XLog::informational(0, 0);
__constinit const XLog::Attribute XLog::error(XLOG_ERROR, 0);
__constinit const XLog::Attribute XLog::logStandardBlock(XLOG_STANDARD_BLOCK, 0);
__constinit const XLog::Attribute XLog::logModifyBlock(XLOG_MODIFY_BLOCK, 0);
__constinit const XLog::Attribute XLog::componentLogOnly(XLOG_COMPONENT_LOG_ONLY, 0);
__constinit const XLog::Attribute XLog::componentLogBoth(XLOG_COMPONENT_LOG_BOTH, 0);
__constinit XLog::Attribute XLog::classDefaultAttributes(XLog::informational);

XLog::Attribute::NegatedAttribute XLog::Attribute::operator~() const {
    return NegatedAttribute(~asUnsignedLong(), ~asExtendedUnsignedLong());
}

unsigned long XLog::Attribute::operator&(Attribute const& other) const {
    return (asUnsignedLong() & other.asUnsignedLong()) | (asExtendedUnsignedLong() & other.asExtendedUnsignedLong());
}

XLog::Attribute XLog::Attribute::operator|(Attribute const& other) const {
    return Attribute(asUnsignedLong() | other.asUnsignedLong(),
                     asExtendedUnsignedLong() | other.asExtendedUnsignedLong());
}

XLog::Attribute& XLog::Attribute::operator|=(Attribute const& other) {
    setValue(asUnsignedLong() | other.asUnsignedLong(), asExtendedUnsignedLong() | other.asExtendedUnsignedLong());
    return *this;
}

XLog::Attribute XLog::Attribute::operator&(NegatedAttribute const& mask) const {
    return Attribute(asUnsignedLong() & mask.asUnsignedLong(),
                     asExtendedUnsignedLong() & mask.asExtendedUnsignedLong());
}

XLog::Attribute& XLog::Attribute::operator&=(NegatedAttribute const& mask) {
    setValue(asUnsignedLong() & mask.asUnsignedLong(), asExtendedUnsignedLong() & mask.asExtendedUnsignedLong());
    return *this;
}

XLog::XLog() : XLog(0, 0, 0, nullptr, classDefaultAttributes, nullptr) {}

XLog::XLog(unsigned char logClass, unsigned char logType, unsigned short user, char const* eventName,
           Attribute attributes, char const* logId)
    : fields_{logClass, logType, user, eventName, logId, attributes, 0, 0}, data_(new std::list<XLogData*>) {}

XLog::XLog(Fields const& fields) : fields_(fields), data_(new std::list<XLogData*>) {}

// Delegating, so that the destructor frees what was cloned before memory ran out.
XLog::XLog(XLog const& other) : XLog(other.fields_) {
    appendClones(*data_, *other.data_);
}

XLog::~XLog() {
    try {
        XLog::removeAllData();
    } catch (std::bad_alloc const&) {
        deleteItems(*data_);  // no memory for the trace line: the items go all the same
    }
    delete data_;
}

XLog& XLog::operator=(XLog const& other) {
    if (this == &other) {
        return *this;
    }
    // The clones are made first: what is removed could not be put back if there were no memory for them.
    Rollback rollback(*this);
    OwnedItems clones;
    appendClones(clones.list, *other.data_);
    Fields fields(other.fields_);
    fields.reserved1 = fields_.reserved1;
    fields.reserved2 = fields_.reserved2;
    fields_ = static_cast<Fields&&>(fields);
    removeAllData();
    data_->splice(data_->end(), clones.list);
    rollback.keep();
    return *this;
}

XLog& XLog::setLogClass(unsigned char logClass) {
    fields_.logClass = logClass;
    return *this;
}

unsigned char XLog::logClass() const {
    return fields_.logClass;
}

XLog& XLog::setLogType(unsigned char logType) {
    fields_.logType = logType;
    return *this;
}

unsigned char XLog::logType() const {
    return fields_.logType;
}

XLog& XLog::setUser(unsigned short user) {
    fields_.user = user;
    return *this;
}

unsigned short XLog::user() const {
    return fields_.user;
}

XLog& XLog::setEventName(char const* eventName) {
    fields_.eventName = eventName;
    return *this;
}

char const* XLog::eventName() const {
    return fields_.eventName;
}

XLog& XLog::setLogId(char const* logId) {
    fields_.logId = logId;
    return *this;
}

char const* XLog::logId() const {
    return fields_.logId;
}

XLog& XLog::setFlag(Attribute const& flag, int enable) {
    if (enable != 0) {
        fields_.attributes |= flag;
    } else {
        fields_.attributes &= ~flag;
    }
    return *this;
}

int XLog::hasFlag(Attribute const& flag) const {
    return (fields_.attributes & flag) != 0 ? 1 : 0;
}

XLog& XLog::setSeverity(int isError) {
    return setFlag(error, isError);
}

int XLog::isError() const {
    return hasFlag(error);
}

XLog& XLog::enableStandardBlock(int enable) {
    return setFlag(logStandardBlock, enable);
}

int XLog::isStandardBlock() const {
    return hasFlag(logStandardBlock);
}

XLog& XLog::enableModifyBlock(int enable) {
    return setFlag(logModifyBlock, enable);
}

int XLog::isModifyBlock() const {
    return hasFlag(logModifyBlock);
}

XLog& XLog::enableComponentLogOnly(int enable) {
    return setFlag(componentLogOnly, enable);
}

int XLog::isComponentLogOnly() const {
    return hasFlag(componentLogOnly);
}

XLog& XLog::enableComponentLogBoth(int enable) {
    return setFlag(componentLogBoth, enable);
}

int XLog::isComponentLogBoth() const {
    return hasFlag(componentLogBoth);
}

XLog& XLog::addData(XLogData const& item) {
    TraceScope const scope(addDataLine);
    appendClone(*data_, item);
    return *this;
}

XLog& XLog::removeAllData() {
    TraceScope const scope(removeAllDataLine);
    deleteItems(*data_);
    return *this;
}

std::list<XLogData*>* XLog::data() const {
    TraceScope const scope(dataLine);
    traceLine(_traceMask, 'D', "returns 0x", hexadecimal(addressOf(data_), 8));
    return data_;
}

XLog::XLog(unsigned char* block) : XLog() {
    TraceScope const scope(rebuildLine);
    BlockReader reader(block, _traceMask, 'F');
    if (!reader.accepts(logClassCode)) {
        return;
    }
    while (reader.next(children)) {
        switch (reader.type()) {
        case baseBlock:
            fields_.logClass = reader.get(logClassField);
            fields_.logType = reader.get(logTypeField);
            fields_.user = reader.get(userField);
            fields_.attributes = Attribute(reader.get(attributesField), 0);
            fields_.reserved1 = reader.get(reserved1Field);
            fields_.reserved2 = reader.get(reserved2Field);
            break;
        case eventNameBlock: fields_.eventName = reader.text(); break;
        case logIdBlock: fields_.logId = reader.text(); break;
        case logDataClass: addData(XLogData(reader.block())); break;
        case microcodeLogDataClass: addData(XMicrocodeLogData(reader.block())); break;
        }
    }
}

unsigned char* XLog::asBinary() const {
    TraceScope const scope(asBinaryLine);
    BlockWriter writer(logClassCode);
    writer.addFields(baseBlock,
                     PackedFields<baseBlockSize>()
                         .put(logClassField, logClass())
                         .put(logTypeField, logType())
                         .put(userField, user())
                         .put(attributesField, static_cast<std::uint32_t>(fields_.attributes.asUnsignedLong()))
                         .put(reserved1Field, fields_.reserved1)
                         .put(reserved2Field, fields_.reserved2));
    writer.addText(eventNameBlock, eventName());
    writer.addText(logIdBlock, logId());
    // Each test of the end goes through data(): its trace lines are part of what readers of a
    // trace expect here.
    for (auto item = data()->begin(); item != data()->end(); ++item) {
        writer.addOwned((*item)->asBinary());
    }
    return writer.release();
}

XLog& XLog::log() {
    TraceScope const scope(logLine);
    int src = 0;
    int crc = 0;
    xlog_record_interface record = {};
    record.logClass = fields_.logClass;
    record.logType = fields_.logType;
    record.user = fields_.user;
    putText(record.eventName, sizeof record.eventName, fields_.eventName, fields_.eventName.length());
    // The field always ends in at least two zero bytes.
    putText(record.logId, sizeof record.logId - 2, fields_.logId, fields_.logId.length());
    record.attributes = static_cast<std::uint16_t>(fields_.attributes.asUnsignedLong());

    // The record goes out without its data rather than not at all.
    std::unique_ptr<xlog_detail_entry[]> entries;
    if (!data_->empty()) {
        entries.reset(new (std::nothrow) xlog_detail_entry[data_->size()]());
        if (!entries) {
            traceLine(_traceMask, 'F', "Error allocation error for detlog");
        }
    }
    if (entries) {
        xlog_detail_entry** link = &record.details;
        xlog_detail_entry* entry = entries.get();
        for (XLogData const* item : *data_) {
            if (item->size() == 0) {
                continue;
            }
            if (item->size() > std::numeric_limits<std::uint32_t>::max()) {
                traceLine(_traceMask, 'F', "Error item of ", item->size(), " bytes is too large for detlog");
                continue;
            }
            entry->size = static_cast<std::uint32_t>(item->size());
            entry->id = static_cast<std::uint8_t>(item->blockId());
            entry->data = item->data();
            *link = entry;
            link = &entry->next;
            ++entry;
        }
    }
    log(&record, &src, &crc);
    return *this;
}

XLog& XLog::log(xlog_record_interface* record, int* src, int* crc) {
    *src = xlog_record(record, crc);
    traceLine(_traceMask, 'F', "xlog_record: src=", *src, ", crc=0x", hexadecimal(static_cast<std::uint32_t>(*crc), 4));
    return *this;
}
