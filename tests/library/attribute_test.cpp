#include <gtest/gtest.h>

#include "zelqcood/log.h"

namespace {

// Runs before any initialiser of any library.
unsigned long valuesAtStart[7];
void readConstants() {
    XLog::Attribute const* const constants[] = {&XLog::informational,         &XLog::error,
                                                &XLog::logStandardBlock,      &XLog::logModifyBlock,
                                                &XLog::componentLogOnly,      &XLog::componentLogBoth,
                                                &XLog::classDefaultAttributes};
    for (int i = 0; i < 7; ++i) {
        valuesAtStart[i] = constants[i]->asUnsignedLong() | constants[i]->asExtendedUnsignedLong();
    }
}
__attribute__((section(".preinit_array"), used)) void (*const runsFirst)() = readConstants;

TEST(Attribute, ConstantsAreThereBeforeAnyCodeOfALibrary) {
    unsigned long const expected[] = {0, 0x100, 0x200, 0x400, 0x001, 0x002, 0};
    for (int i = 0; i < 7; ++i) {
        EXPECT_EQ(valuesAtStart[i], expected[i]) << i;
    }
}

TEST(Attribute, OperatorsWorkOnBothWords) {
    XLog::Attribute const a(0x0103, 0x10);
    XLog::Attribute const b(0x0006, 0x30);
    EXPECT_EQ(a & b, 0x12ul);
    EXPECT_EQ(a & XLog::informational, 0ul);
    XLog::Attribute const both = a | b;
    EXPECT_EQ(both.asUnsignedLong(), 0x0107ul);
    EXPECT_EQ(both.asExtendedUnsignedLong(), 0x30ul);
    XLog::Attribute::NegatedAttribute const negated = ~XLog::error;
    EXPECT_EQ(negated.asUnsignedLong(), 0xFFFFFEFFul);
    EXPECT_EQ(negated.asExtendedUnsignedLong(), 0xFFFFFFFFul);
    XLog::Attribute const cleared = a & negated;
    EXPECT_EQ(cleared.asUnsignedLong(), 0x0003ul);
    EXPECT_EQ(cleared.asExtendedUnsignedLong(), 0x10ul);
    XLog::Attribute changed(a);
    EXPECT_EQ(&(changed |= b), &changed);
    EXPECT_EQ(&(changed &= ~a), &changed);
    EXPECT_EQ(changed.asUnsignedLong(), 0x0004ul);
    EXPECT_EQ(changed.asExtendedUnsignedLong(), 0x20ul);
}

struct Flag {
    XLog& (XLog::*set)(int);
    int (XLog::*is)() const;
} const flags[] = {
    {&XLog::setSeverity, &XLog::isError},
    {&XLog::enableStandardBlock, &XLog::isStandardBlock},
    {&XLog::enableModifyBlock, &XLog::isModifyBlock},
    {&XLog::enableComponentLogOnly, &XLog::isComponentLogOnly},
    {&XLog::enableComponentLogBoth, &XLog::isComponentLogBoth},
};

// Whether another flag is set or not, a setter changes its own only; any non-zero argument sets.
TEST(Attribute, SettersOfALogChangeTheirOwnBitOnly) {
    for (Flag const& changed : flags) {
        for (int const others : {0, 1}) {
            for (int const argument : {0, 1, 5, -1}) {
                XLog log;
                for (Flag const& flag : flags) {
                    EXPECT_EQ(&(log.*flag.set)(others), &log);
                }
                (log.*changed.set)(argument);
                for (Flag const& flag : flags) {
                    EXPECT_EQ((log.*flag.is)(), &flag == &changed ? argument != 0 : others) << &changed - flags;
                }
            }
        }
    }
}

}  // namespace
