// Mutates inputs as JSON half of the time: bytes alone hardly ever make another JSON text.

#include "tests/fuzz/FuzzInput.hpp"

#include <json/reader.h>
#include <json/value.h>
#include <json/writer.h>

#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <string>

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t maxSize);

namespace {

using Generator = std::minstd_rand;

std::size_t below(Generator& generator, std::size_t limit) {
    return generator() % limit;
}

void collect(Json::Value& value, std::vector<Json::Value*>& nodes) {
    nodes.push_back(&value);
    if (value.isObject() || value.isArray()) {
        for (Json::Value& child : value) {
            collect(child, nodes);
        }
    }
}

Json::Value surprise(Generator& generator) {
    static const std::vector<Json::Value> values = {
        Json::Value(),
        true,
        0,
        -1,
        128,
        256,
        65536,
        Json::UInt64{1} << 32U,
        std::numeric_limits<Json::Int64>::min(),
        std::numeric_limits<Json::UInt64>::max(),
        0.5,
        1e300,
        "",
        "text",
        "\xff\x01",
        "239.1.1.1",
        std::string(5000, 'x'),
        Json::Value(Json::arrayValue),
        Json::Value(Json::objectValue),
    };
    return values[below(generator, values.size())];
}

void mutate(Json::Value& root, Generator& generator) {
    std::vector<Json::Value*> nodes;
    collect(root, nodes);
    Json::Value& node = *nodes[below(generator, nodes.size())];
    switch (below(generator, 4)) {
    case 0:
        node = surprise(generator);
        break;
    case 1:
        node = Json::Value(*nodes[below(generator, nodes.size())]);
        break;
    case 2:
        if (node.isObject() && !node.empty()) {
            const auto names = node.getMemberNames();
            node.removeMember(names[below(generator, names.size())]);
        } else if (node.isArray()) {
            node.append(surprise(generator));
        }
        break;
    default:
        if (node.isArray() && !node.empty()) {
            node.append(Json::Value(node[0]));
        } else if (node.isObject()) {
            node["unknown"] = surprise(generator);
        }
    }
}

} // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t maxSize, unsigned seed) {
    Generator generator(seed);
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const auto separator = input.rfind(kFrameSeparator);
    const std::size_t head = separator == std::string_view::npos ? 0 : separator + 1;
    static const std::unique_ptr<Json::CharReader> reader(
        Json::CharReaderBuilder().newCharReader());
    Json::Value body;
    std::string errors;
    try {
        if (below(generator, 2) == 0 ||
            !reader->parse(input.data() + head, input.data() + size, &body, &errors)) {
            return LLVMFuzzerMutate(data, size, maxSize);
        }
        mutate(body, generator);
    } catch (const Json::Exception&) {
        return LLVMFuzzerMutate(data, size, maxSize);
    }
    Json::StreamWriterBuilder compact;
    compact["indentation"] = "";
    const std::string text = Json::writeString(compact, body);
    if (head + text.size() > maxSize) {
        return LLVMFuzzerMutate(data, size, maxSize);
    }
    std::memcpy(data + head, text.data(), text.size());
    return head + text.size();
}
