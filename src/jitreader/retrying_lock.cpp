// A scoped lock of a boost::mutex that repeats calls interrupted by a signal.
#include "jitreader/retrying_lock.h"

#include <boost/thread/exceptions.hpp>

#include <cerrno>
#include <pthread.h>

namespace korvane_3_10 {

namespace {

int lockNative(boost::mutex& mutex) {
    int result;
    do {
        result = pthread_mutex_lock(mutex.native_handle());
    } while (result == EINTR);
    return result;
}

int unlockNative(boost::mutex& mutex) {
    int result;
    do {
        result = pthread_mutex_unlock(mutex.native_handle());
    } while (result == EINTR);
    return result;
}

} // namespace

RetryingLock::RetryingLock(boost::mutex& mutex) : m_mutex(mutex), m_locked(false) {
    const int result = lockNative(m_mutex);
    if (result != 0)
        boost::throw_exception(boost::lock_error(result, "boost: mutex lock failed in pthread_mutex_lock"));
    m_locked = true;
}

RetryingLock::~RetryingLock() {
    if (m_locked)
        unlockNative(m_mutex);
}

void RetryingLock::unlock() {
    if (!m_locked)
        return;
    m_locked = false;
    const int result = unlockNative(m_mutex);
    if (result != 0)
        boost::throw_exception(boost::lock_error(result, "boost: mutex unlock failed in pthread_mutex_unlock"));
}

} // namespace korvane_3_10
