#include "gateway/fleet/Retrieval.hpp"

#include <algorithm>
#include <utility>
#include <vector>

namespace gateway {
namespace {

/// Together they should stay below what a broker queues.
constexpr std::size_t kMaxAsked = 24;
constexpr unsigned kMaxAttempts = 3;
constexpr std::chrono::seconds kSilence{1};
constexpr std::chrono::seconds kLate{3};
constexpr std::chrono::seconds kFollow{5};
/// The time doubles with each failure up to this many.
constexpr unsigned kMaxDoublings = 7;

} // namespace

Retrieval::Retrieval(Handlers itsHandlers) : handlers(std::move(itsHandlers)) {}

void Retrieval::reset() {
    entries.clear();
    queue.clear();
    asked = 0;
}

void Retrieval::add(const std::string& instance) {
    if (entries.try_emplace(instance).second) {
        queue.push_back(instance);
        askNext(Clock::now());
    }
}

void Retrieval::remove(const std::string& instance) {
    const auto found = entries.find(instance);
    if (found != entries.end()) {
        enter(instance, found->second, Entry::Phase::quiet, Clock::now());
        entries.erase(found);
    }
}

void Retrieval::heard(const std::string& instance, bool isRetained, Clock::time_point now) {
    const auto found = entries.find(instance);
    if (found == entries.end()) {
        return;
    }
    Entry& entry = found->second;
    if (entry.phase == Entry::Phase::quiet) {
        enter(instance, entry, Entry::Phase::changed, now);
    } else if (entry.phase == Entry::Phase::asked) {
        entry.since = isRetained ? now : entry.since;
        if (handlers.isWhole(instance)) {
            enter(instance, entry, Entry::Phase::ending, now);
            askNext(now);
        }
    }
}

void Retrieval::tick(Clock::time_point now) {
    std::vector<std::string> names;
    for (const auto& [instance, entry] : entries) {
        const Clock::duration limit = entry.phase == Entry::Phase::asked    ? kSilence
                                      : entry.phase == Entry::Phase::ending ? kLate
                                                                            : kFollow;
        if (now - entry.since > limit && entry.phase != Entry::Phase::quiet) {
            names.push_back(instance);
        }
    }
    // What is done about one may remove it.
    for (const std::string& instance : names) {
        look(instance, entries.at(instance), now);
    }
    askNext(now);
}

void Retrieval::look(const std::string& instance, Entry& entry, Clock::time_point now) {
    switch (entry.phase) {
    case Entry::Phase::asked:
        enter(instance, entry,
              entry.attempts < kMaxAttempts ? Entry::Phase::waiting : Entry::Phase::ending, now);
        break;
    case Entry::Phase::ending:
        entry.failures = handlers.isWhole(instance) ? 0 : entry.failures + 1;
        entry.attempts = 0;
        enter(instance, entry, Entry::Phase::quiet, now);
        handlers.end(instance);
        break;
    case Entry::Phase::changed:
        if (handlers.isWhole(instance)) {
            entry.failures = 0;
            enter(instance, entry, Entry::Phase::quiet, now);
        } else if (now - entry.since > kFollow * (1U << std::min(entry.failures, kMaxDoublings))) {
            enter(instance, entry, Entry::Phase::waiting, now);
        }
        break;
    case Entry::Phase::waiting:
    case Entry::Phase::quiet:
        break;
    }
}

void Retrieval::enter(const std::string& instance, Entry& entry, Entry::Phase phase,
                      Clock::time_point now) {
    if (entry.phase == Entry::Phase::asked) {
        --asked;
    }
    entry.phase = phase;
    entry.since = now;
    if (phase == Entry::Phase::waiting) {
        queue.push_back(instance);
    }
}

void Retrieval::askNext(Clock::time_point now) {
    while (asked < kMaxAsked && !queue.empty()) {
        const std::string instance = std::move(queue.front());
        queue.pop_front();
        const auto found = entries.find(instance);
        if (found != entries.end() && found->second.phase == Entry::Phase::waiting) {
            found->second.phase = Entry::Phase::asked;
            found->second.since = now;
            ++found->second.attempts;
            ++asked;
            handlers.begin(instance);
        }
    }
}

} // namespace gateway
