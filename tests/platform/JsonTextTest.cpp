#include "platform/records/JsonText.hpp"

#include "platform/PlatformProtocol.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::HasSubstr;

std::string reasonFor(const std::string& text) {
    JsonDecoder decoder;
    Json::Value object;
    return decoder.decodeObject(text, object);
}

std::string nested(int levels) {
    const auto arrays = static_cast<std::size_t>(levels) - 1;
    return R"({"a":)" + std::string(arrays, '[') + std::string(arrays, ']') + "}";
}

TEST(JsonText, CompactTextHasSortedMembersAndNoBlanks) {
    Json::Value value;
    value["b"][0] = "a b\n\xc3\xa9\x01";
    value["a"]["z"] = Json::UInt64{18446744073709551615U};
    value["a"]["m"] = 0.5;
    value["a"]["Z"] = Json::Value();
    EXPECT_EQ(toCompactJson(value),
              R"({"a":{"Z":null,"m":0.5,"z":18446744073709551615},"b":["a b\n\u00e9\u0001"]})");
}

TEST(JsonText, DecoderTakesJsonObjectsUpToItsLimits) {
    const std::string empty = R"({"x":""})";
    const std::string largest =
        R"({"x":")" + std::string(platform_protocol::kMaxFrameBytes - empty.size(), 'k') + R"("})";
    ASSERT_EQ(largest.size(), platform_protocol::kMaxFrameBytes);
    for (const std::string& text :
         {std::string("{}"), std::string(" \t\r\n{ \"a\" : [ 1 , -0.5e+3 , true, null ] } \n"),
          std::string(R"({"a":"\u00e9\ud83d\ude00\/\u0000","é":"é"})"),
          nested(JsonDecoder::kMaxDepth), largest}) {
        EXPECT_EQ(reasonFor(text), "") << text.substr(0, 80);
    }
    EXPECT_THAT(reasonFor(largest + " "), HasSubstr("longer than 1048576 bytes"));
    EXPECT_THAT(reasonFor(nested(JsonDecoder::kMaxDepth + 1)), HasSubstr("deeper than 64"));
    EXPECT_THAT(reasonFor(R"({"a":)" + std::string(500'000, '[')), HasSubstr("deeper than 64"));
}

TEST(JsonText, DecoderTakesWhatTheDocumentsSayBeyondJson) {
    for (const char* text :
         {R"({"a":1/*x*/})", "{\"a\":1//x\n}", R"({"a":[1/*x*/,2/*x*/]})",
          R"({/*x*/"a":1,/*x*/"b":2})", R"({"a":01})", R"({"a":+1})", R"({"a":1.})", R"({"a":-})",
          "{\"a\":\"\t\n\"}", R"({"a":"\udc00"})", "{\"a\":\"\xff\"}", "\xef\xbb\xbf{}"}) {
        EXPECT_EQ(reasonFor(text), "") << text;
    }
    for (const char* text : {R"({"a":1}/*x*/)", R"(/*x*/{"a":1})", R"({"a":/*x*/1})",
                             R"({"a":[/*x*/1]})", R"({"a"/*x*/:1})"}) {
        EXPECT_NE(reasonFor(text), "") << text;
    }
}

TEST(JsonText, DecoderRefusesEverythingElseWithAReasonOfOneLine) {
    using std::string_literals::operator""s;
    for (const std::string& text : {""s,
                                    " "s,
                                    "x"s,
                                    "{"s,
                                    R"({"a")"s,
                                    R"({"a":})"s,
                                    R"({"a":1)"s,
                                    R"({"a":1,})"s,
                                    R"({"a":1}})"s,
                                    R"({"a":1}{})"s,
                                    R"({"a":1 "b":2})"s,
                                    R"({a:1})"s,
                                    R"({'a':1})"s,
                                    R"({"a":1,"a":2})"s,
                                    R"({"a":tru})"s,
                                    R"({"a":NaN})"s,
                                    R"({"a":1e999})"s,
                                    R"({"a":"x)"s,
                                    R"({"a":"\q"})"s,
                                    R"({"a":"\ud800"})"s,
                                    "{\"a\":1}\0"s,
                                    "{\"a\":\"\0\"}"s,
                                    "\xff\xfe\x00\x01"s,
                                    "[]"s,
                                    "1"s,
                                    "null"s,
                                    R"("text")"s}) {
        const std::string reason = reasonFor(text);
        EXPECT_FALSE(reason.empty()) << text;
        EXPECT_EQ(reason.find('\n'), std::string::npos) << reason;
    }
    EXPECT_THAT(reasonFor(R"({"a":1,})"), HasSubstr("not JSON: Line 1, Column 8"));
    EXPECT_EQ(reasonFor("[]"), "not a JSON object");
}

TEST(JsonText, DecoderIsNotAffectedByWhatItRefused) {
    JsonDecoder decoder;
    Json::Value object;
    for (const std::string& bad : {nested(200), std::string("{"), std::string("[1]")}) {
        EXPECT_NE(decoder.decodeObject(bad, object), "");
        EXPECT_EQ(decoder.decodeObject(R"({"a":1})", object), "");
        EXPECT_EQ(toCompactJson(object), R"({"a":1})");
    }
}

} // namespace
