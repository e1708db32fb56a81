#include "Channel.h"

#include <stddef.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <random>
#include <system_error>

namespace replay
{

namespace
{

constexpr int waitingConnections = 64;
constexpr size_t mostMessage = 64 << 20;

int checked(int result, const char* what)
{
    if (result < 0)
        throw std::system_error(errno, std::generic_category(), what);
    return result;
}

std::string newName()
{
    std::random_device random;
    return "serialcomm-" + std::to_string(getpid()) + "-" + std::to_string(random());
}

bool isOurUser(int connection)
{
    struct ucred peer = {};
    socklen_t size = sizeof peer;
    return getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 &&
           (peer.uid == geteuid() || peer.uid == 0);
}

}  // namespace

Channel::Channel() : socketName(newName())
{
    listener = checked(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0), "socket");
    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path + 1, socketName.data(), socketName.size());  // after a 0: abstract, without a file
    const auto size = static_cast<socklen_t>(offsetof(struct sockaddr_un, sun_path) + 1 + socketName.size());
    checked(bind(listener, reinterpret_cast<struct sockaddr*>(&address), size), "bind");
    checked(listen(listener, waitingConnections), "listen");
}

Channel::~Channel()
{
    for (const auto& [connection, data] : connections)
        close(connection);
    close(listener);
}

void Channel::acceptOne()
{
    const int connection = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (connection < 0)
        return;
    if (isOurUser(connection))
        connections[connection];
    else
        close(connection);
}

void Channel::receive(int connection, std::vector<Message>& messages)
{
    std::vector<uint8_t>& data = connections[connection];
    uint8_t buffer[65536];
    ssize_t received = 0;
    while ((received = recv(connection, buffer, sizeof buffer, MSG_DONTWAIT)) > 0)
        data.insert(data.end(), buffer, buffer + received);

    size_t at = 0;
    while (data.size() - at >= sizeof(Request)) {
        Message message;
        message.connection = connection;
        memcpy(&message.request, data.data() + at, sizeof message.request);
        const size_t size = message.request.size;
        if (size < sizeof(Request) || size > mostMessage) {
            received = 0;  // not one of our libraries
            break;
        }
        if (data.size() - at < size)
            break;
        const auto first = data.begin() + static_cast<std::ptrdiff_t>(at);
        message.data.assign(first + sizeof(Request), first + static_cast<std::ptrdiff_t>(size));
        messages.push_back(std::move(message));
        at += size;
    }
    data.erase(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(at));
    if (received == 0 || (received < 0 && errno != EAGAIN && errno != EINTR)) {
        close(connection);
        connections.erase(connection);
    }
}

std::vector<Message> Channel::wait(std::vector<struct pollfd>& others, std::chrono::milliseconds timeout)
{
    std::vector<struct pollfd> all = others;
    all.push_back({listener, POLLIN, 0});
    for (const auto& [connection, data] : connections)
        all.push_back({connection, POLLIN, 0});
    if (poll(all.data(), all.size(), static_cast<int>(timeout.count())) < 0)
        return {};
    std::copy_n(all.begin(), others.size(), others.begin());

    std::vector<Message> messages;
    if (all[others.size()].revents != 0)
        acceptOne();
    for (size_t i = others.size() + 1; i < all.size(); ++i) {
        if (all[i].revents != 0)
            receive(all[i].fd, messages);
    }
    std::stable_sort(messages.begin(), messages.end(),
                     [](const Message& a, const Message& b) { return a.request.time < b.request.time; });
    return messages;
}

void Channel::reply(int connection, Reply reply, const std::vector<uint8_t>& data, int descriptor)
{
    reply.size = static_cast<uint32_t>(sizeof reply + data.size());
    reply.hasDescriptor = descriptor >= 0 ? 1 : 0;
    std::vector<uint8_t> bytes(sizeof reply);
    memcpy(bytes.data(), &reply, sizeof reply);
    bytes.insert(bytes.end(), data.begin(), data.end());

    alignas(struct cmsghdr) char control[CMSG_SPACE(sizeof descriptor)] = {};
    for (size_t at = 0; at < bytes.size();) {
        struct iovec part = {bytes.data() + at, bytes.size() - at};
        struct msghdr message = {};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        if (descriptor >= 0 && at == 0) {
            message.msg_control = control;
            message.msg_controllen = sizeof control;
            struct cmsghdr* header = CMSG_FIRSTHDR(&message);
            header->cmsg_level = SOL_SOCKET;
            header->cmsg_type = SCM_RIGHTS;
            header->cmsg_len = CMSG_LEN(sizeof descriptor);
            memcpy(CMSG_DATA(header), &descriptor, sizeof descriptor);
        }
        const ssize_t sent = sendmsg(connection, &message, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR)
            continue;
        if (sent <= 0)
            return;
        at += static_cast<size_t>(sent);
    }
}

}  // namespace replay
