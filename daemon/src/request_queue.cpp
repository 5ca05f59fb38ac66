#include "request_queue.h"

#include "mutex_guard.h"

#include <cassert>
#include <cstring>
#include <ctime>
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
int queued_departed = 0;
kal_uint32 dropped_urcs = 0;
/* The channel server thread waits on the room line for the worker to take lines. */
bool room_wanted = false;
int room_fd = -1;

struct QueueLock : MutexGuard {
    QueueLock() : MutexGuard(&MutexAppReqList) {}
};

/*
 * Host lines are the one element every command needs. They are kept in fixed slots rather
 * than taken from the heap, so that a command costs no allocation and no zero-filling: a
 * line is its bytes and a length. A slot holds a line of up to kLineSlotText characters;
 * longer lines, lines beyond the slots in use (a host far ahead of the worker) and every
 * other kind of element take a heap element. Most recently freed slots are taken first, so
 * a steady flow of commands keeps reusing the same few.
 */
constexpr size_t kLineSlotBytes = 256;
constexpr size_t kLineSlotText = kLineSlotBytes - sizeof(struct req) - 1;
constexpr int kLineSlotCount = KERV_QUEUE_MAX_LINES;
alignas(struct req) unsigned char line_slots[kLineSlotCount][kLineSlotBytes];
struct list free_line_slots = {&free_line_slots, &free_line_slots};
pthread_mutex_t MutexLineSlots = PTHREAD_MUTEX_INITIALIZER;

bool is_line_slot(const struct req *req) {
    const auto *at = reinterpret_cast<const unsigned char *>(req);
    const unsigned char *first = &line_slots[0][0];
    return at >= first && at < first + sizeof(line_slots);
}

struct req *take_line_slot(size_t text_len) {
    if (text_len > kLineSlotText)
        return nullptr;
    MutexGuard lock(&MutexLineSlots);
    struct list *slot = list_remove_head(&free_line_slots);
    return slot != &free_line_slots ? reinterpret_cast<struct req *>(slot) : nullptr;
}

void return_line_slot(struct req *req) {
    MutexGuard lock(&MutexLineSlots);
    list_add(&req->next, &free_line_slots);
}

void make_line_slots_free() {
    list_init(&free_line_slots);
    for (auto &slot : line_slots)
        list_add_tail(reinterpret_cast<struct list *>(slot), &free_line_slots);
}

/* A heap element with room for text_room bytes of text, zero-filled. */
struct req *take_heap_element(size_t text_room) {
    return static_cast<struct req *>(get_ctrl_buffer(sizeof(struct req) + text_room));
}

void check_queue_head() {
    assert(appReqList.prev->next == &appReqList && &appReqList == appReqList.next->prev);
}

bool is_line(const struct req *req) {
    return req->kind == KERV_WORK_LINE || req->kind == KERV_WORK_LINE_TOO_LONG ||
           req->kind == KERV_WORK_PROMPT || req->kind == KERV_WORK_TWO_STEP ||
           req->kind == KERV_WORK_PROMPT_CANCEL;
}

bool lines_full() {
    return queued_lines >= KERV_QUEUE_MAX_LINES || queued_line_bytes >= KERV_QUEUE_MAX_LINE_BYTES;
}

bool departed_full() {
    return queued_departed >= KERV_QUEUE_MAX_DEPARTED;
}

/* Under the lock: the channel server thread waits for whichever room it asked for. */
kal_bool want_room_while(bool full) {
    room_wanted = full;
    return full ? KAL_TRUE : KAL_FALSE;
}

