#include "start_barrier.h"

#include <cerrno>
#include <ctime>
#include <pthread.h>

namespace {

pthread_mutex_t SettledLock = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t SettledCondition = PTHREAD_COND_INITIALIZER;
int settled_threads = 0;

} // namespace

void kerv_wait_for_settled(int threads) {
    timespec deadline;
    clock_gettime(CLOCK_REALTIME, &deadline);
    deadline.tv_sec += 1;
    pthread_mutex_lock(&SettledLock);
    while (settled_threads < threads &&
           pthread_cond_timedwait(&SettledCondition, &SettledLock, &deadline) != ETIMEDOUT) {
    }
    pthread_mutex_unlock(&SettledLock);
}

void kerv_thread_settled() {
    pthread_mutex_lock(&SettledLock);
    settled_threads++;
    pthread_mutex_unlock(&SettledLock);
    pthread_cond_signal(&SettledCondition);
}
