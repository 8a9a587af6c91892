// The ring when calls of the system fail, among programs that die, and in the hands of others.

#include "ringfixture.h"

#include <linux/magic.h>
#include <ucontext.h>
#include <cerrno>

#include "common/statefolder.h"
#include "support/cancelled.h"
#include "support/failingcalls.h"

namespace ringtest {
namespace {

TEST_F(Ring, IsWholeOrNotThereWhateverFailsWhenItIsMade) {
    char const* const calls = " open openat mkdir fstat fstatfs fchmod posix_fallocate pread pwrite linkat ";
    Fault const faults[] = {
        {"ENOSPC", ENOSPC, false, calls},
        {"ENOSPC from then on", ENOSPC, true, calls},
        {"death", dies, false, calls},
    };
    unsigned hits = 0;
    for (Fault const& fault : faults) {
        bool isHit = true;
        for (unsigned n = 1; isHit; ++n) {
            SCOPED_TRACE(std::string(fault.what) + " at call " + std::to_string(n));
            fs::remove_all(folder_);
            int const status = inChild([&] {
                FaultAtCall atCall(fault, n);
                {
                    CallsHooked const hooked(std::ref(atCall));
                    errno = ENOTTY;
                    xtr_trace("first");
                    EXPECT_EQ(ENOTTY, errno);
                }
                char snapshot[1000];
                EXPECT_EQ(0, xtr_fetch(snapshot, 10, 80, nullptr, nullptr));
                _exit(testing::Test::HasFailure() ? 1 : atCall.failed().empty() ? 2 : 0);
            });
            isHit = status == 0;
            EXPECT_TRUE(isHit || WEXITSTATUS(status) == 2);
            hits += isHit ? 1U : 0U;
            std::error_code none;
            for (auto const& entry : fs::directory_iterator(folder_, none)) {
                EXPECT_EQ(ring_, entry.path()) << "left behind";
            }
            EXPECT_EQ(0, inChild([&] {
                          xtr_trace("next");
                          EXPECT_TRUE(usesSharedRing());
                      }));
        }
    }
    EXPECT_GT(hits, 30U) << "are the calls still hooked?";
}

TEST_F(Ring, IsSharedOnlyWhereItsMemoryCannotGoAway) {
    for (unsigned const type : {0U + TMPFS_MAGIC, 0U + EXT4_SUPER_MAGIC, BTRFS_SUPER_MAGIC, 0U + XFS_SUPER_MAGIC}) {
        bool const stays = type == TMPFS_MAGIC || type == EXT4_SUPER_MAGIC;
        for (bool const exists : {false, true}) {
            SCOPED_TRACE(std::to_string(type) + (exists ? ", there already" : ", to be made"));
            fs::remove(ring_);
            ASSERT_EQ(0, inChild([&] { exists ? void(xtr_trace("first")) : void(); }));
            EXPECT_EQ(0, inChild([&] {
                          CallsHooked const hooked([](std::string const&) { return 0; });
                          setFileSystem(type);
                          xtr_trace("line");
                          EXPECT_EQ(stays, usesSharedRing());
                      }));
            EXPECT_EQ(stays || exists, fs::exists(ring_));
        }
    }
}

TEST_F(Ring, IsNoStandardDescriptorOfAProgramWithoutThem) {
    EXPECT_EQ(0, inChild([] {
                  StandardDescriptorsClosed const closed;
                  xtr_trace("line");
                  EXPECT_TRUE(usesSharedRing());
              }));
}

TEST_F(Ring, IsMadeByAThreadThatIsToBeCancelled) {
    EXPECT_EQ(0, inChild([] {
                  EXPECT_TRUE(outlivesCancellation([] { xtr_trace("first"); }));
                  EXPECT_TRUE(usesSharedRing());
              }));
}

// Only the ring's owner can cut it short, and nothing that a library may do saves a program that
// writes to a mapping then. All others go on, also those who start later.
TEST_F(Ring, CutShortEndsOnlyProgramsThatWriteToIt) {
    ASSERT_EQ(0, inChild([] { xtr_trace("first"); }));
    RingReader reader;
    ASSERT_EQ(0, reader.open());
    pid_t const writer = start([] {
        signal(SIGBUS, SIG_DFL);  // AddressSanitizer would make it an exit
        writeChecked(1, ~0U);
    });
    while (newest(reader, 2).size() < 2) {
    }
    ASSERT_EQ(0, truncate(ring_.c_str(), 0));
    EXPECT_EQ(SIGBUS, WTERMSIG(wait(writer)));
    EXPECT_EQ(0U, newest(reader, 2).size());
    EXPECT_EQ(0, inChild([] {
                  xtr_trace("line");
                  EXPECT_FALSE(usesSharedRing());
              }));
    fs::remove(ring_);
    EXPECT_EQ(0, inChild([] {
                  xtr_trace("line");
                  EXPECT_TRUE(usesSharedRing());
              }));
}

zelq::RingSlot* watched;
std::uint64_t taken;
constexpr greg_t singleStep = 0x100;  // a flag of the processor: a signal behind each instruction

greg_t& processorFlags(void* context) {
    return static_cast<ucontext_t*>(context)->uc_mcontext.gregs[REG_EFL];
}

void letOneInstructionAtIt(int, siginfo_t*, void* context) {
    mprotect(watched, zelq::ringPageSize, PROT_READ | PROT_WRITE);
    processorFlags(context) |= singleStep;
}

void takeIt(int, siginfo_t*, void* context) {
    EXPECT_FALSE(zelq::isBusy(watched->control)) << "not only looked at";
    watched->control = taken;
    processorFlags(context) &= ~singleStep;
}

// In the library's own mapping, whose first page is the one that it may not write to.
zelq::RingSlot* slotsOfLibrary() {
    std::istringstream maps(contents("/proc/self/maps"));
    for (std::string line; std::getline(maps, line);) {
        if (line.find(" rw-s 00001000 ") != std::string::npos && line.find("/ring") != std::string::npos) {
            return reinterpret_cast<zelq::RingSlot*>(std::stoul(line, nullptr, 16) + zelq::ringHeaderSize -
                                                     zelq::ringPageSize);
        }
    }
    return nullptr;
}

TEST_F(Ring, ASlotThatLooksFreeMayHaveBeenTakenMeanwhile) {
    makeSmallRing();
    std::uint64_t const ticket = 3 * smallRing;  // its slot begins a page
    header()->nextTicket = ticket;
    EXPECT_EQ(0, inChild([&] {
                  xtr_trace_cb(0, nullptr);
                  watched = slotsOfLibrary();
                  ASSERT_NE(nullptr, watched);
                  taken = zelq::slotControl(3, static_cast<std::uint32_t>(getpid()), true);
                  struct sigaction action {};
                  action.sa_flags = SA_SIGINFO;
                  action.sa_sigaction = letOneInstructionAtIt;
                  sigaction(SIGSEGV, &action, nullptr);
                  action.sa_sigaction = takeIt;
                  sigaction(SIGTRAP, &action, nullptr);
                  mprotect(watched, zelq::ringPageSize, PROT_NONE);
                  xtr_trace("line");
                  EXPECT_EQ(taken, watched->control);
              }));
    EXPECT_EQ(ticket + 1, slots()[1].ticket) << "the line went nowhere";
}

std::string folderFor(zelq::FolderUse use) {
    char path[zelq::folderPathSize];
    int const failure = zelq::stateFolderPath(use, path);
    return failure == 0 ? path : std::strerror(failure);
}

TEST(StateFolder, LiesWhereTheEnvironmentSays) {
    EXPECT_EQ(0, inChild([] {
                  ASSERT_TRUE(geteuid() != 0 || setuid(12345) == 0);
                  std::string const user = std::to_string(geteuid());
                  setenv("ZELQ_DIR", "/some/where", 1);
                  setenv("HOME", "/home/me", 1);
                  EXPECT_EQ("/some/where", folderFor(zelq::FolderUse::store));
                  EXPECT_EQ("/some/where", folderFor(zelq::FolderUse::ring));
                  setenv("ZELQ_DIR", "", 1);
                  EXPECT_EQ("/dev/shm/zelq-" + user, folderFor(zelq::FolderUse::ring));
                  EXPECT_EQ("/home/me/.local/state/zelq", folderFor(zelq::FolderUse::store));
                  setenv("HOME", "not/absolute", 1);
                  EXPECT_EQ("/var/tmp/zelq-" + user, folderFor(zelq::FolderUse::store));
                  setenv("ZELQ_DIR", std::string(600, 'x').c_str(), 1);
                  EXPECT_EQ(std::strerror(ENAMETOOLONG), folderFor(zelq::FolderUse::store));
              }));
}

TEST(StateFolder, SizesAreTakenOrLeft) {
    struct Row {
        char const* text;
        unsigned long long size;
    };
    for (Row const& row : {Row{"", 7}, Row{"5000", 5000}, Row{"5K", 5120}, Row{"2M", 2 << 20}, Row{"1G", 1 << 30},
                           Row{"2G", 1 << 30}, Row{"99999999999999999999", 1 << 30}, Row{"17179869184G", 1 << 30},
                           Row{"1", 100}, Row{"0K", 100}, Row{"5KB", 7}, Row{"5k", 7}, Row{"-5", 7}, Row{" 5", 7}}) {
        setenv("SIZE", row.text, 1);
        EXPECT_EQ(row.size, zelq::sizeFromEnvironment("SIZE", 7, 100, 1 << 30)) << row.text;
    }
}

}  // namespace
}  // namespace ringtest
