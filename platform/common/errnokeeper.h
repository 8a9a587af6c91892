#ifndef ZELQ_ERRNOKEEPER_H
#define ZELQ_ERRNOKEEPER_H

#include <cerrno>

namespace zelq {

/// Puts errno back at the end of its life: reporting an error never changes it. Not for a frame that
/// a jump may leave.
class ErrnoKeeper {
public:
    ErrnoKeeper() : saved_(errno) {}
    ~ErrnoKeeper() { errno = saved_; }
    ErrnoKeeper(ErrnoKeeper const&) = delete;
    ErrnoKeeper& operator=(ErrnoKeeper const&) = delete;

private:
    int saved_;
};

}  // namespace zelq

#endif
