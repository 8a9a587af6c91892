#ifndef ZELQCOOD_MCLOG_TRACEITEMS_H
#define ZELQCOOD_MCLOG_TRACEITEMS_H

/// Block ids of the items that a microcode log makes itself. They reach disk and other processes:
/// never renumber them.
enum MicrocodeLogItem : unsigned short {
    threadTraceItem = 237,
    processTraceItem = 238,
    systemTraceItem = 239,
    referenceCodeItem = 240,
};

#endif
