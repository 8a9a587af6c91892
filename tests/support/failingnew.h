#ifndef ZELQCOOD_TESTS_FAILINGNEW_H
#define ZELQCOOD_TESTS_FAILINGNEW_H

// Replaces the global operator new, so that the n-th allocation from now on can be made to fail,
// and counts what is allocated and not yet freed.

/// Makes the n-th allocation of this thread fail, 1 being the next one; 0 makes none fail.
void failAllocation(unsigned n);

/// Counts one allocation that is not made by new; true when it is the one to fail.
bool allocationFails();

/// True when the allocation that failAllocation() named has come up, and failed.
bool hasFailed();

/// Allocations of this program that are not freed yet.
long liveAllocations();

/// The same of malloc() and its kin, and of this thread alone; in programs that failingmalloc.cpp is part of.
long liveMallocs();

/// Bytes that this program has got from new so far.
unsigned long long allocatedBytes();

/// Within its life, allocations of this thread neither count down nor fail.
class NoFailingNew {
public:
    NoFailingNew();
    ~NoFailingNew();
    NoFailingNew(NoFailingNew const&) = delete;
    NoFailingNew& operator=(NoFailingNew const&) = delete;
};

#endif
