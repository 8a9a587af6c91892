#ifndef ZELQ_STORE_LAYOUT_H
#define ZELQ_STORE_LAYOUT_H

#include <cstdio>

// The error-log store: one JSON object per line, in files within the state folder.
//
//   errors.jsonl      the newest records
//   errors.jsonl.1    older ones, and so on; the higher the number, the older
//   errors.lock       empty; flock(LOCK_EX) on it is held by whoever writes, rotates or removes
//   errors.pruned     the part of a file that stays, while old records are being removed
//
//   ZELQ_STORE_SIZE   bytes that a file may reach before the next one is begun, 4K to 1G; 16M.
//                     A single record longer than that still gets into a file, alone.
//   ZELQ_STORE_FILES  number of files, the newest counted, 2 to 100; 8
//
// Invariants that readers may rely on: lines are only ever added at the end of errors.jsonl. A
// line without '\n' is the last one of its file, and its writer died or is still at work; the
// next writer begins a new line behind it. Files only ever move to higher numbers, and there may
// be gaps between the numbers. What is removed is always the oldest part of the store: whole files,
// and the beginning of one more. That one is replaced, under its name, by a file without it: who
// has the old one open sees nothing of that, and nothing is added to the old one any more.

namespace zelq {

constexpr unsigned storeFilesMaximum = 100;
constexpr char storeLockName[] = "errors.lock";
constexpr char storePrunedName[] = "errors.pruned";

/// The name of a file of the store, in memory of its own.
struct StoreFileName {
    char text[24];
};

/// The name of file `index` within the folder; 0 is the newest.
inline StoreFileName storeFileName(unsigned index) {
    StoreFileName name;
    std::snprintf(name.text, sizeof name.text, index == 0 ? "errors.jsonl" : "errors.jsonl.%u", index);
    return name;
}

}  // namespace zelq

#endif
