#ifndef ZELQPLATFORM_ZOEXCEPTION_H
#define ZELQPLATFORM_ZOEXCEPTION_H

#include <list>
#include <vector>

#include "zelqplatform/zobase.h"
#include "zelqplatform/zostring.h"

/// Where an exception passed: two names and a line. The names are pointers that the location
/// neither copies nor frees; they must live as long as the location is used. Either may be null.
class ZELQ_API ZoExceptionLocation : public ZoBase {
public:
    ZoExceptionLocation(char const* fileName, char const* functionName, unsigned long lineNumber)
        : fileName_(fileName), functionName_(functionName), lineNumber_(lineNumber) {}

    char const* fileName() const { return fileName_; }
    char const* functionName() const { return functionName_; }
    unsigned long lineNumber() const { return lineNumber_; }

private:
    char const* fileName_;
    char const* functionName_;
    unsigned long lineNumber_;
};

/// Root of the platform's exceptions: texts, an error id, an error code group, a severity and the
/// locations that the exception passed.
///
/// Virtual slots: destructor, isRecoverable(), addLocation(), name(), logExceptionData(),
/// terminate(). Derived classes continue from there. When an allocation fails, std::bad_alloc
/// leaves the call and the exception is as it was before.
class ZELQ_API ZoException : public ZoBase {
public:
    /// Blocks bring any number here: whatever is not `recoverable` counts as unrecoverable.
    enum Severity : int { unrecoverable = 0, recoverable = 1 };

    /// Copies `text`; a null pointer makes an exception without text.
    ZoException(char const* text, unsigned long errorId, Severity severity);
    ZoException(ZoException const& other);
    ZoException& operator=(ZoException const& other);
    virtual ~ZoException();

    virtual bool isRecoverable() const;

    /// Appends a copy of the location; its names stay the caller's.
    virtual void addLocation(ZoExceptionLocation const& location);

    /// Name of the kind of exception, here "ZoException". Owned by the exception.
    virtual char const* name() const;

    /// Writes name, texts and locations to standard error.
    virtual void logExceptionData();

    /// Ends the process by std::terminate() after logExceptionData().
    virtual void terminate();

    /// The text with the given index, 0 being the first; null when there is none. The characters
    /// are the exception's and valid until that text is set again.
    char const* text(unsigned long index = 0) const;

    /// Number of texts.
    unsigned long textCount() const { return static_cast<unsigned long>(texts_.size()); }

    /// Replaces the first text by a copy of `text`, or takes it away when `text` is null.
    ZoException& setText(char const* text);

    /// Adds a copy of `text` behind the others.
    ZoException& appendText(char const* text);

    unsigned long errorId() const { return errorId_; }
    ZoException& setErrorId(unsigned long errorId);

    /// Identifies the family of the error id by address; null unless set. The pointer is kept, not
    /// the characters.
    char const* errorCodeGroup() const { return errorCodeGroup_; }
    ZoException& setErrorCodeGroup(char const* errorCodeGroup);

    ZoException& setSeverity(Severity severity);

    unsigned long locationCount() const { return static_cast<unsigned long>(locations_.size()); }

    /// The location with the given index, 0 being the first added; null when there is none. Owned
    /// by the exception and valid until a location is added.
    ZoExceptionLocation const* locationAtIndex(unsigned long index) const;
    ZoExceptionLocation* locationAtIndex(unsigned long index);

private:
    std::list<ZoString> texts_;  // which stay where they are
    unsigned long errorId_;
    char const* errorCodeGroup_;
    Severity severity_;
    std::vector<ZoExceptionLocation> locations_;
};

#endif
