#include "zelqplatform/zoexception.h"

#include <cstddef>
#include <cstdio>
#include <exception>
#include <iterator>

ZoException::ZoException(char const* text, unsigned long errorId, Severity severity)
    : errorId_(errorId), errorCodeGroup_(nullptr), severity_(severity) {
    setText(text);
}

ZoException::ZoException(ZoException const& other) = default;

ZoException& ZoException::operator=(ZoException const& other) {
    if (this != &other) {
        std::list<ZoString> texts(other.texts_);
        std::vector<ZoExceptionLocation> locations(other.locations_);
        texts_.swap(texts);
        locations_.swap(locations);
        errorId_ = other.errorId_;
        errorCodeGroup_ = other.errorCodeGroup_;
        severity_ = other.severity_;
    }
    return *this;
}

ZoException::~ZoException() = default;

bool ZoException::isRecoverable() const {
    return severity_ == recoverable;
}

void ZoException::addLocation(ZoExceptionLocation const& location) {
    locations_.push_back(location);
}

char const* ZoException::name() const {
    return "ZoException";
}

void ZoException::logExceptionData() {
    std::fprintf(stderr, "%s: %s\n", name(), texts_.empty() ? "" : text(0));
    for (unsigned long i = 1; i < textCount(); ++i) {
        std::fprintf(stderr, "  %s\n", text(i));
    }
    for (ZoExceptionLocation const& location : locations_) {
        char const* const file = location.fileName();
        char const* const function = location.functionName();
        std::fprintf(stderr, "  at %s:%lu%s%s\n", file == nullptr ? "?" : file, location.lineNumber(),
                     function == nullptr ? "" : " in ", function == nullptr ? "" : function);
    }
}

void ZoException::terminate() {
    logExceptionData();
    std::terminate();
}

char const* ZoException::text(unsigned long index) const {
    if (index >= texts_.size()) {
        return nullptr;
    }
    return *std::next(texts_.begin(), static_cast<std::ptrdiff_t>(index));
}

ZoException& ZoException::setText(char const* text) {
    if (text == nullptr) {
        if (!texts_.empty()) {
            texts_.erase(texts_.begin());
        }
    } else if (texts_.empty()) {
        texts_.emplace_back(text);
    } else {
        texts_.front() = text;
    }
    return *this;
}

ZoException& ZoException::appendText(char const* text) {
    texts_.emplace_back(text);
    return *this;
}

ZoException& ZoException::setErrorId(unsigned long errorId) {
    errorId_ = errorId;
    return *this;
}

ZoException& ZoException::setErrorCodeGroup(char const* errorCodeGroup) {
    errorCodeGroup_ = errorCodeGroup;
    return *this;
}

ZoException& ZoException::setSeverity(Severity severity) {
    severity_ = severity;
    return *this;
}

ZoExceptionLocation const* ZoException::locationAtIndex(unsigned long index) const {
    return index < locations_.size() ? &locations_[index] : nullptr;
}

ZoExceptionLocation* ZoException::locationAtIndex(unsigned long index) {
    return index < locations_.size() ? &locations_[index] : nullptr;
}