/* Under the lock: counts req in (sign 1) or out (sign -1). */
void count(const struct req *req, int sign) {
    if (is_line(req)) {
        queued_lines += sign;
        queued_line_bytes =
            sign > 0 ? queued_line_bytes + req->text_len : queued_line_bytes - req->text_len;
    } else if (req->kind == KERV_WORK_URC) {
        queued_urcs += sign;
    } else if (req->kind == KERV_WORK_HOST_CLOSED) {
        queued_departed += sign;
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

/*
 * Under the lock: unlinks every queued line of host_fd onto dropped, or with a half-closed
 * host marks them; gives where the host's closed notice goes (behind the last line kept).
 */
struct list *settle_host_lines(int host_fd, kerv_host_end_e end, struct list *dropped,
                               kal_uint32 *count_dropped) {
    struct list *notice_after = &appReqList;
    struct list *link = appReqList.next;
    while (link != &appReqList) {
        struct list *following = link->next;
        auto *queued = reinterpret_cast<struct req *>(link);
        if (is_line(queued) && queued->fd == host_fd) {
            if (end == KERV_HOST_HALF_CLOSED) {
                queued->host_ended = KAL_TRUE;
                notice_after = link;
            } else {
                list_del(link);
                count(queued, -1);
                list_add_tail(link, dropped);
                (*count_dropped)++;
            }
        }
        link = following;
    }
    return notice_after;
}

} // namespace

int kerv_queue_init() {
    list_init(&appReqList);
    make_line_slots_free();
    room_fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    return room_fd < 0 ? 0 : 1;
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

struct req *appReqDequeue(int wait_ms) {
    QueueLock lock;
    check_queue_head();
    if (list_empty(&appReqList) && wait_ms < 0) {
        pthread_cond_wait(&ConditionAppReqList, &MutexAppReqList);
    } else if (list_empty(&appReqList)) {
        struct timespec until;
        clock_gettime(CLOCK_REALTIME, &until);
        until.tv_sec += wait_ms / 1000;
        until.tv_nsec += (wait_ms % 1000) * 1000000L;
        if (until.tv_nsec >= 1000000000L) {
            until.tv_sec++;
            until.tv_nsec -= 1000000000L;
        }
        pthread_cond_timedwait(&ConditionAppReqList, &MutexAppReqList, &until);
    }
    struct list *first = list_remove_head(&appReqList);
    if (first == &appReqList)
        return nullptr;
    auto *req = reinterpret_cast<struct req *>(first);
    count(req, -1);
    if (room_wanted && !lines_full() && !departed_full()) {
        room_wanted = false;
        eventfd_write(room_fd, 1);
    }
    return req;
}

kal_bool kerv_queue_lines_full() {
    QueueLock lock;
    return want_room_while(lines_full());
}

kal_bool kerv_queue_departed_full() {
    QueueLock lock;
    return want_room_while(departed_full());
}

kal_uint32 kerv_queue_host_gone(int host_fd, kerv_host_end_e end, struct req *closed_notice) {
    struct list dropped = {&dropped, &dropped};
    kal_uint32 count_dropped = 0;
    {
        QueueLock lock;
        check_queue_head();
        if (closed_notice == nullptr)
            end = KERV_HOST_GONE;
        struct list *notice_after = settle_host_lines(host_fd, end, &dropped, &count_dropped);
        if (closed_notice != nullptr) {
            list_add(&closed_notice->next, notice_after);
            count(closed_notice, 1);
        }
    }
    pthread_cond_signal(&ConditionAppReqList);
    while (!list_empty(&dropped))
        kerv_req_free(reinterpret_cast<struct req *>(list_remove_head(&dropped)));
    return count_dropped;
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
    const size_t text_room = text != nullptr ? text_len + 1 : 0;
    struct req *req = kind == KERV_WORK_LINE ? take_line_slot(text_len) : nullptr;
    if (req == nullptr)
        req = take_heap_element(text_room);
    if (req == nullptr)
        return nullptr;
    req->fd = fd;
    req->kind = kind;
    req->request = nullptr;
    req->host_ended = KAL_FALSE;
    req->text_len = text != nullptr ? text_len : 0;
    if (text != nullptr) {
        memcpy(req->text, text, text_len);
        req->text[text_len] = '\0';
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
    if (is_line_slot(req))
        return_line_slot(req);
    else
        free_ctrl_buffer(req);
}

kal_bool kerv_req_notify(kerv_work_e kind, int fd) {
    struct req *req = kerv_req_create(kind, fd, nullptr, 0);
    if (req == nullptr)
        return KAL_FALSE;
    appReqEnqueue(req);
    return KAL_TRUE;
}
