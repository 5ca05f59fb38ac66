/*
 * Any bytes as a control request received on the control socket. Unpacking must never
 * read past the bytes received, must refuse with the code of the first fault, and must
 * leave every argument inside those bytes, in order and terminated, and the slots from the
 * failed one on as received; packing the unpacked record again must give back the same
 * bytes (up to the last argument) and a copy of it must hold the same arguments.
 */
#include "request.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#if defined(__SANITIZE_ADDRESS__)
#define KERV_FUZZ_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KERV_FUZZ_ASAN 1
#endif
#endif
#ifdef KERV_FUZZ_ASAN
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(addr, size) ((void)(addr), (void)(size))
#define ASAN_UNPOISON_MEMORY_REGION(addr, size) ((void)(addr), (void)(size))
#endif

namespace {

void check(bool holds) {
    if (!holds)
        abort();
}

/* The header's verdict, in the order the checks are made. */
int expected_header_code(const kervRequest_t *request, size_t size) {
    if (size < KERV_REQUEST_HEADER_SIZE || size > KERV_REQUEST_WIRE_MAX)
        return -1;
    if (request->magic != KERV_REQUEST_MAGIC)
        return -2;
    if (request->type > KERV_REQUEST_TYPE_SRV)
        return -3;
    if (request->cmd > KERV_REQUEST_URC_RESPONSE)
        return -4;
    return 0;
}

/* Slot i of the received message. */
uintptr_t received_slot(const uint8_t *data, int i) {
    uint32_t slot;
    memcpy(&slot, data + 12 + 4 * i, sizeof(slot));
    return slot;
}

/* Present arguments follow one another from the start of buf, each ended within size. */
size_t check_arguments(const kervRequest_t *request, const uint8_t *data, size_t size) {
    const char *next = request->buf;
    const char *roof = reinterpret_cast<const char *>(request) + size;
    for (int i = 0; i < KERV_REQUEST_ARG_NUM; ++i) {
        const char *arg = request->arg[i];
        check((arg == nullptr) == (received_slot(data, i) == 0));
        if (arg == nullptr)
            continue;
        check(arg == next);
        const void *end = memchr(arg, '\0', static_cast<size_t>(roof - arg));
        check(end != nullptr);
        next = static_cast<const char *>(end) + 1;
    }
    return static_cast<size_t>(next - reinterpret_cast<const char *>(request));
}

void check_copy(kervRequest_t *request) {
    static kervRequest_t copy;
    check(kerv_copy_request(&copy, request) == 0);
    for (int i = 0; i < KERV_REQUEST_ARG_NUM; ++i) {
        check((copy.arg[i] == nullptr) == (request->arg[i] == nullptr));
        if (copy.arg[i] != nullptr)
            check(strcmp(copy.arg[i], request->arg[i]) == 0 && copy.arg[i] >= copy.buf &&
                  copy.arg[i] < copy.buf + KERV_REQUEST_BUF_SIZE);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static kervRequest_t request;
    const size_t wire = size < KERV_REQUEST_WIRE_MAX ? size : KERV_REQUEST_WIRE_MAX;
    memset(&request, 0, sizeof(request));
    memcpy(&request, data, wire);
    /* The bytes after those received are off limits to unpacking and to packing again. */
    ASAN_POISON_MEMORY_REGION(reinterpret_cast<char *>(&request) + wire,
                              KERV_REQUEST_WIRE_MAX - wire);

    const int header_code = expected_header_code(&request, size);
    const int code = kerv_unpack_request(&request, static_cast<int>(size));
    if (header_code != 0) {
        check(code == header_code);
    } else if (code != 0) {
        check(code <= -100 && code >= -100 - (KERV_REQUEST_ARG_NUM - 1));
        for (int i = -100 - code; i < KERV_REQUEST_ARG_NUM; ++i)
            check(reinterpret_cast<uintptr_t>(request.arg[i]) == received_slot(data, i));
    } else {
        const size_t used = check_arguments(&request, data, size);
        const int packed = kerv_pack_request(&request);
        check(packed >= 0 && static_cast<size_t>(packed) == used);
        check(memcmp(&request, data, used) == 0);
        check(kerv_unpack_request(&request, packed) == 0);
    }
    ASAN_UNPOISON_MEMORY_REGION(reinterpret_cast<char *>(&request) + wire,
                                KERV_REQUEST_WIRE_MAX - wire);
    /* A copy takes the whole record, received bytes or not. */
    if (code == 0)
        check_copy(&request);
    return 0;
}
