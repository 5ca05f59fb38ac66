#include "request_queue.h"

#include <cassert>
#include <cstring>
#include <pthread.h>
#include <sys/eventfd.h>

namespace {

/* The queue: appReqList and the counts below are guarded by MutexAppReqList, which is held
   only while the list is changed or inspected, never while a request runs. */
struct list appReqList = {&appReqList, &appReqList};
pthread_mutex_t MutexAppReqList = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t ConditionAppReqList = PTHREAD_COND_INITIALIZER;

int queued_lines = 0;
size_t queued_line_bytes = 0;
int queued_urcs = 0;
kal_uint32 dropped_urcs = 0;
/* The channel server thread waits on the room line for the worker to take lines. */
bool room_wanted = false;
int room_fd = -1;

struct QueueLock {
    QueueLock() { pthread_mutex_lock(&MutexAppReqList); }
    ~QueueLock() { pthread_mutex_unlock(&MutexAppReqList); }
    QueueLock(const QueueLock &) = delete;
    QueueLock &operator=(const QueueLock &) = delete;
};

void check_queue_head() {
    assert(appReqList.prev->next == &appReqList && &appReqList == appReqList.next->prev);
}

bool is_line(const struct req *req) {
    return req->kind == KERV_WORK_LINE || req->kind == KERV_WORK_LINE_TOO_LONG;
}

bool lines_full() {
    return queued_lines >= KERV_QUEUE_MAX_LINES || queued_line_bytes >= KERV_QUEUE_MAX_LINE_BYTES;
}

/* Under the lock: counts req in (sign 1) or out (sign -1). */
void count(const struct req *req, int sign) {
    if (is_line(req)) {
        queued_lines += sign;
        queued_line_bytes =
            sign > 0 ? queued_line_bytes + req->text_len : queued_line_bytes - req->text_len;
    } else if (req->kind == KERV_WORK_URC) {
        queued_urcs += sign;
    }
}

/* Under the lock: unlinks the oldest queued URC to make room for a newer one. */
struct req *unlink_oldest_urc() {
    for (struct list *link = appReqList.next; link != &appReqList; link = link->next) {
        auto *queued = reinterpret_cast<struct req *>(link);
        if (queued->kind == KERV_WORK_URC) {
            list_del(link);
            count(queued, -1);
            dropped_urcs++;
            return queued;
        }
    }
    return nullptr;
}

} // namespace

int kerv_queue_init() {
    list_init(&appReqList);
    room_fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    return room_fd < 0 ? -1 : 0;
}

void appReqEnqueue(struct req *req) {
    struct req *dropped = nullptr;
    {
        QueueLock lock;
        check_queue_head();
        /* A host that does not read holds the worker in its writes: its URCs must not pile
           up meanwhile. The newest are the ones worth keeping. */
        if (req->kind == KERV_WORK_URC && queued_urcs >= KERV_QUEUE_MAX_URCS)
            dropped = unlink_oldest_urc();
        list_add_tail(&req->next, &appReqList);
        count(req, 1);
    }
    kerv_req_free(dropped);
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
    if (first == &appReqList)
        return nullptr;
    auto *req = reinterpret_cast<struct req *>(first);
    count(req, -1);
    if (room_wanted && !lines_full()) {
        room_wanted = false;
        eventfd_write(room_fd, 1);
    }
    return req;
}

kal_bool kerv_queue_lines_full() {
    QueueLock lock;
    room_wanted = lines_full();
    return room_wanted ? KAL_TRUE : KAL_FALSE;
}

int kerv_queue_room_fd() {
    return room_fd;
}

void kerv_queue_room_taken() {
    eventfd_t ignored;
    eventfd_read(room_fd, &ignored);
}

kal_uint32 kerv_queue_take_dropped_urcs() {
    QueueLock lock;
    if (queued_urcs > 0)
        return 0;
    const kal_uint32 dropped = dropped_urcs;
    dropped_urcs = 0;
    return dropped;
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
