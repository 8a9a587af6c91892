#ifndef ZELQ_TEST_CANCELLED_H
#define ZELQ_TEST_CANCELLED_H

#include <pthread.h>
#include <functional>
#include <thread>

/// Runs it in a thread whose cancellation is pending. Tells whether it came to its end, and the thread was
/// cancelled after that.
inline bool outlivesCancellation(std::function<void()> const& run) {
    enum { begun, through, notCancelled } reached = begun;
    std::thread([&] {
        pthread_cancel(pthread_self());
        run();
        reached = through;
        pthread_testcancel();
        reached = notCancelled;
    }).join();
    return reached == through;
}

#endif
