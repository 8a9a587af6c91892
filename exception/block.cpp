// The block form of exceptions of all kinds.

#include "zelqcood/exception.h"

#include "block/reader.h"
#include "block/writer.h"
#include "exception/layout.h"
#include "trace/message.h"
#include "zelqcood/block.h"
#include "zelqplatform/pce_service.h"

namespace {

using namespace baseExceptionLayout;

constexpr char _traceMask[] = "XLIBEXC";
constexpr EntryLine rebuildLine(_traceMask, 'D', "XBaseException");
constexpr EntryLine asBinaryLine(_traceMask, 'F', "asBinary");
constexpr EntryLine rebuildExceptionLine(_traceMask, 'D', "XException");
constexpr EntryLine rebuildTrapExceptionLine(_traceMask, 'D', "XTrapException");

bool isReadable(unsigned char const* block) {
    int code = 0;
    return xpce_ckptr(block, BlockHeader::bytes, &code) == 0;
}

// The group is an address, and fits where addresses have 32 bits; elsewhere it is left behind. A
// reader in another process must never look behind it.
std::uint32_t packedGroup(char const* group) {
    return sizeof group == sizeof(std::uint32_t) ? static_cast<std::uint32_t>(addressOf(group)) : 0;
}

char const* unpackedGroup(std::uint32_t group) {
    return sizeof(char const*) == sizeof group ? reinterpret_cast<char const*>(std::uintptr_t{group}) : nullptr;
}

void reportPointer(unsigned char const* block) {
    traceLine(_traceMask, 'F', "Invalid data pointer: 0x", hexadecimal(addressOf(block), 8));
}

// The exception inside a block of one of the kinds; nothing is looked for in what cannot be read.
unsigned char* baseBlockOf(unsigned char* block) {
    return isReadable(block) ? findBlock(block, baseExceptionClass) : nullptr;
}

// The outer header of a kind's block is judged after what is inside has been read, and undoes nothing.
void checkKind(unsigned char* block, unsigned short classCode) {
    if (!isReadable(block)) {
        reportPointer(block);
        return;
    }
    BlockReader(block, _traceMask, 'F').accepts(classCode);
}

}  // namespace

XBaseException::XBaseException(unsigned char* pBlock) : ZoException("DummyText", 0, unrecoverable), logged_(0) {
    TraceScope const scope(rebuildLine);
    traceLine(_traceMask, 'D', "this=0x", hexadecimal(addressOf(this), 8), ", pBlock=0x",
              hexadecimal(addressOf(pBlock), 8));
    if (!isReadable(pBlock)) {
        reportPointer(pBlock);
        return;
    }
    BlockReader reader(pBlock, _traceMask, 'F');
    if (!reader.accepts(baseExceptionClass)) {
        return;
    }
    unsigned long lineNumber = 0;  // of the location read last: one without a line takes it over
    while (reader.next(children)) {
        switch (reader.type()) {
        case baseBlock:
            setSeverity(static_cast<Severity>(reader.get(severityField)));
            setErrorCodeGroup(unpackedGroup(reader.get(errorCodeGroupField)));
            setErrorId(reader.get(errorIdField));
            name_ = reader.get(nameField);
            setLogged(reader.get(loggedField));
            break;
        case textBlock: setText(reader.bodySize() == 0 ? nullptr : static_cast<char const*>(reader.text())); break;
        case locationBlock: lineNumber = readLocation(reader.block(), lineNumber); break;
        case endMicrocodeLogClass: {
            XEndMicrocodeLog log(reader.block());
            setLogInfo(&log);
            break;
        }
        }
    }
}

unsigned long XBaseException::readLocation(unsigned char* block, unsigned long lineNumber) {
    BlockReader location = BlockReader::inside(block, _traceMask, 'F', "Unknown location data type (0x");
    LocationNames names;
    using namespace locationLayout;
    while (location.next(locationLayout::children)) {
        bool const isEmpty = location.bodySize() == 0;
        switch (location.type()) {
        case fileBlock: names.file.reset(isEmpty ? nullptr : duplicate(location.text())); break;
        case functionBlock: names.function.reset(isEmpty ? nullptr : duplicate(location.text())); break;
        case lineBlock: lineNumber = location.get(lineField); break;
        }
    }
    ownLocationNames(std::move(names), lineNumber);
    return lineNumber;
}

unsigned char* XBaseException::asBinary() const {
    TraceScope const scope(asBinaryLine);
    BlockWriter writer(baseExceptionClass);
    writer.addFields(baseBlock, PackedFields<baseBlockSize>()
                                    .put(severityField, isRecoverable() ? 1 : 0)
                                    .put(errorCodeGroupField, packedGroup(errorCodeGroup()))
                                    .put(errorIdField, static_cast<std::uint32_t>(errorId()))
                                    .put(nameField, name())
                                    .put(loggedField, isLogged()));
    writer.addText(textBlock, text(0));
    for (unsigned long i = 0; i < locationCount(); ++i) {
        using namespace locationLayout;
        ZoExceptionLocation const& location = *locationAtIndex(i);
        BlockWriter locationWriter(locationBlock);
        locationWriter.addText(fileBlock, location.fileName());
        locationWriter.addText(functionBlock, location.functionName());
        locationWriter.addFields(
            lineBlock, PackedFields<lineBlockSize>().put(lineField, static_cast<std::uint32_t>(location.lineNumber())));
        writer.addOwned(locationWriter.release());
    }
    if (XMicrocodeLog const* const log = logInfo(); log != nullptr) {
        writer.addOwned(log->asBinary());
    }
    return writer.release();
}

XException::XException(unsigned char* pBlock) : XBaseException(baseBlockOf(pBlock)) {
    TraceScope const scope(rebuildExceptionLine);
    checkKind(pBlock, exceptionClass);
}

unsigned char* XException::asBinary() const {
    TraceScope const scope(asBinaryLine);
    BlockWriter writer(exceptionClass);
    writer.addOwned(XBaseException::asBinary());
    return writer.release();
}

XTrapException::XTrapException(unsigned char* pBlock) : XBaseException(baseBlockOf(pBlock)) {
    TraceScope const scope(rebuildTrapExceptionLine);
    checkKind(pBlock, trapExceptionClass);
}

unsigned char* XTrapException::asBinary() const {
    TraceScope const scope(asBinaryLine);
    BlockWriter writer(trapExceptionClass);
    writer.addOwned(XBaseException::asBinary());
    return writer.release();
}
