#ifndef ZELQCOOD_LOG_H
#define ZELQCOOD_LOG_H

#include <cstdint>
#include <list>

#include "zelqcood/logdata.h"
#include "zelqplatform/zobitflag.h"
#include "zelqplatform/zostring.h"

struct xlog_record_interface;

/// The plain log record: class, type, user, event name, log id, attributes and an ordered list of
/// data items.
///
/// The log owns copies of everything that it is given. No operation throws on bad input; damage
/// in a block is reported in the trace. Where memory is exhausted, std::bad_alloc leaves the call
/// and the log is as it was before. A log is used by one thread at a time and not in signal
/// handlers.
class ZELQ_API XLog : public ZoVBase {
public:
    /// A set of flags. Flags are combined with |, tested with & (a number, non-zero when both sets
    /// share a flag) and cleared with &= ~flag.
    class ZELQ_API Attribute : public ZoBitFlag {
    public:
        /// The result of ~: accepted by & and &=, but never an attribute set itself.
        class ZELQ_API NegatedAttribute : public ZoBitFlag {
        public:
            constexpr NegatedAttribute(unsigned long value, unsigned long extended) : ZoBitFlag(value, extended) {}
        };

        constexpr Attribute(unsigned long value, unsigned long extended) : ZoBitFlag(value, extended) {}

        NegatedAttribute operator~() const;
        unsigned long operator&(Attribute const& other) const;
        Attribute operator|(Attribute const& other) const;
        Attribute& operator|=(Attribute const& other);
        Attribute operator&(NegatedAttribute const& mask) const;
        Attribute& operator&=(NegatedAttribute const& mask);
    };

    // The value words reach disk and other processes: never renumber them.
    static const Attribute informational;     ///< 0x000: severity informational, no bit
    static const Attribute error;             ///< 0x100: severity error
    static const Attribute logStandardBlock;  ///< 0x200: asks the service for a standard block
    static const Attribute logModifyBlock;    ///< 0x400: asks the service for a modify block
    static const Attribute componentLogOnly;  ///< 0x001: route to the component log only
    static const Attribute componentLogBoth;  ///< 0x002: route to both logs

    /// What the default and the rebuilding constructor start from. May be changed by a program.
    static Attribute classDefaultAttributes;

    /// All numbers 0, texts empty, classDefaultAttributes, no data.
    XLog();

    /// Copies the texts; a null text is an empty one.
    XLog(unsigned char logClass, unsigned char logType, unsigned short user, char const* eventName,
         Attribute attributes, char const* logId);

    /// Copies every field and clones every data item.
    XLog(XLog const& other);

    /// Rebuilds a log from the block that asBinary() wrote; `block` stays the caller's. Damage is
    /// reported in the trace, never thrown; what could not be read is as in a default log.
    XLog(unsigned char* block);

    virtual ~XLog();

    /// Takes over all fields but the two reserved words, calls removeAllData(), and appends clones of the
    /// data items: what a derived class leaves in the list stays in front of them.
    virtual XLog& operator=(XLog const& other);

    virtual XLog& setLogClass(unsigned char logClass);
    virtual unsigned char logClass() const;
    virtual XLog& setLogType(unsigned char logType);
    virtual unsigned char logType() const;
    virtual XLog& setUser(unsigned short user);
    virtual unsigned short user() const;

    // Each of these sets (non-zero argument) or clears (zero) one flag; the queries return 0 or 1.
    virtual XLog& setSeverity(int isError);
    virtual int isError() const;
    virtual XLog& enableStandardBlock(int enable);
    virtual int isStandardBlock() const;
    virtual XLog& enableModifyBlock(int enable);
    virtual int isModifyBlock() const;
    virtual XLog& enableComponentLogOnly(int enable);
    virtual int isComponentLogOnly() const;
    virtual XLog& enableComponentLogBoth(int enable);
    virtual int isComponentLogBoth() const;

    /// Copies the text; null gives an empty one. A recorded event name has at most 12 characters.
    virtual XLog& setEventName(char const* eventName);
    /// Owned by the log and valid until the event name is set again.
    virtual char const* eventName() const;

    /// Copies the text; null gives an empty one. A recorded log id has at most 2047 characters.
    virtual XLog& setLogId(char const* logId);
    /// Owned by the log and valid until the log id is set again.
    virtual char const* logId() const;

    /// Appends a clone of the item.
    virtual XLog& addData(XLogData const& item);

    /// Deletes all data items.
    virtual XLog& removeAllData();

    /// Records the log with the error-log service. The service's two result codes go to the trace
    /// only; the log is unchanged and can be recorded again.
    virtual XLog& log();

    /// The log as a block of type 0x8002; release it with delete[].
    virtual unsigned char* asBinary() const;

    /// Hands a filled record to the error-log service, stores the results in `*src` and `*crc` and
    /// traces them.
    virtual XLog& log(xlog_record_interface* record, int* src, int* crc);

    /// The log's own list, in the order of adding. List and items stay the log's; what is put into
    /// the list must come from new and belongs to the log from then on.
    std::list<XLogData*>* data() const;

protected:
    // For the library's own classes; programs cannot link to these.
    class ZELQ_LOCAL Rollback;
    ZELQ_LOCAL XLog& setFlag(Attribute const& flag, int enable);
    ZELQ_LOCAL int hasFlag(Attribute const& flag) const;
    ZELQ_LOCAL std::list<XLogData*>& items() const { return *data_; }  // data() without its trace lines

private:
    struct ZELQ_LOCAL Fields {
        std::uint8_t logClass;
        std::uint8_t logType;
        std::uint16_t user;
        ZoString eventName;
        ZoString logId;
        Attribute attributes;
        std::uint32_t reserved1;
        std::uint32_t reserved2;
    };

    ZELQ_LOCAL explicit XLog(Fields const& fields);

    Fields fields_;
    std::list<XLogData*>* data_;
};

#endif
