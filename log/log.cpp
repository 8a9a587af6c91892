#include "zelqcood/log.h"

#include <memory>
#include <new>

#include "trace/message.h"

namespace {

constexpr char _traceMask[] = "XLIBLOG";
constexpr EntryLine addDataLine(_traceMask, 'D', "addData");
constexpr EntryLine removeAllDataLine(_traceMask, 'D', "removeAllData");
constexpr EntryLine dataLine(_traceMask, 'D', "data");

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

}  // namespace

XLog::XLog() : XLog(0, 0, 0, nullptr, classDefaultAttributes, nullptr) {}

XLog::XLog(unsigned char logClass, unsigned char logType, unsigned short user, char const* eventName,
           Attribute attributes, char const* logId)
    : logClass_(logClass),
      logType_(logType),
      user_(user),
      eventName_(eventName),
      logId_(logId),
      attributes_(attributes),
      reserved1_(0),
      reserved2_(0),
      data_(new std::list<XLogData*>) {}

// Delegating, so that the destructor frees what was cloned before memory ran out.
XLog::XLog(XLog const& other)
    : XLog(other.logClass_, other.logType_, other.user_, other.eventName_, other.attributes_, other.logId_) {
    reserved1_ = other.reserved1_;
    reserved2_ = other.reserved2_;
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
    // First all that can fail, so that the log keeps its state when memory runs out.
    ZoString eventName(other.eventName_);
    ZoString logId(other.logId_);
    OwnedItems items;
    appendClones(items.list, *other.data_);
    removeAllData();
    logClass_ = other.logClass_;
    logType_ = other.logType_;
    user_ = other.user_;
    eventName_ = static_cast<ZoString&&>(eventName);
    logId_ = static_cast<ZoString&&>(logId);
    attributes_ = other.attributes_;
    data_->swap(items.list);
    return *this;
}

XLog& XLog::setLogClass(unsigned char logClass) {
    logClass_ = logClass;
    return *this;
}

unsigned char XLog::logClass() const {
    return logClass_;
}

XLog& XLog::setLogType(unsigned char logType) {
    logType_ = logType;
    return *this;
}

unsigned char XLog::logType() const {
    return logType_;
}

XLog& XLog::setUser(unsigned short user) {
    user_ = user;
    return *this;
}

unsigned short XLog::user() const {
    return user_;
}

XLog& XLog::setEventName(char const* eventName) {
    eventName_ = eventName;
    return *this;
}

char const* XLog::eventName() const {
    return eventName_;
}

XLog& XLog::setLogId(char const* logId) {
    logId_ = logId;
    return *this;
}

char const* XLog::logId() const {
    return logId_;
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
