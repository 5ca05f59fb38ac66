/*
 * Holds a pthread mutex for one scope: the daemon's few locks and the socket wrapper's are
 * taken and released with it.
 */
#ifndef KERV_MUTEX_GUARD_H
#define KERV_MUTEX_GUARD_H

#include <pthread.h>

struct MutexGuard {
    pthread_mutex_t *mutex;
    explicit MutexGuard(pthread_mutex_t *m) : mutex(m) { pthread_mutex_lock(mutex); }
    ~MutexGuard() { pthread_mutex_unlock(mutex); }
    MutexGuard(const MutexGuard &) = delete;
    MutexGuard &operator=(const MutexGuard &) = delete;
};

#endif /* KERV_MUTEX_GUARD_H */
