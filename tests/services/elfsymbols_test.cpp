// The functions that a module's file names: what is found in a good file, and what is survived in a
// damaged one or in one that was never a module.

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <link.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

#include "services/elfsymbols.h"

namespace {

class ElfFile : public testing::Test {
protected:
    ElfFile() {
        std::ifstream input(FIRST_MODULE, std::ios::binary);
        bytes_.assign(std::istreambuf_iterator<char>(input), {});
        dladdr(dlsym(module_, "firstModuleCall"), &loaded_);
        bias_ = reinterpret_cast<std::uintptr_t>(loaded_.dli_fbase);
        function_ = reinterpret_cast<std::uintptr_t>(loaded_.dli_saddr) - bias_;
    }
    ~ElfFile() override {
        dlclose(module_);
        close(descriptor_);
    }

    /// Puts the bytes into the file in memory that `path_` names.
    void fill(std::string const& bytes) {
        ASSERT_EQ(ftruncate(descriptor_, 0), 0);
        ASSERT_EQ(pwrite(descriptor_, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
    }

    /// All that a caller would do with a file of these bytes; true when it came
    /// out whole.
    bool walk(std::string const& bytes) {
        fill(bytes);
        zelq::ElfFunction found;
        bool named = false;
        if (symbols_.open(path_.c_str())) {
            named = symbols_.find(function_, found) && std::strcmp(found.name, "firstModuleCall") == 0;
            for (std::uintptr_t address : {std::uintptr_t{0}, function_, function_ - 1, ~std::uintptr_t{0}}) {
                std::memset(found.name, 'x', sizeof found.name);
                if (symbols_.find(address, found)) {
                    EXPECT_LT(strnlen(found.name, sizeof found.name), sizeof found.name);
                }
            }
        }
        // A loaded module is not to be damaged: its own bytes stay the measure for
        // the file's.
        symbols_.isFileOf(bytes_.data(), reinterpret_cast<std::uintptr_t>(bytes_.data()));
        return named;
    }

    void* const module_ = dlopen(FIRST_MODULE, RTLD_NOW);
    Dl_info loaded_ = {};
    std::uintptr_t bias_;
    std::uintptr_t function_;  // as linked
    std::string bytes_;
    int const descriptor_ = memfd_create("damaged", MFD_CLOEXEC);
    std::string const path_ = "/proc/self/fd/" + std::to_string(descriptor_);
    zelq::ElfSymbols symbols_;
};

TEST_F(ElfFile, namesOnlyWhatAFunctionCovers) {
    zelq::ElfFunction found;
    ASSERT_TRUE(symbols_.open(FIRST_MODULE));
    EXPECT_FALSE(symbols_.find(0, found));
    EXPECT_FALSE(symbols_.find(~std::uintptr_t{0}, found));
    EXPECT_TRUE(symbols_.find(function_ + 1, found));
    EXPECT_EQ(found.start, function_);
    EXPECT_TRUE(walk(bytes_));
}

TEST_F(ElfFile, belongsToOneModuleOnly) {
    ASSERT_TRUE(symbols_.open(FIRST_MODULE));
    EXPECT_TRUE(symbols_.isFileOf(loaded_.dli_fbase, bias_));
    ASSERT_TRUE(symbols_.open(OTHER_MODULE));
    EXPECT_FALSE(symbols_.isFileOf(loaded_.dli_fbase, bias_));
}

TEST_F(ElfFile, truncatedBeforeOrWhileItIsOpen) {
    ASSERT_GT(bytes_.size(), 4096U);
    zelq::ElfFunction found;
    for (std::size_t size = 0; size < bytes_.size(); size += 64) {
        fill(bytes_);
        ASSERT_TRUE(symbols_.open(path_.c_str()) && symbols_.find(function_, found));
        fill(bytes_.substr(0, size));
        EXPECT_TRUE(!symbols_.find(function_, found) || size > 64);
        EXPECT_FALSE(walk(bytes_.substr(0, size))) << size;  // the section table stands at the end
    }
}

TEST_F(ElfFile, everyFieldOfTheTablesDamaged) {
    ElfW(Ehdr) header;
    std::memcpy(&header, bytes_.data(), sizeof header);
    std::size_t const tablesEnd = sizeof header + header.e_phnum * sizeof(ElfW(Phdr));
    for (std::size_t place = 0; place < bytes_.size(); ++place) {
        place = place == tablesEnd ? header.e_shoff : place;
        std::string damaged = bytes_;
        for (int const byte : {0x00, 0x01, 0x7F, 0x80, 0xFF}) {
            damaged[place] = static_cast<char>(byte);
            walk(damaged);
        }
    }
}

TEST_F(ElfFile, randomBytes) {
    std::mt19937 random(20240229);  // the same bytes each time
    for (int round = 0; round < 5000; ++round) {
        std::string damaged = bytes_;
        for (auto count = 1 + random() % 200; count != 0; --count) {
            damaged[random() % damaged.size()] = static_cast<char>(random());
        }
        std::memcpy(&damaged[0], bytes_.data(), random() % 2 == 0 ? sizeof(ElfW(Ehdr)) : 0);
        walk(damaged);
    }
}

TEST_F(ElfFile, longNotesAndTablesAreReadInPart) {
    auto* const header = reinterpret_cast<ElfW(Ehdr)*>(&bytes_[0]);
    auto* const segments = reinterpret_cast<ElfW(Phdr)*>(&bytes_[header->e_phoff]);
    int notes = 0;
    for (std::size_t i = 0; i < header->e_phnum; ++i) {
        if (segments[i].p_type == PT_NOTE) {
            ++notes;
            segments[i].p_filesz = 8192;
        }
    }
    ASSERT_GT(notes, 0);
    fill(bytes_);
    ASSERT_TRUE(symbols_.open(path_.c_str()));
    EXPECT_TRUE(symbols_.isFileOf(bytes_.data(), reinterpret_cast<std::uintptr_t>(bytes_.data())));
    header->e_phoff = 4000;  // of a module of which one page may be read, the table ends behind that
    fill(bytes_);
    EXPECT_FALSE(symbols_.isFileOf(bytes_.data(), reinterpret_cast<std::uintptr_t>(bytes_.data())));
}

TEST_F(ElfFile, onlyRegularFilesAreRead) {
    std::string const pipe = std::filesystem::current_path() / ("pipe-" + std::to_string(getpid()));
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (char const* const path : {pipe.c_str(), "/", "/dev/zero", "nothing.so"}) {
        EXPECT_FALSE(symbols_.open(path)) << path;
    }
    std::filesystem::remove(pipe);
    zelq::ElfFunction found;
    EXPECT_FALSE(symbols_.find(function_, found));
}

}  // namespace
