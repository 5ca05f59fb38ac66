#include "kal_io.h"

#include <cerrno>
#include <climits>
#include <poll.h>
#include <time.h>
#include <unistd.h>

extern "C" {

kal_bool kal_write_all(int fd, const void *bytes, size_t len) {
    const char *next = static_cast<const char *>(bytes);
    while (len > 0) {
        const ssize_t written = write(fd, next, len);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return KAL_FALSE;
        next += written;
        len -= static_cast<size_t>(written);
    }
    return KAL_TRUE;
}

long long kal_now_ms(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000LL + now.tv_nsec / 1000000;
}

/* A pipe that reports room takes a write of up to PIPE_BUF bytes whole, without blocking;
   so does a socket or terminal that reports room, for such a small write. */
size_t kal_write_without_blocking(int fd, const char *bytes, size_t len) {
    size_t written = 0;
    while (written < len) {
        struct pollfd room = {fd, POLLOUT, 0};
        if (poll(&room, 1, 0) != 1 || (room.revents & POLLOUT) == 0)
            break;
        const size_t chunk = len - written < PIPE_BUF ? len - written : PIPE_BUF;
        const ssize_t took = write(fd, bytes + written, chunk);
        if (took < 0 && errno == EINTR)
            continue;
        if (took <= 0)
            break;
        written += static_cast<size_t>(took);
    }
    return written;
}

size_t kal_put_decimal(char *at, unsigned int n) {
    char digits[10];
    size_t count = 0;
    do {
        digits[count++] = static_cast<char>('0' + n % 10);
        n /= 10;
    } while (n != 0);
    for (size_t i = 0; i < count; i++)
        at[i] = digits[count - 1 - i];
    return count;
}

} // extern "C"
