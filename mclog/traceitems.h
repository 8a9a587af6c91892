#ifndef ZELQCOOD_MCLOG_TRACEITEMS_H
#define ZELQCOOD_MCLOG_TRACEITEMS_H

/// Block ids of the items that a microcode log makes itself. They reach disk and other processes:
/// never renumber them.
enum MicrocodeLogItem : unsigned short {
    firstTextItem = 0xE0,  // texts get the numbers from here on when the log is recorded
    lastTextItem = 0xEC,
    threadTraceItem = 237,
    processTraceItem = 238,
    systemTraceItem = 239,
    referenceCodeItem = 240,
};

#endif
