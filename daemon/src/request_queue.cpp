#include "request_queue.h"

#include "csocket.h"
#include "channel.h"
#include "control_handler.h"
#include "engine_entry.h"

#include <cassert>
#include <cstring>
#include <pthread.h>
#include <unistd.h>

namespace {

/* The queue: appReqList is guarded by MutexAppReqList, which is held only while the list is
   changed or inspected, never while a request runs. */
struct list appReqList = {&appReqList, &appReqList};
pthread_mutex_t MutexAppReqList = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t ConditionAppReqList = PTHREAD_COND_INITIALIZER;

constexpr char kErrorResult[] = "\r\nERROR\r\n";
constexpr char kReloadReply[] = "RELOAD...";

struct QueueLock {
    QueueLock() { pthread_mutex_lock(&MutexAppReqList); }
    ~QueueLock() { pthread_mutex_unlock(&MutexAppReqList); }
    QueueLock(const QueueLock &) = delete;
    QueueLock &operator=(const QueueLock &) = delete;
};

void check_queue_head() {
    assert(appReqList.prev->next == &appReqList && &appReqList == appReqList.next->prev);
}

/* A URC goes to the host connected at the moment it is written; with no host it is
   dropped (a descriptor <= 0 is no host: 0 would be the daemon's own standard input). */
void write_urc(kervInfo_t *kerv, const char *text) {
    const size_t len = strlen(text);
    KERV_DBG("size=[%d]", static_cast<int>(len));
    const int host_fd = kerv != nullptr ? kerv_host_fd(kerv) : -1;
    if (host_fd <= 0) {
        KERV_DBG("no host for the URC, dropped");
        return;
    }
    kerv_write_all(host_fd, text, len);
}

/* Runs one element. The instance is null once the channel has been released. */
void run_request(kervInfo_t **kerv, struct req *req) {
    kervRequest_t *record = &req->request;
    switch (record->cmd) {
    case KERV_REQUEST_CMD_CMD:
        rmmi_process_multi_cmd(req->fd, record->arg[0]);
        break;
    case KERV_REQUEST_CMD_RELOAD:
        kerv_info_reload(*kerv);
        kerv_app_reply(req, kReloadReply);
        break;
    case KERV_REQUEST_URC_RESPONSE:
        write_urc(*kerv, record->arg[0]);
        break;
    case KERV_SRV_LINE_TOO_LONG:
        kerv_write_all(req->fd, kErrorResult, sizeof(kErrorResult) - 1);
        break;
    case KERV_SRV_HOST_CLOSED:
        close(req->fd);
        break;
    case KERV_SRV_CHANNEL_CLOSED:
        kerv_destory();
        *kerv = nullptr;
        break;
    default:
        KERV_INFO(" request command is not calssified");
        break;
    }
}

} // namespace

void kerv_write_all(int fd, const char *buf, size_t len) {
    while (len > 0) {
        const ssize_t written = kerv_safe_write(fd, buf, len);
        if (written <= 0)
            return;
        buf += written;
        len -= static_cast<size_t>(written);
    }
}

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

struct req *kerv_srv_req_create(int fd, u_int16_t cmd, const char *text, size_t text_len) {
    auto *req = static_cast<struct req *>(get_ctrl_buffer(sizeof(struct req)));
    if (req == nullptr)
        return nullptr;
    req->fd = fd;
    req->request.magic = KERV_REQUEST_MAGIC;
    req->request.type = KERV_REQUEST_TYPE_SRV;
    req->request.cmd = cmd;
    if (text != nullptr) {
        assert(text_len < sizeof(req->request.buf));
        memcpy(req->request.buf, text, text_len);
        req->request.arg[0] = req->request.buf;
    }
    return req;
}

kal_bool kerv_srv_notify(int fd, u_int16_t notice) {
    struct req *req = kerv_srv_req_create(fd, notice, nullptr, 0);
    if (req == nullptr)
        return KAL_FALSE;
    appReqEnqueue(req);
    return KAL_TRUE;
}

void *kerv_request_thread(void *) {
    KERV_FUNC(" START");
    kervInfo_t *kerv = kervGet();
    if (kerv == nullptr) {
        KERV_WARN(" no kerv");
        return nullptr;
    }
    for (;;) {
        struct req *req = appReqDequeue();
        if (req == nullptr)
            continue;
        if (req->request.magic != KERV_REQUEST_MAGIC) {
            KERV_WARN(" invalid request magic");
            kerv_write_all(req->fd, kErrorResult, sizeof(kErrorResult) - 1);
            free_ctrl_buffer(req);
            continue;
        }
        KERV_DBG(" Listen request from fd = [%d]", req->fd);
        run_request(&kerv, req);
        if (kerv != nullptr)
            kerv_reset_buffer(kerv);
        free_ctrl_buffer(req);
    }
}
