#ifndef ZELQCOOD_BENCH_BENCHFOLDER_H
#define ZELQCOOD_BENCH_BENCHFOLDER_H

#include <cstdlib>
#include <filesystem>
#include <string>

/// A state folder of the benchmark's own, gone when it ends. On a memory filesystem unless told
/// otherwise, like the ring of a running system.
class BenchFolder {
public:
    explicit BenchFolder(std::string const& parent = "/dev/shm") : path_(parent + "/zelq-bench-XXXXXX") {
        if (mkdtemp(path_.data()) == nullptr || setenv("ZELQ_DIR", path_.c_str(), 1) != 0) {
            std::abort();  // without it the numbers would be another thing's
        }
    }
    ~BenchFolder() { std::filesystem::remove_all(path_); }
    BenchFolder(BenchFolder const&) = delete;
    BenchFolder& operator=(BenchFolder const&) = delete;

    std::string const& path() const { return path_; }

private:
    std::string path_;
};

#endif
