#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <utility>

namespace gateway {

/// How many connections there are, and from where. Loopback is bounded in all only: a proxy on this
/// host brings everybody's.
class Connections {
public:
    static constexpr std::size_t kMax = 1256;
    static constexpr std::size_t kMaxFromOneAddress = 128;

    /// Holds one connection's place for as long as it lives; empty for one that has none.
    class Place {
    public:
        Place() = default;
        Place(Connections& connections, std::string address);
        Place(Place&& other) noexcept
            : owner(std::exchange(other.owner, nullptr)), from(std::move(other.from)) {}
        Place& operator=(Place&& other) noexcept {
            std::swap(owner, other.owner);
            std::swap(from, other.from);
            return *this;
        }
        Place(const Place&) = delete;
        Place& operator=(const Place&) = delete;
        ~Place();

        explicit operator bool() const { return owner != nullptr; }

    private:
        Connections* owner = nullptr;
        std::string from;
    };

    /// An empty place when there are too many already. When there are too many in all, `makeRoom`
    /// is asked to close one that matters less, and returns whether it has: its place comes free
    /// soon.
    Place admit(const std::string& address, bool isLoopback, const std::function<bool()>& makeRoom);

private:
    std::size_t number = 0;
    std::map<std::string, std::size_t> byAddress;
};

} // namespace gateway
