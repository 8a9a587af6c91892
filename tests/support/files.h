#ifndef ZELQ_TEST_FILES_H
#define ZELQ_TEST_FILES_H

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace fs = std::filesystem;

/// All bytes of a file; none of one that is not there.
inline std::string contents(fs::path const& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void append(fs::path const& path, std::string const& bytes) {
    std::ofstream(path, std::ios::binary | std::ios::app) << bytes;
}

/// A folder of the test's own, which ends with it.
class TemporaryFolder {
public:
    explicit TemporaryFolder(std::string parent = "/dev/shm") {
        std::string name = parent + "/zelq-test-XXXXXX";
        if (mkdtemp(name.data()) == nullptr) {
            std::perror(name.c_str());
            std::abort();
        }
        path_ = name;
    }
    ~TemporaryFolder() { fs::remove_all(path_); }
    TemporaryFolder(TemporaryFolder const&) = delete;
    TemporaryFolder& operator=(TemporaryFolder const&) = delete;

    fs::path const& path() const { return path_; }

private:
    fs::path path_;
};

#endif
