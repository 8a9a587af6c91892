#ifndef ZELQCOOD_MCLOG_ADDEDITEMS_H
#define ZELQCOOD_MCLOG_ADDEDITEMS_H

#include <cstddef>
#include <list>

#include "zelqcood/logdata.h"

/// Takes the items that were appended to a log's list during its life off again, unless keep() is
/// called: an operation that runs out of memory leaves the list as it found it.
class AddedItems {
public:
    explicit AddedItems(std::list<XLogData*>& items) : items_(items), before_(items.size()) {}
    ~AddedItems() {
        while (!isKept_ && items_.size() > before_) {
            delete items_.back();
            items_.pop_back();
        }
    }
    AddedItems(AddedItems const&) = delete;
    AddedItems& operator=(AddedItems const&) = delete;

    void keep() { isKept_ = true; }

private:
    std::list<XLogData*>& items_;
    std::size_t before_;
    bool isKept_ = false;
};

#endif
