// RAII guards over the pthread primitives that the public records embed.
#pragma once

#include <pthread.h>

namespace sdk {

class MutexLock {
  public:
    explicit MutexLock(pthread_mutex_t *m) : m_(m) { pthread_mutex_lock(m_); }
    ~MutexLock() { pthread_mutex_unlock(m_); }
    MutexLock(const MutexLock &) = delete;
    MutexLock &operator=(const MutexLock &) = delete;

  private:
    pthread_mutex_t *m_;
};

}  // namespace sdk
