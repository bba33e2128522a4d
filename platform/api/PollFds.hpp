#pragma once

#include <zmq.h>

#include <cstddef>
#include <vector>

/// The poll set: everything that the event loop waits for, in the order in which it was added.
class PollFds {
public:
    /// More items than a ZeroMQ context has sockets by default.
    static constexpr std::size_t kMaxItems = 1024;

    /// Appends a ZeroMQ socket with the requested events (ZMQ_POLLIN, ...). Returns 0, or -104 when
    /// the set is full or `socket` is null.
    int addSocket(void* socket, short events);

    /// Appends a file descriptor. Returns 0, or -104 when the set is full or `fd` is negative.
    int addFd(int fd, short events);

    /// Takes a file descriptor out again; nothing happens if it is not in the set.
    void removeFd(int fd);

    /// The items as zmq_poll wants them. Valid until an item is added or removed.
    zmq_pollitem_t* getPollList() { return items.data(); }
    int getPollListSize() const { return static_cast<int>(items.size()); }

private:
    int add(const zmq_pollitem_t& item);

    std::vector<zmq_pollitem_t> items;
};
