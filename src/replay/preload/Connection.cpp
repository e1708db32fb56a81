#include "Preload.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

namespace replay::preload
{

namespace
{

constexpr int highDescriptor = 500;  // out of the way of a program that counts on low numbers

pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
std::atomic<int> connection{-1};
std::atomic<bool> wanted{false};
std::atomic<bool> gone{false};
std::atomic<Mode> currentMode{Mode::record};
char* devices = nullptr;  // of a session: existence, kind, path and 0 of each
size_t devicesSize = 0;

class Lock
{
public:
    Lock() { pthread_mutex_lock(&mutex); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
    ~Lock() { pthread_mutex_unlock(&mutex); }
};

class KeepErrno
{
public:
    KeepErrno() = default;
    KeepErrno(const KeepErrno&) = delete;
    KeepErrno& operator=(const KeepErrno&) = delete;
    ~KeepErrno() { errno = saved; }

private:
    int saved = errno;
};

void closeConnection()
{
    const int descriptor = connection.exchange(-1);
    if (descriptor >= 0)
        NEXT(close)(descriptor);
}

int moved(int descriptor)
{
    const int high = NEXT(fcntl)(descriptor, F_DUPFD_CLOEXEC, highDescriptor);
    if (high < 0)
        return descriptor;
    NEXT(close)(descriptor);
    return high;
}

bool sendAll(struct iovec* parts, int count)
{
    while (count > 0) {
        struct msghdr message = {};
        message.msg_iov = parts;
        message.msg_iovlen = static_cast<size_t>(count);
        const ssize_t sent = sendmsg(connection, &message, MSG_NOSIGNAL);
        if (sent < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        auto left = static_cast<size_t>(sent);
        while (count > 0 && left >= parts->iov_len) {
            left -= parts->iov_len;
            ++parts;
            --count;
        }
        if (count > 0) {
            parts->iov_base = static_cast<uint8_t*>(parts->iov_base) + left;
            parts->iov_len -= left;
        }
    }
    return true;
}

/// Receives so many bytes, and the descriptor that may come with the first of them.
bool receive(void* bytes, size_t size, int* descriptor)
{
    auto* to = static_cast<uint8_t*>(bytes);
    while (size > 0) {
        struct iovec part = {to, size};
        alignas(struct cmsghdr) char control[CMSG_SPACE(sizeof(int))];
        struct msghdr message = {};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        const ssize_t received = recvmsg(connection, &message, MSG_CMSG_CLOEXEC);
        if (received < 0 && errno == EINTR)
            continue;
        if (received <= 0)
            return false;
        const struct cmsghdr* header = CMSG_FIRSTHDR(&message);
        if (header != nullptr && header->cmsg_type == SCM_RIGHTS) {
            int passed = -1;
            memcpy(&passed, CMSG_DATA(header), sizeof passed);
            if (descriptor != nullptr)
                *descriptor = passed;
            else
                NEXT(close)(passed);
        }
        to += received;
        size -= static_cast<size_t>(received);
    }
    return true;
}

int64_t now()
{
    struct timespec time = {};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

bool sendRequest(Request& request, const Buffer& payload)
{
    request.size = static_cast<uint32_t>(sizeof request + payload.size());
    request.time = now();
    struct iovec parts[] = {{&request, sizeof request}, {const_cast<uint8_t*>(payload.data()), payload.size()}};
    return sendAll(parts, 2);
}

bool askConnected(Request& request, const Buffer& payload, Reply& reply, Buffer& data, int* descriptor)
{
    if (!sendRequest(request, payload) || !receive(&reply, sizeof reply, descriptor))
        return false;
    const size_t size = reply.size - sizeof reply;
    return size == 0 || receive(data.grow(size), size, nullptr);
}

bool connectSocket(const char* name)
{
    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const size_t length = strlen(name);
    if (length + 1 > sizeof address.sun_path)
        return false;
    memcpy(address.sun_path + 1, name, length);  // after a 0: abstract
    const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0)
        return false;
    const auto size = static_cast<socklen_t>(offsetof(struct sockaddr_un, sun_path) + 1 + length);
    if (connect(descriptor, reinterpret_cast<struct sockaddr*>(&address), size) != 0) {
        NEXT(close)(descriptor);
        return false;
    }
    connection = moved(descriptor);
    return true;
}

/// With the lock.
bool connectNow()
{
    if (connection >= 0)
        return true;
    const char* name = getenv(socketVariable);
    if (gone || name == nullptr || !connectSocket(name)) {
        gone = true;
        return false;
    }
    Request request = {};
    request.kind = RequestKind::hello;
    Reply reply = {};
    Buffer list;
    if (!askConnected(request, Buffer{}, reply, list, nullptr)) {
        closeConnection();
        gone = true;
        return false;
    }
    currentMode = static_cast<Mode>(reply.result);
    if (devices == nullptr && list.size() > 0) {
        devices = static_cast<char*>(malloc(list.size()));
        if (devices != nullptr) {
            memcpy(devices, list.data(), list.size());
            devicesSize = list.size();
        }
    }
    return true;
}

void beforeFork()
{
    pthread_mutex_lock(&mutex);
}

void afterForkInParent()
{
    pthread_mutex_unlock(&mutex);
}

void afterForkInChild()
{
    closeConnection();  // the parent's
    pthread_mutex_unlock(&mutex);
}

}  // namespace

Buffer::~Buffer()
{
    if (bytes != space)
        free(bytes);
}

uint8_t* Buffer::grow(size_t more)
{
    if (used + more > capacity) {
        const size_t larger = 2 * (used + more);
        auto* moved = static_cast<uint8_t*>(malloc(larger));
        if (moved == nullptr)
            abort();
        memcpy(moved, bytes, used);
        if (bytes != space)
            free(bytes);
        bytes = moved;
        capacity = larger;
    }
    uint8_t* end = bytes + used;
    used += more;
    return end;
}

void Buffer::append(const void* from, size_t count)
{
    if (count > 0)
        memcpy(grow(count), from, count);
}

bool isConnected()
{
    if (!wanted || gone)
        return false;
    if (connection >= 0)
        return true;
    const KeepErrno keep;
    const Lock lock;
    return connectNow();
}

Mode mode()
{
    return currentMode;
}

void report(Request request, const Buffer& payload)
{
    const KeepErrno keep;
    const Lock lock;
    if (connectNow() && !sendRequest(request, payload)) {
        closeConnection();
        gone = true;
    }
}

bool ask(Request request, const Buffer& payload, Reply& reply, Buffer& data, int* descriptor)
{
    const KeepErrno keep;
    const Lock lock;
    if (connectNow() && askConnected(request, payload, reply, data, descriptor))
        return true;
    closeConnection();
    gone = true;
    return false;
}

int socketDescriptor()
{
    return connection;
}

void moveSocket()
{
    const Lock lock;
    const int descriptor = connection;
    if (descriptor >= 0)
        connection = NEXT(fcntl)(descriptor, F_DUPFD_CLOEXEC, highDescriptor);
}

bool isInSession(const char* path, bool& exists, BusKind& bus)
{
    for (const char* entry = devices; entry != nullptr && entry < devices + devicesSize; entry += strlen(entry) + 1) {
        if (strcmp(entry + 2, path) == 0) {
            exists = entry[0] == '+';
            bus = static_cast<BusKind>(entry[1] - '0');
            return true;
        }
    }
    return false;
}

bool isNameInSession(const char* name)
{
    for (const char* entry = devices; entry != nullptr && entry < devices + devicesSize; entry += strlen(entry) + 1) {
        const char* slash = strrchr(entry, '/');
        if (slash != nullptr && strcmp(slash + 1, name) == 0)
            return true;
    }
    return false;
}

bool startConnection()
{
    if (getenv(socketVariable) == nullptr)
        return false;
    pthread_atfork(beforeFork, afterForkInParent, afterForkInChild);
    wanted = true;
    return isConnected();
}

}  // namespace replay::preload
