#include <sys/syscall.h>
#include <climits>
#include <cstdint>
#include <cstdio>

#include "trapfixture.h"

namespace traptest {
namespace {

TEST(PointerCheck, TellsWhatCanBeRead) {
    std::size_t const page = pageSize;
    auto const map = [&](std::size_t pages, int protection, int flags, int file) {
        return static_cast<char*>(mmap(nullptr, pages * page, protection, flags, file, 0));
    };
    char* const two = map(3, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1);
    char* const none = two + 2 * page;
    std::FILE* const file = std::tmpfile();
    char* const mapped = map(2, PROT_READ, MAP_SHARED, fileno(file));
    ASSERT_EQ(0, mprotect(none, page, PROT_NONE) | ftruncate(fileno(file), 1));
    char* const top = reinterpret_cast<char*>(UINTPTR_MAX);
    char const local[] = "on the stack";
    struct {
        char const* what;
        char const* address;
        unsigned long length;
        bool isReadable;
    } const cases[] = {
        {"null", nullptr, 8, false},
        {"nothing at null", nullptr, 0, false},
        {"the first page of all", reinterpret_cast<char*>(8), 8, false},
        {"pages", two, 2 * page, true},
        {"pages and more", two, 2 * page + 1, false},
        {"across two pages", two + page - 1, 2, true},
        {"the last byte", none - 1, 1, true},
        {"the last word", none - 8, 8, true},
        {"the last word and more", none - 8, 9, false},
        {"across the end", none - 1, 2, false},
        {"nothing", two, 0, true},
        {"nothing where nothing is", none, 0, false},
        {"unreadable", none, 1, false},
        {"end of unreadable", none + page - 1, 1, false},
        {"code", reinterpret_cast<char const*>(xpce_ckptr), 8, true},
        {"stack", local, sizeof local, true},
        {"file", mapped, page, true},
        {"behind the end of a file", mapped + page, 1, false},
        {"into the end of a file", mapped + page - 1, 2, false},
        {"all from here to the end", two, ULONG_MAX - reinterpret_cast<std::uintptr_t>(two) + 1, false},
        {"more than there is", two + 1, ULONG_MAX, false},
        {"the last byte of all", top, 1, false},
        {"around the end of all", top, 2, false},
    };
    auto const checkAll = [&] {
        for (auto const& check : cases) {
            int code = -1;
            errno = ENOTTY;
            int const result = xpce_ckptr(check.address, check.length, &code);
            EXPECT_EQ(ENOTTY, errno) << check.what;
            EXPECT_EQ(check.isReadable, result == 0) << check.what;
            EXPECT_EQ(result, code) << check.what;
            EXPECT_EQ(result, xpce_ckptr(check.address, check.length, nullptr)) << check.what;
        }
    };
    EXPECT_EQ(outcomeOf([&] {
                  forbid(SYS_rt_sigprocmask, ~0U, EINVAL);  // the quick way says yes to everything
                  checkAll();
              }),
              ended(0, ""));
    checkAll();
    munmap(two, 3 * page);
    munmap(mapped, 2 * page);
    std::fclose(file);
}

}  // namespace
}  // namespace traptest
