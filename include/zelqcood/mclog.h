#ifndef ZELQCOOD_MCLOG_H
#define ZELQCOOD_MCLOG_H

#include <cstdint>
#include <list>
#include <memory>

#include "zelqcood/log.h"

/// The error log: a plain log with a reference code, a text, the backtrace of where it was built,
/// and the reference codes of other logs that were merged into it.
///
/// The primary reference code is log class, log type, error id and error reason. No operation
/// throws on bad input. Where memory is exhausted, std::bad_alloc leaves the call; unless an
/// operation says otherwise the log is then as it was before. A log is used by one thread at a time
/// and not in signal handlers.
class ZELQ_API XMicrocodeLog : public XLog {
public:
    /// The flags of a plain log and those below. Any XLog::Attribute can stand for one.
    class ZELQ_API Attribute : public XLog::Attribute {
    public:
        class ZELQ_API NegatedAttribute : public XLog::Attribute::NegatedAttribute {
        public:
            constexpr NegatedAttribute(unsigned long value, unsigned long extended)
                : XLog::Attribute::NegatedAttribute(value, extended) {}
        };

        constexpr Attribute(unsigned long value, unsigned long extended) : XLog::Attribute(value, extended) {}
        constexpr Attribute(XLog::Attribute const& other) : XLog::Attribute(other) {}

        NegatedAttribute operator~() const;
        Attribute operator|(Attribute const& other) const;
    };

    // The value words reach disk and other processes: never renumber them.
    static const Attribute omitThreadTrace;         ///< 0x2000: no thread trace item
    static const Attribute omitProcessTrace;        ///< 0x4000: no process trace item
    static const Attribute omitSystemTrace;         ///< 0x8000: no system trace item
    static const Attribute omitAllTraces;           ///< 0xE000: none of the three
    static const Attribute omitBacktrace;           ///< 0x0040: no backtrace in the recorded text
    static const Attribute rebootSystem;            ///< 0x1000: asks for a reboot
    static const Attribute classDefaultAttributes;  ///< 0x0300: error, standard block

    /// The reference code of a log that gave way to another in a merge. A value; never changes.
    class ZELQ_API SecondaryRefcodeInfo {
    public:
        SecondaryRefcodeInfo(unsigned char logClass, unsigned char logType, unsigned short errorId, int errorReason);
        SecondaryRefcodeInfo(SecondaryRefcodeInfo const& other);

        /// Rebuilds a record from the block that asBinary() wrote; `block` stays the caller's. Damage is
        /// reported in the trace; what could not be read is 0.
        SecondaryRefcodeInfo(unsigned char* block);

        virtual ~SecondaryRefcodeInfo();

        SecondaryRefcodeInfo& operator=(SecondaryRefcodeInfo const& other) = default;

        unsigned char logClass() const;
        unsigned char logType() const;
        unsigned short errorId() const;
        int errorReason() const;

        /// The record as a block of type 3 and 24 bytes; release it with delete[].
        unsigned char* asBinary() const;

    private:
        std::uint16_t logClass_;
        std::uint16_t logType_;
        std::uint16_t errorId_;
        std::int32_t errorReason_;
    };

    /// Error, standard block, everything else 0 or empty; takes the backtrace.
    XMicrocodeLog();

    /// Copies the texts (null ones are empty), adds the standard-block flag, takes the backtrace.
    XMicrocodeLog(unsigned char logClass, unsigned char logType, unsigned short user, unsigned short errorId,
                  int errorReason, char const* eventName, char const* text, XLog::Attribute attributes, int owned,
                  char const* logId);

    /// Copies everything, the backtrace included.
    XMicrocodeLog(XMicrocodeLog const& other);

    /// Rebuilds a log from the block that asBinary() wrote; `block` stays the caller's. The plain log
    /// inside is read whatever the block around it says. The backtrace is the one in the block, then
    /// "Deserialized" on a line of its own, then the present one. Damage is reported in the trace,
    /// never thrown; what could not be read is 0 or empty.
    XMicrocodeLog(unsigned char* block);

    virtual ~XMicrocodeLog();

    // Assignment is that of the plain log and copies only its part; to have a whole copy, clone().
    using XLog::operator=;
    XMicrocodeLog& operator=(XMicrocodeLog const&) = delete;

    using XLog::log;

    /// Records the log: its text with the backtrace and its secondary reference codes go in front of
    /// its data items, its error id and reason behind them. Afterwards the log is as it was, except that
    /// items of the two formats of XMicrocodeLogData have numbers that fit 8 bits as block ids, and that
    /// the item with error id and reason (block id 240) stays. When memory is exhausted or the recording
    /// throws, the items in front stay in the list and belong to the log.
    XMicrocodeLog& log() override;

