#pragma once

#include "gateway/Parts.hpp"

#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace gateway {

/// What a path gives.
struct Answer {
    unsigned status = 200;
    std::string type;
    SharedText body;
    /// Further header fields.
    std::vector<std::pair<std::string, std::string>> fields;
};

/// An error as RFC 9457 has it. `detail` is a sentence for a person.
Answer problem(unsigned status, const std::string& title, const std::string& detail);

/// What a request asks for, as far as it matters here.
struct Question {
    /// Without the query.
    std::string_view path;
    std::string_view query;
    std::string_view ifNoneMatch;
    bool acceptsGzip = false;
};

/// The value of a key of a query, empty when it is not there. Nothing that this API takes needs to
/// be decoded.
std::string_view queryValue(std::string_view query, std::string_view key);

/// Every path but the event stream: what it answers. It reads and never changes anything.
class Api {
public:
    Api(const Parts& describedParts, bool withSessionMetrics);

    Answer answer(const Question& question) const;

    /// The "snapshot" event. It is made again when an event has come or a tenth of a second has
    /// passed: many clients that come back at once share it.
    SharedText snapshot();

private:
    /// A file of the page.
    struct File {
        std::string type;
        SharedText plain;
        SharedText gzip;
    };

    Answer fileAnswer(const File& file, const Question& question) const;
    Json::Value head() const;
    Json::Value status() const;
    Answer statusAnswer(const Question& question) const;
    Answer sessionAnswer(std::string_view id) const;
    Answer historyAnswer(std::string_view query) const;
    Answer monitorsAnswer() const;
    Answer clientsAnswer() const;
    Answer readiness() const;

    Parts parts;
    bool sessionMetrics;
    WallClock::time_point started = WallClock::now();
    std::map<std::string, File, std::less<>> files;
    SharedText snapshotText;
    std::uint64_t snapshotSeq = 0;
    Clock::time_point snapshotMade;
};

} // namespace gateway
