#include "host_output.h"

#include "csocket.h"

void kerv_write_all(int fd, const void *buf, size_t len) {
    const char *next = static_cast<const char *>(buf);
    while (len > 0) {
        const ssize_t written = kerv_safe_write(fd, next, len);
        if (written <= 0)
            return;
        next += written;
        len -= static_cast<size_t>(written);
    }
}

void kerv_host_write(int fd, const void *buf, size_t len) {
    kerv_write_all(fd, buf, len);
}
