#ifndef ZELQCOOD_EXCEPTION_H
#define ZELQCOOD_EXCEPTION_H

#include <memory>
#include <type_traits>
#include <vector>

#include "zelqcood/mclog.h"
#include "zelqplatform/zoexception.h"

/// Root of the library's exceptions: a foundation exception with a name, a logged flag and a
/// microcode log that it owns. Data items travel in that log.
///
/// Copies share nothing with their source. No operation throws on bad input; std::bad_alloc leaves
/// a call when memory is exhausted. An exception is used by one thread at a time and not in signal
/// handlers.
class ZELQ_API XBaseException : public ZoException {
public:
    /// Copies the text, which may be null. `logged` is kept as given; non-zero means that asLog()
    /// has nothing to do any more.
    XBaseException(char* errorText, ZoException::Severity severity, int logged);

    /// The same for a text that the caller may not change, such as a literal.
    template <class Text, class = std::enable_if_t<std::is_same_v<Text, char const*>>>
    XBaseException(Text errorText, ZoException::Severity severity, int logged)
        : XBaseException(const_cast<char*>(errorText), severity, logged) {}

    /// Takes over texts, id, group, severity, locations and name of any platform exception. Names
    /// of locations stay the source's.
    XBaseException(ZoException const& other);

    XBaseException(XBaseException const& other);

    /// Rebuilds an exception from the block that asBinary() wrote; `pBlock` stays the caller's and may
    /// be unreadable. Damage is reported in the trace, never thrown; what could not be read is 0 or
    /// empty, and the text "DummyText".
    XBaseException(unsigned char* pBlock);

    virtual ~XBaseException();

    XBaseException& operator=(XBaseException const&) = delete;

    /// Name of the kind of exception, owned by the exception.
    char const* name() const override;

    virtual int isLogged() const;
    virtual XBaseException& setLogged(int logged);

    /// The attached log, owned by the exception; null without one.
    virtual XMicrocodeLog* logInfo() const;

    /// Attaches a clone of the log, which stays the caller's and must not be null; the log attached
    /// before is destroyed.
    virtual XBaseException& setLogInfo(XMicrocodeLog* log);

    /// Adds a copy of the item to the attached log. Without a log the item is dropped.
    virtual XBaseException& addData(XMicrocodeLogData const& item);

    /// The item with the given index, 1 being the first (0 gives the first as well). Never null: an
    /// empty item, which must not be changed, stands for one that does not exist. The item is the
    /// log's and valid until the log changes.
    virtual XLogData* data(unsigned int index) const;

    /// Number of items of the attached log; 0 without one.
    virtual unsigned int dataCount() const;

    /// Name and text, the log's backtrace, and the locations, each on lines of their own.
    virtual ZoString asString() const;

    /// Writes the lines of asString(), but for empty ones, to the trace.
    virtual XBaseException const& asTrace(ZoString component, char level) const;

    /// Records the exception once, through its log or a default one that it keeps: the rendering becomes
    /// the log's text for that time, and the log's own text travels as its first data item, which asString()
    /// finds there already. Sets the logged flag whatever the service says. When something is thrown, the
    /// flag is not set.
    virtual XBaseException& asLog();

    /// The exception as a block of type 0x8008; release it with delete[].
    virtual unsigned char* asBinary() const;

protected:
    ZELQ_LOCAL void setName(char const* name);

private:
    struct ZELQ_LOCAL Free {
        void operator()(char* text) const;
    };
    // The platform keeps pointers to the names of a location only: those that came out of a block, and
    // the copies of those, live here. The first entry belongs to the first location, and so on.
    struct ZELQ_LOCAL LocationNames {
        std::unique_ptr<char, Free> file;
        std::unique_ptr<char, Free> function;
    };

    ZELQ_LOCAL static char* duplicate(char const* text);
    ZELQ_LOCAL unsigned long readLocation(unsigned char* block, unsigned long lineNumber);
    ZELQ_LOCAL void ownLocationNames(LocationNames names, unsigned long lineNumber);

    ZoString name_;
    int logged_;
    std::unique_ptr<XMicrocodeLog> logInfo_;
    std::vector<LocationNames> locationNames_;
};

/// The exception for all purposes.
class ZELQ_API XException : public XBaseException {
public:
    XException(char* errorText, ZoException::Severity severity, int logged);

    template <class Text, class = std::enable_if_t<std::is_same_v<Text, char const*>>>
    XException(Text errorText, ZoException::Severity severity, int logged)
        : XException(const_cast<char*>(errorText), severity, logged) {}

    /// Keeps the source's name.
    XException(ZoException const& other);
    XException(XException const& other);

    /// Rebuilds an exception from the block that asBinary() wrote, as XBaseException does. An
    /// exception inside a block of wrong type or format is read all the same.
    XException(unsigned char* pBlock);

    virtual ~XException();

    /// The exception as a block of type 0x8000; release it with delete[].
    unsigned char* asBinary() const override;
};

/// The exception for a trap; never recoverable.
class ZELQ_API XTrapException : public XBaseException {
public:
    XTrapException(char* errorText, int logged);

    template <class Text, class = std::enable_if_t<std::is_same_v<Text, char const*>>>
    XTrapException(Text errorText, int logged) : XTrapException(const_cast<char*>(errorText), logged) {}

    XTrapException(XTrapException const& other);

    /// Rebuilds an exception from the block that asBinary() wrote, as XException does.
    XTrapException(unsigned char* pBlock);

    virtual ~XTrapException();

    /// The exception as a block of type 0x8001; release it with delete[].
    unsigned char* asBinary() const override;
};

#endif
