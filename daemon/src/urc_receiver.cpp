#include "urc_receiver.h"

#include "csocket.h"
#include "daemon_config.h"
#include "start_barrier.h"
#include "request_queue.h"

#include <cerrno>
#include <cstring>
#include <pthread.h>

namespace {

bool urc_enabled() {
    unsigned long enable = 0;
    if (kerv_cfg_number(KERV_KEY_URC_LISTEN_ENABLE, &enable) != KERV_CFG_SET) {
        KERV_WARN("no KERV_URC_LISTEN_ENABLE.");
        return false;
    }
    if (enable == 0) {
        KERV_WARN("KERV_URC_LISTEN_ENABLE is disable.");
        return false;
    }
    return true;
}

/* Receives for ever; returns only when the port cannot be listened on. */
void receive_urcs(urcInfo_t *urc) {
    KERV_DBG(" Listen the port %d", urc->port);
    for (;;) {
        urc->sock = SOCK_Listen(urc->port, SOCKET_TYPE_UDP, SOCKET_FLAG_LOCAL_ONLY);
        if (urc->sock == nullptr) {
            KERV_WARN("In URC receiver, SOCK_Listen Failed!");
            return;
        }
        KERV_INFO("In URC receiver, SOCK_Listen OK");
        kerv_thread_settled();
        for (;;) {
            char datagram[KERV_URC_BUF_SIZE] = {};
            const int got = SOCK_Recv(urc->sock, datagram, KERV_URC_BUF_SIZE - 1);
            if (got < 0) {
                KERV_INFO("can't receive the data (%d), %s (%d)", got, strerror(errno), errno);
                KERV_INFO("close URC socket");
                break;
            }
            KERV_INFO(" data ret = %d", got);
            /* A NUL inside the datagram ends the URC. */
            memcpy(urc->cmd_buf, datagram, strlen(datagram) + 1);
            urc_request_handle(urc);
        }
        SOCK_Close(urc->sock);
        urc->sock = nullptr;
    }
}

} // namespace

void *kerv_urc_thread(void *) {
    KERV_FUNC(" START");
    if (!urc_enabled()) {
        kerv_thread_settled();
        pthread_exit(nullptr);
    }
    urcInfo_t *urc = urc_info_create();
    if (urc == nullptr)
        KERV_PRINT("kerv_urc_thread: create urc info instance fail");
    else if (!urc_info_init(urc))
        KERV_PRINT("kerv_urc_thread: init urc info instance fail");
    else
        receive_urcs(urc);
    KERV_FUNC(" END");
    free_ctrl_buffer(urc);
    pthread_exit(nullptr);
}

urcInfo_t *urc_info_create() {
    KERV_FUNC(" ENTER");
    auto *urc = static_cast<urcInfo_t *>(get_ctrl_buffer(sizeof(urcInfo_t)));
    if (urc == nullptr) {
        KERV_WARN("Can't create urc info instance : %s ", strerror(errno));
        return nullptr;
    }
    KERV_FUNC(" EXIT");
    return urc;
}

int urc_info_init(urcInfo_t *urc) {
    KERV_FUNC(" ENTER");
    if (urc == nullptr) {
        KERV_WARN("urc is NULL");
        return 0;
    }
    KERV_DBG("get configuration!!!!");
    unsigned long port = KERV_DEFAULT_URC_LISTEN_PORT;
    if (kerv_cfg_number(KERV_KEY_URC_LISTEN_PORT, &port) != KERV_CFG_MISSING)
        KERV_DBG("KERV_URC_LISTEN_PORT is [%d]", static_cast<int>(port));
    urc->port = static_cast<unsigned int>(port);
    KERV_FUNC(" EXIT");
    return 1;
}

kal_bool urc_request_handle(urcInfo_t *urc) {
    KERV_FUNC(" ENTER");
    if (urc == nullptr) {
        KERV_WARN("urc is NULL");
        return KAL_FALSE;
    }
    if (urc->new_fd < 0) {
        KERV_WARN("Can't open fd : %s !!", strerror(errno));
        return KAL_FALSE;
    }
    struct req *req =
        kerv_req_create(KERV_WORK_URC, urc->new_fd, urc->cmd_buf, strlen(urc->cmd_buf));
    if (req == nullptr) {
        KERV_WARN("Can't malloc for pending req : %s !!", strerror(errno));
        return KAL_FALSE;
    }
    KERV_INFO("Get URC=[%s] and send to kerv_request_thread().", urc->cmd_buf);
    appReqEnqueue(req);
    KERV_FUNC(" EXIT");
    return KAL_TRUE;
}
