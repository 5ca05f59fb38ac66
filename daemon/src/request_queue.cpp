#include "request_queue.h"

#include <cassert>
#include <cstring>
#include <pthread.h>

namespace {

/* The queue: appReqList is guarded by MutexAppReqList, which is held only while the list is
   changed or inspected, never while a request runs. */
struct list appReqList = {&appReqList, &appReqList};
pthread_mutex_t MutexAppReqList = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t ConditionAppReqList = PTHREAD_COND_INITIALIZER;

struct QueueLock {
    QueueLock() { pthread_mutex_lock(&MutexAppReqList); }
    ~QueueLock() { pthread_mutex_unlock(&MutexAppReqList); }
    QueueLock(const QueueLock &) = delete;
    QueueLock &operator=(const QueueLock &) = delete;
};

void check_queue_head() {
    assert(appReqList.prev->next == &appReqList && &appReqList == appReqList.next->prev);
}

} // namespace

void kerv_queue_init() {
    list_init(&appReqList);
}

void appReqEnqueue(struct req *req) {
    {
        QueueLock lock;
        check_queue_head();
        list_add_tail(&req->next, &appReqList);
    }
    /* Signalled after the unlock: a worker woken while the lock is still held would only
       block on it again, costing a second wake-up per request on a one-CPU board. */
    pthread_cond_signal(&ConditionAppReqList);
}

struct req *appReqDequeue() {
    QueueLock lock;
    check_queue_head();
    if (list_empty(&appReqList))
        pthread_cond_wait(&ConditionAppReqList, &MutexAppReqList);
    struct list *first = list_remove_head(&appReqList);
    return first == &appReqList ? nullptr : reinterpret_cast<struct req *>(first);
}

struct req *kerv_req_create(kerv_work_e kind, int fd, const char *text, size_t text_len) {
    /* A host line costs its own length, not a whole control record. */
    const size_t text_room = text != nullptr ? text_len + 1 : 0;
    auto *req = static_cast<struct req *>(get_ctrl_buffer(sizeof(struct req) + text_room));
    if (req == nullptr)
        return nullptr;
    req->fd = fd;
    req->kind = kind;
    if (text != nullptr) {
        memcpy(req->text, text, text_len);
        req->text_len = text_len;
    }
    return req;
}

struct req *kerv_req_create_control(int fd) {
    struct req *req = kerv_req_create(KERV_WORK_CONTROL, fd, nullptr, 0);
    if (req == nullptr)
        return nullptr;
    req->request = static_cast<kervRequest_t *>(get_ctrl_buffer(sizeof(kervRequest_t)));
    if (req->request == nullptr) {
        free_ctrl_buffer(req);
        return nullptr;
    }
    return req;
}

void kerv_req_free(struct req *req) {
    if (req == nullptr)
        return;
    free_ctrl_buffer(req->request);
    free_ctrl_buffer(req);
}

kal_bool kerv_req_notify(kerv_work_e kind, int fd) {
    struct req *req = kerv_req_create(kind, fd, nullptr, 0);
    if (req == nullptr)
        return KAL_FALSE;
    appReqEnqueue(req);
    return KAL_TRUE;
}