    /// The log as a block of type 0x8003; release it with delete[].
    unsigned char* asBinary() const override;

    virtual XMicrocodeLog& setErrorId(unsigned short errorId);
    virtual unsigned short errorId() const;
    virtual XMicrocodeLog& setErrorReason(int errorReason);
    virtual int errorReason() const;
    /// Copies the text; null gives an empty one.
    virtual XMicrocodeLog& setText(char const* text);
    virtual ZoString text() const;

    /// Non-zero: the log keeps its reference code when another one is merged into it.
    virtual XMicrocodeLog& setOwned(int owned);
    virtual int isOwned() const;

    // Whether the item or text is wanted, 0 or 1: that is, its omit flag is not set.
    virtual int isThreadTrace() const;
    virtual int isProcessTrace() const;
    virtual int isSystemTrace() const;
    virtual XMicrocodeLog& enableBacktrace(int enable);
    virtual int isBacktrace() const;

    virtual XMicrocodeLog& enableRebootSystem(int enable);
    virtual int isRebootSystem() const;

    /// Where the log was built, one line a frame; empty when the service had none.
    virtual ZoString backtrace() const;

    /// A new copy of the same class, owned by the caller.
    virtual XMicrocodeLog* clone() = 0;

    /// Merges another log into this one. Unless this log is owned, it takes over the other's reference
    /// code, user, event name, severity, block flags and owned flag, and remembers its own reference
    /// code as a secondary one. The other's text goes before its own, the other's items behind its own;
    /// of each kind of trace item it keeps one.
    virtual XMicrocodeLog& operator+=(XMicrocodeLog const& other);

    /// Adds snapshots of the system, process and thread traces as items 239, 238 and 237, each of at
    /// most the given number of 80-character lines. What the attributes omit, what has 0 lines and what
    /// the service fails to fetch is left out. More than 53,024,287 lines, whose bytes 32 bits cannot count,
    /// are refused by std::bad_alloc.
    virtual XMicrocodeLog& addTraceBlocks(unsigned int systemLines, unsigned int processLines,
                                          unsigned int threadLines);

    /// How many classes the object is derived from this one: 0 here.
    virtual int subclassLevel() const;

    /// The log's own list of reference codes, in the order in which they gave way.
    std::list<SecondaryRefcodeInfo>* secondaryRefcodes() const;

private:
    struct ZELQ_LOCAL MicrocodeFields {
        std::uint16_t errorId;
        std::int32_t errorReason;
        ZoString text;
        int owned;
    };
    class ZELQ_LOCAL Rollback;

    ZELQ_LOCAL void captureBacktrace(char const* heading);
    ZELQ_LOCAL void takeOverReferenceCode(XMicrocodeLog const& other);
    ZELQ_LOCAL void mergeItem(XLogData const& item);
    ZELQ_LOCAL bool hasReferenceCode() const;
    ZELQ_LOCAL SecondaryRefcodeInfo referenceCode() const;
    ZELQ_LOCAL ZoString secondaryRefcodeText() const;

    MicrocodeFields microcode_;
    ZoString backtrace_;
    std::unique_ptr<std::list<SecondaryRefcodeInfo>> secondaryRefcodes_;
};

/// The microcode log that programs build: log class 10, with snapshots of the traces.
class ZELQ_API XEndMicrocodeLog : public XMicrocodeLog {
public:
    /// Error, standard block, owned; no snapshots.
    XEndMicrocodeLog();

    /// As the field constructor of XMicrocodeLog, with log class 10; then adds snapshots of 250 lines
    /// each of the traces that the attributes do not omit.
    XEndMicrocodeLog(unsigned char logType, unsigned short user, unsigned short errorId, int errorReason,
                     char const* eventName, char const* text, XMicrocodeLog::Attribute attributes, int owned,
                     char const* logId);

    XEndMicrocodeLog(XEndMicrocodeLog const& other);

    /// Rebuilds a log from the block that asBinary() wrote, as XMicrocodeLog does.
    XEndMicrocodeLog(unsigned char* block);

    virtual ~XEndMicrocodeLog();

    using XMicrocodeLog::operator=;

    /// The log as a block of type 0x8004; release it with delete[].
    unsigned char* asBinary() const override;
    XEndMicrocodeLog* clone() override;
    int subclassLevel() const override;
};

#endif
