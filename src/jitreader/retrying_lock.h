// A scoped lock of a boost::mutex that repeats calls interrupted by a signal.
#ifndef KORVANE_JITREADER_RETRYING_LOCK_H
#define KORVANE_JITREADER_RETRYING_LOCK_H

#include <boost/thread/mutex.hpp>

namespace korvane_3_10 {

class RetryingLock {
public:
    // Locks; throws boost::lock_error when the mutex can't be locked.
    explicit RetryingLock(boost::mutex& mutex);
    // Unlocks if still held; a failure here can't be reported and is dropped.
    ~RetryingLock();
    RetryingLock(const RetryingLock&) = delete;
    RetryingLock& operator=(const RetryingLock&) = delete;

    // Unlocks early; throws boost::lock_error when the mutex can't be unlocked.
    void unlock();

private:
    boost::mutex& m_mutex;
    bool m_locked;
};

} // namespace korvane_3_10

#endif
