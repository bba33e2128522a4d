#pragma once

#include "gateway/Answer.hpp"

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace gateway {

/// The files of the page, which are built into the program.
class Page {
public:
    /// Documents by the paths at which they are found: {{"/", "index.html"}}.
    explicit Page(const std::vector<std::pair<std::string_view, std::string_view>>& documents);

    /// Nothing when there is no file at the path.
    std::optional<Answer> answer(const Question& question) const;

private:
    struct File {
        std::string type;
        SharedText plain;
        SharedText gzip;
        bool isDocument = false;
    };
    std::map<std::string, File, std::less<>> files;
};

} // namespace gateway
