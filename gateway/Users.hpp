#pragma once

#include "gateway/ApiText.hpp"

#include <array>
#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <string_view>

namespace gateway {

/// Who may see the device from another host: names and hashed passwords of a file with lines
/// "name:hash", as `openssl passwd -6` makes the hashes, and what to do about those that guess.
class Users {
public:
    /// Throws std::runtime_error with a sentence when the file cannot be read or holds no user.
    explicit Users(std::string fileName);

    /// Reads the file again. When that fails, the users stay as they were and it throws as above.
    void reload();

    enum class Verdict { right, wrong, busy };

    /// Whether the value of an Authorization field names a user with the right password. Busy when
    /// too many passwords are tried at the same time: none of them is then looked at.
    Verdict check(std::string_view authorization, Clock::time_point now);

    /// How long an address has to wait before its next attempt is looked at; zero for one that has
    /// not failed lately.
    Clock::duration delay(const std::string& address, Clock::time_point now);

    void failed(const std::string& address, Clock::time_point now);
    void succeeded(const std::string& address) { failures.erase(address); }

private:
    using Digest = std::array<unsigned char, 32>;
    struct Failures {
        unsigned number = 0;
        Clock::time_point next;
    };

    bool verify(const std::string& name, const std::string& password) const;

    std::string file;
    std::map<std::string, std::string> hashes;
    /// What has been found right: hashing on purpose takes milliseconds, and a page asks often.
    std::set<Digest> known;
    std::map<std::string, Failures> failures;
    Clock::time_point second;
    unsigned checkedInSecond = 0;
};

} // namespace gateway
