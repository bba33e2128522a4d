#include "gateway/Page.hpp"

#include "gateway/Assets.hpp"

#include <algorithm>
#include <memory>
#include <span>

namespace gateway {

Page::Page(const std::vector<std::pair<std::string_view, std::string_view>>& documents) {
    const auto text = [](std::span<const unsigned char> bytes) {
        return std::make_shared<const std::string>(bytes.begin(), bytes.end());
    };
    for (const Asset& asset : assets()) {
        const auto document =
            std::find_if(documents.begin(), documents.end(),
                         [&asset](const auto& each) { return each.second == asset.path; });
        if (document != documents.end()) {
            files[std::string(document->first)] = {asset.type, text(asset.plain), text(asset.gzip),
                                                   true};
        } else if (asset.path.starts_with('/')) {
            files[std::string(asset.path)] = {asset.type, text(asset.plain), text(asset.gzip)};
        }
    }
}

std::optional<Answer> Page::answer(const Question& question) const {
    const auto found = files.find(question.path);
    if (found == files.end()) {
        return std::nullopt;
    }
    // The other files are named after their content: only documents are ever asked for again.
    const File& file = found->second;
    Answer answer{
        200,
        file.type,
        question.acceptsGzip ? file.gzip : file.plain,
        {{"Cache-Control", file.isDocument ? "no-cache" : "public, max-age=31536000, immutable"},
         {"Vary", "Accept-Encoding"}}};
    if (question.acceptsGzip) {
        answer.fields.emplace_back("Content-Encoding", "gzip");
    }
    return answer;
}

} // namespace gateway
