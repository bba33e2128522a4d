// Exercises records for a test: each line of standard input is a request
// {"record": NAME, "hold": NUMBER, "read": [TEXT...]}, each line of standard output
// the same request afterwards, or {"refused": REASON}. The log goes to standard error.

#include "platform/api/Logger.hpp"
#include "platform/records/JsonText.hpp"
#include "tests/records/NamedRecords.hpp"

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <string>

int main() {
    Logger::createLogger(Logger::kToStandardError | Logger::LOG_LEVEL_ERR, "", "probe");
    JsonDecoder decoder;
    for (std::string line; std::getline(std::cin, line);) {
        Json::Value request;
        const std::string reason = decoder.decodeObject(line, request);
        const auto* const record = std::find_if(
            kNamedRecords.begin(), kNamedRecords.end(), [&](const NamedRecord& candidate) {
                return reason.empty() && candidate.name == request["record"].asString();
            });
        if (record == kNamedRecords.end()) {
            std::cerr << "no record in " << line << ' ' << reason << '\n';
            return EXIT_FAILURE;
        }
        try {
            record->exercise(request);
        } catch (const Json::Exception& error) {
            request = Json::Value();
            request["refused"] = error.what();
        }
        std::cout << toCompactJson(request) << std::endl;
    }
    return EXIT_SUCCESS;
}
