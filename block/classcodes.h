#ifndef ZELQCOOD_BLOCK_CLASSCODES_H
#define ZELQCOOD_BLOCK_CLASSCODES_H

/// Block types that stand for whole classes, and the one format that all blocks have so far. They
/// reach disk and other processes: never renumber them. 0x8007 is not used.
enum BlockClass : unsigned short {
    exceptionClass = 0x8000,
    trapExceptionClass = 0x8001,
    logClassCode = 0x8002,
    microcodeLogClass = 0x8003,
    endMicrocodeLogClass = 0x8004,
    logDataClass = 0x8005,
    microcodeLogDataClass = 0x8006,
    baseExceptionClass = 0x8008,
};

constexpr unsigned short blockFormat = 1;

#endif
