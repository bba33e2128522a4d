#include "tests/torture/Report.hpp"

#include <cstdio>

void Report::figure(const char* what, const std::string& value) const {
    std::printf("%-16s %-58s %s\n", check, what, value.c_str());
    (void)std::fflush(stdout);
}

void Report::figure(const char* what, std::int64_t value, const char* unit) const {
    figure(what, std::to_string(value) + " " + unit);
}

void Report::figure(const char* what, double value, const char* unit) const {
    constexpr std::size_t kLongest = 64;
    char text[kLongest];
    (void)std::snprintf(text, sizeof text, "%.1f %s", value, unit);
    figure(what, std::string(text));
}
