#include "tests/support/LogLines.hpp"

#include "platform/api/Logger.hpp"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>

std::vector<std::string> logLines(const std::string& log) {
    static const std::regex head(R"(^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z ([A-Z]+) kaikla: )");
    static const std::regex sourceLine(R"(\)::\d+ Error Code)");
    std::vector<std::string> lines;
    std::istringstream stream(log);
    for (std::string line; std::getline(stream, line);) {
        line = std::regex_replace(line, head, "$1 ", std::regex_constants::format_first_only);
        lines.push_back(std::regex_replace(line, sourceLine, ")::# Error Code"));
    }
    return lines;
}

std::vector<std::string> errorLines(const std::string& log) {
    constexpr const char* kLevel = "ERR ";
    std::vector<std::string> errors;
    for (const std::string& line : logLines(log)) {
        if (line.starts_with(kLevel)) {
            errors.push_back(line.substr(std::char_traits<char>::length(kLevel)));
        }
    }
    return errors;
}

CapturedLog::CapturedLog() {
    Logger::createLogger(Logger::kToFile | Logger::LOG_LEVEL_VERBOSE, path, "kaikla");
}

CapturedLog::~CapturedLog() {
    Logger::flush();
    Logger::createLogger(0, "", "");
}

std::vector<std::string> CapturedLog::lines() {
    Logger::flush();
    const std::string text = fileText(path);
    std::filesystem::resize_file(path, 0);
    return logLines(text);
}

std::string fileText(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}
