#include "platform/api/PollFds.hpp"

#include "platform/PlatformProtocol.hpp"

int PollFds::add(const zmq_pollitem_t& item) {
    if (items.size() >= kMaxItems) {
        return platform_protocol::kErrorPollSetFull;
    }
    items.push_back(item);
    return 0;
}

int PollFds::addSocket(void* socket, short events) {
    if (socket == nullptr) {
        return platform_protocol::kErrorPollSetFull;
    }
    return add({socket, -1, events, 0});
}

int PollFds::addFd(int fd, short events) {
    if (fd < 0) {
        return platform_protocol::kErrorPollSetFull;
    }
    return add({nullptr, fd, events, 0});
}

void PollFds::removeFd(int fd) {
    std::erase_if(items, [fd](const zmq_pollitem_t& item) {
        return item.socket == nullptr && item.fd == fd;
    });
}
