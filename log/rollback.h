#ifndef ZELQCOOD_LOG_ROLLBACK_H
#define ZELQCOOD_LOG_ROLLBACK_H

#include "zelqcood/log.h"

/// Puts a log back as it was unless keep() is called. An operation made of virtual calls cannot have all
/// that may fail behind it before it changes something: each call may ask for memory, and run a program's
/// code. Items must have been added at the end only.
class XLog::Rollback {
public:
    explicit Rollback(XLog& log) : log_(log), fields_(log.fields_), items_(log.data_->size()) {}
    ~Rollback() {
        if (!isKept_) {
            putBack();
        }
    }
    Rollback(Rollback const&) = delete;
    Rollback& operator=(Rollback const&) = delete;

    void keep() { isKept_ = true; }

private:
    [[gnu::cold]] void putBack() {
        log_.fields_ = static_cast<Fields&&>(fields_);
        while (log_.data_->size() > items_) {
            delete log_.data_->back();
            log_.data_->pop_back();
        }
    }

    XLog& log_;
    Fields fields_;
    std::size_t items_;
    bool isKept_ = false;
};

#endif
