#include "gateway/Users.hpp"

#include <crypt.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/sha.h>
#include <strings.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

namespace gateway {
namespace {

constexpr std::size_t kMaxKnown = 256;
/// A check takes some milliseconds of the one thread.
constexpr unsigned kMaxChecksInSecond = 20;
constexpr std::size_t kMaxFailures = 10'000;

/// Takes as long to compare with as any other.
constexpr const char* kNobody =
    "$6$kaiklanobody$0000000000000000000000000000000000000000000000000000000000000000000000000000"
    "0000000000";

std::string decodeBase64(std::string_view text) {
    constexpr std::size_t kGroup = 4;
    if (text.empty() || text.size() % kGroup != 0) {
        return {};
    }
    std::vector<unsigned char> bytes(text.size());
    const int size =
        EVP_DecodeBlock(bytes.data(), reinterpret_cast<const unsigned char*>(text.data()),
                        static_cast<int>(text.size()));
    const auto padding = std::count(text.end() - 2, text.end(), '=');
    return size < 0 ? std::string() : std::string(bytes.begin(), bytes.begin() + size - padding);
}

} // namespace

Users::Users(std::string fileName) : file(std::move(fileName)) {
    reload();
}

void Users::reload() {
    std::ifstream in(file);
    if (!in) {
        throw std::runtime_error("cannot read the users in " + file + ": " + std::strerror(errno));
    }
    std::map<std::string, std::string> found;
    for (std::string line; std::getline(in, line);) {
        const auto colon = line.find(':');
        if (colon != std::string::npos && colon > 0 && colon + 1 < line.size()) {
            found[line.substr(0, colon)] = line.substr(colon + 1);
        }
    }
    if (found.empty()) {
        throw std::runtime_error(file + " holds no line \"name:hash\"");
    }
    hashes = std::move(found);
    known.clear();
}

Users::Verdict Users::check(std::string_view authorization, Clock::time_point now) {
    constexpr std::string_view kBasic = "Basic ";
    if (authorization.size() < kBasic.size() ||
        ::strncasecmp(authorization.data(), kBasic.data(), kBasic.size()) != 0) {
        return Verdict::wrong;
    }
    Digest digest{};
    SHA256(reinterpret_cast<const unsigned char*>(authorization.data()), authorization.size(),
           digest.data());
    if (known.contains(digest)) {
        return Verdict::right;
    }
    if (now - second > std::chrono::seconds(1)) {
        second = now;
        checkedInSecond = 0;
    }
    if (++checkedInSecond > kMaxChecksInSecond) {
        return Verdict::busy;
    }
    const std::string pair = decodeBase64(authorization.substr(kBasic.size()));
    const auto colon = pair.find(':');
    if (colon == std::string::npos || !verify(pair.substr(0, colon), pair.substr(colon + 1))) {
        return Verdict::wrong;
    }
    if (known.size() >= kMaxKnown) {
        known.clear();
    }
    known.insert(digest);
    return Verdict::right;
}

Clock::duration Users::delay(const std::string& address, Clock::time_point now) {
    const auto found = failures.find(address);
    return found == failures.end() ? Clock::duration::zero()
                                   : std::max(found->second.next - now, Clock::duration::zero());
}

void Users::failed(const std::string& address, Clock::time_point now) {
    constexpr std::chrono::milliseconds kFirst{250};
    constexpr unsigned kMaxDoublings = 7; // 32 seconds
    if (failures.size() >= kMaxFailures) {
        std::erase_if(failures, [now](const auto& item) { return item.second.next < now; });
    }
    Failures& entry = failures[address];
    entry.next = now + kFirst * (1U << std::min(entry.number, kMaxDoublings));
    ++entry.number;
}

bool Users::verify(const std::string& name, const std::string& password) const {
    const auto user = hashes.find(name);
    const std::string expected = user == hashes.end() ? kNobody : user->second;
    const auto data = std::make_unique<crypt_data>();
    const char* const hash = ::crypt_r(password.c_str(), expected.c_str(), data.get());
    return hash != nullptr && user != hashes.end() && std::strlen(hash) == expected.size() &&
           CRYPTO_memcmp(hash, expected.data(), expected.size()) == 0;
}

} // namespace gateway
