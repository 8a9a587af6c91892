#ifndef ZELQCOOD_BENCH_SWITCHEDSERVICES_H
#define ZELQCOOD_BENCH_SWITCHEDSERVICES_H

// The program's own services come first in symbol look-up: these do nothing at once, so that a
// measurement shows the library alone, or call the real ones. Link with switchedservices.cpp.

inline bool isStoreUsed = false;
inline bool isBacktraceTaken = false;

#endif
