#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

/// What the service promised and did not do.
class BrokenPromise : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Ends a check when `holds` is false; `promise` says what should have been.
inline void require(bool holds, const std::string& promise) {
    if (!holds) {
        throw BrokenPromise(promise);
    }
}

/// The output of one check: one figure a line.
class Report {
public:
    explicit Report(const char* checkName) : check(checkName) {}

    void figure(const char* what, const std::string& value) const;
    void figure(const char* what, std::int64_t value, const char* unit = "") const;
    /// With one decimal place.
    void figure(const char* what, double value, const char* unit) const;

private:
    const char* check;
};
