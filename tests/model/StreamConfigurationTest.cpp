#include "model/StreamConfiguration.hpp"

#include "platform/api/Logger.hpp"
#include "tests/support/RecordText.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;

/// A record whose enumeration `member` holds `number`, named or not.
template <typename Record, typename Enum>
Record holding(Enum Record::*member, int number) {
    Record record;
    record.*member = static_cast<Enum>(number);
    return record;
}

/// What `member` holds when it held `number` and each of `texts` has been read over it.
template <typename Record, typename Enum>
std::vector<int> afterReading(std::initializer_list<const char*> texts, Enum Record::*member,
                              int number) {
    std::vector<int> numbers;
    for (const char* text : texts) {
        numbers.push_back(recordFrom(text, holding(member, number)).*member);
    }
    return numbers;
}

/// The numbers that come back when they are written and then read over another one.
template <typename Record, typename Enum>
std::vector<int> survivors(Enum Record::*member) {
    std::vector<int> numbers;
    for (int number = -1; number < 10; ++number) {
        const Record other = holding(member, number == 1 ? 2 : 1);
        if (recordFrom(textOf(holding(member, number)), other).*member == number) {
            numbers.push_back(number);
        }
    }
    return numbers;
}

TEST(StreamConfiguration, UnknownTextKeepsTheValue) {
    EXPECT_THAT(afterReading({R"({"class":"undefined"})", R"({"class":"Receiver"})", "{}"},
                             &StreamClass::value, 2),
                Each(2));
    EXPECT_THAT(afterReading({R"({"type":"ancillary"})", R"({"type":"Audio"})", "{}"},
                             &StreamType::value, 2),
                Each(2));
    EXPECT_THAT(afterReading({R"({"redundant-type":"Primary"})", R"({"redundant-type":""})"},
                             &RedundantType::value, 2),
                Each(2));
    EXPECT_THAT(afterReading({R"({"type":"-"})", R"({"type":"Manual"})", "{}"}, &Ssrc::type, 1),
                Each(1));
    EXPECT_THAT(afterReading({R"({"timing-mode":"unset"})", R"({"timing-mode":"ERROR"})", "{}"},
                             &VideoTimingParameters::timingMode, 3),
                Each(3));
    EXPECT_THAT(afterReading({R"({"tributary":{"type":"multi-sd"}})"}, &TributaryType::type, 1),
                Each(1));
}

TEST(StreamConfiguration, UnknownTextSetsTheCatchAll) {
    EXPECT_THAT(afterReading({R"({"state":"Undefined"})", R"({"state":"enabled"})", "{}"},
                             &State::value, 2),
                Each(State::disabled));
    EXPECT_THAT(afterReading({R"({"codec":""})", R"({"codec":null})", R"({"codec":"L240"})"},
                             &Codec::value, 2),
                Each(Codec::not_supported));
}

TEST(StreamConfiguration, TextsThatReadMoreThanIsWritten) {
    EXPECT_THAT(afterReading({R"({"codec":"SMPTE2022-6"})", R"({"codec":"sMpTe2022-6"})"},
                             &Codec::value, 0),
                Each(Codec::smpte2022_6));
    EXPECT_THAT(afterReading({R"({"timing-mode":""})", R"({"timing-mode":null})"},
                             &VideoTimingParameters::timingMode, 3),
                Each(VideoTimingParameters::low_latency));
}

TEST(StreamConfiguration, MissingKeyResets) {
    EXPECT_EQ(recordFrom("{}", holding(&RedundantType::value, 2)).value, RedundantType::none);
    EXPECT_EQ(recordFrom("{}", holding(&Codec::value, 6)).value, Codec::am824);
    EXPECT_EQ(textOf(recordFrom("{}", recordFrom<Vlan>(R"({"id":1,"priority":2,"tpid":3})"))),
              R"({"id":0,"priority":0,"tpid":33024})");
    EXPECT_EQ(textOf(recordFrom("{}", recordFrom<UdpPort>(R"({"source":1,"destination":2})"))),
              R"({"destination":0,"source":0})");
    EXPECT_EQ(recordFrom("{}", recordFrom<Rtp>(R"({"payload-type":96})")).payloadType, 98);
    EXPECT_EQ(textOf(recordFrom("{}", recordFrom<DaifType>(R"({"type":1,"string":"left"})"))),
              R"({"string":"auto","type":11})");

    TributaryType tributary = holding(&TributaryType::type, 2);
    tributary.index = 3;
    EXPECT_EQ(textOf(recordFrom("{}", tributary)), R"({"tributary":{"index":-1,"type":"none"}})");
}

TEST(StreamConfiguration, MissingKeyKeepsAddressesAndTiming) {
    const char* addresses = R"({"local":"10.0.0.1","transport":"239.1.1.1","dscp":1,"ttl":2})";
    EXPECT_EQ(textOf(recordFrom("{}", recordFrom<IpAddrCfg>(addresses))),
              R"({"dscp":34,"local":"10.0.0.1","transport":"239.1.1.1","ttl":64})");

    const char* all = R"({"initBufDelay":1,"maxWrRdPtrThresh":3,"minWrRdPtrThresh":2,)"
                      R"("rtpPktsPerFrame":4,"timing-mode":"2059"})";
    const auto timing = recordFrom<VideoTimingParameters>(all);
    EXPECT_EQ(textOf(recordFrom("{}", timing)), all);
    EXPECT_EQ(recordFrom(R"({"maxWrRdPtrThresh":5})", timing).maxWrRdPtrThresh, 5);
    EXPECT_EQ(recordFrom(R"({"maxWrRdPtrThresh":5})", timing).minWrRdPtrThresh, 2);
}

TEST(StreamConfiguration, ValueWithoutANameIsWrittenAsTheCatchAll) {
    constexpr int kUnnamed = 9;
    EXPECT_EQ(textOf(holding(&StreamClass::value, kUnnamed)), R"({"class":"undefined"})");
    EXPECT_EQ(textOf(holding(&State::value, kUnnamed)), R"({"state":"Undefined"})");
    EXPECT_EQ(textOf(holding(&StreamType::value, kUnnamed)), R"({"type":"undefined"})");
    EXPECT_EQ(textOf(holding(&RedundantType::value, kUnnamed)), R"({"redundant-type":"none"})");
    EXPECT_EQ(textOf(holding(&Codec::value, kUnnamed)), R"({"codec":"Not-supported"})");
    EXPECT_EQ(textOf(holding(&Codec::value, -1)), R"({"codec":"Not-supported"})");
    EXPECT_EQ(textOf(holding(&Ssrc::type, kUnnamed)), R"({"type":"-","value":0})");
    EXPECT_EQ(textOf(holding(&VideoTimingParameters::timingMode, kUnnamed)),
              R"({"timing-mode":"ERROR"})");
    EXPECT_EQ(textOf(holding(&TributaryType::type, kUnnamed)),
              R"({"tributary":{"index":-1,"type":"none"}})");
}

TEST(StreamConfiguration, NumbersAreCutToTheirWidth) {
    EXPECT_EQ(textOf(recordFrom<Vlan>(R"({"id":-1,"priority":259,"tpid":65537})")),
              R"({"id":65535,"priority":3,"tpid":1})");
    EXPECT_EQ(textOf(recordFrom<UdpPort>(R"({"source":65536,"destination":-65535})")),
              R"({"destination":1,"source":0})");
    EXPECT_EQ(recordFrom<Rtp>(R"({"payload-type":4294967295})").payloadType, 255);
    const auto address = recordFrom<IpAddrCfg>(R"({"dscp":256,"ttl":257})");
    EXPECT_EQ(address.dscp, 0);
    EXPECT_EQ(address.ttl, 1);
    EXPECT_EQ(recordFrom<Ssrc>(R"({"value":4294967295})").value, 4294967295U);
}

TEST(StreamConfiguration, AddressesAreInHostByteOrder) {
    const auto address =
        recordFrom<IpAddrCfg>(R"({"local":"192.168.1.1","transport":"239.0.0.1"})");
    EXPECT_EQ(address.local, 3232235777U);
    EXPECT_EQ(address.transport, 0xef000001U);
    EXPECT_THAT(textOf(address), testing::HasSubstr(R"("local":"192.168.1.1")"));
}

TEST(StreamConfiguration, InvalidAddressIsLoggedAndKept) {
    Logger::createLogger(Logger::kToStandardError | Logger::LOG_LEVEL_ERR, "", "test");
    const auto old = recordFrom<IpAddrCfg>(R"({"local":"10.0.0.1","transport":"239.1.1.1"})");
    for (const std::string text : {"10.0.0.256", "host.example", " 10.0.0.2", "::1"}) {
        testing::internal::CaptureStderr();
        const auto now = recordFrom(
            R"({"local":")" + text + R"(","transport":"239.2.2.2","dscp":46,"ttl":5})", old);
        EXPECT_THAT(testing::internal::GetCapturedStderr(),
                    EndsWith("ERR test: Error parsing IP [" + text + "]: invalid IP address\n"));
        EXPECT_EQ(textOf(now), R"({"dscp":46,"local":"10.0.0.1","transport":"239.2.2.2","ttl":5})");
    }
    testing::internal::CaptureStderr();
    EXPECT_EQ(textOf(recordFrom(R"({"local":"","transport":""})", old)), textOf(old));
    EXPECT_THAT(testing::internal::GetCapturedStderr(), IsEmpty());
}

TEST(StreamConfiguration, SynchronisationSourceHasTwoShapes) {
    const auto manual = recordFrom<Rtp>(R"({"sscr":{"type":"manual","value":77}})");
    EXPECT_EQ(textOf(manual), R"({"payload-type":98,"sscr":{"type":"manual","value":77}})");
    EXPECT_EQ(textOf(recordFrom(R"({"sscr":1234})", manual)),
              R"({"payload-type":98,"sscr":{"type":"session-id","value":1234}})");
    EXPECT_EQ(textOf(recordFrom(R"({"sscr":{"type":"Manual"}})", manual)),
              R"({"payload-type":98,"sscr":{"type":"manual","value":0}})");
    for (const char* keeps : {"{}", R"({"sscr":null})", R"({"ssrc":{"value":1}})"}) {
        EXPECT_EQ(textOf(recordFrom(keeps, manual)), textOf(manual)) << keeps;
    }
}

TEST(StreamConfiguration, ReadingLeavesMissingNestedObjectsAsNull) {
    Json::Value in = parseJson("{}");
    Rtp().Deserialize(in);
    TributaryType().Deserialize(in);
    VideoTimingParameters().Deserialize(in);
    EXPECT_EQ(toCompactJson(in), R"({"sscr":null,"tributary":null})");
}

TEST(StreamConfiguration, ValueThatCannotBeConvertedIsRefused) {
    EXPECT_THROW(recordFrom<Codec>(R"({"codec":["L24"]})"), Json::Exception);
    EXPECT_THROW(recordFrom<Vlan>(R"({"id":"7"})"), Json::Exception);
    EXPECT_THROW(recordFrom<Vlan>(R"({"id":2147483648})"), Json::Exception);
    EXPECT_THROW(recordFrom<Rtp>(R"({"payload-type":-1})"), Json::Exception);
    EXPECT_THROW(recordFrom<Rtp>(R"({"sscr":-1})"), Json::Exception);
    EXPECT_THROW(recordFrom<Rtp>(R"({"sscr":"1234"})"), Json::Exception);
    EXPECT_THROW(recordFrom<Rtp>(R"({"sscr":{"value":-1}})"), Json::Exception);
    EXPECT_THROW(recordFrom<IpAddrCfg>(R"({"ttl":-1})"), Json::Exception);
    EXPECT_THROW(recordFrom<DaifType>(R"({"type":"auto"})"), Json::Exception);
    EXPECT_THROW(recordFrom<VideoTimingParameters>(R"({"initBufDelay":"5"})"), Json::Exception);
    EXPECT_THROW(recordFrom<TributaryType>(R"({"tributary":[]})"), Json::Exception);
}

// A text that says "nothing" does not undo what is set, and nobody reads "ancillary" back.
TEST(StreamConfiguration, NamedValuesSurviveWritingAndReading) {
    EXPECT_THAT(survivors(&StreamClass::value), ElementsAre(1, 2));
    EXPECT_THAT(survivors(&State::value), ElementsAre(0, 1, 2));
    EXPECT_THAT(survivors(&StreamType::value), ElementsAre(1, 2));
    EXPECT_THAT(survivors(&RedundantType::value), ElementsAre(0, 1, 2));
    EXPECT_THAT(survivors(&Codec::value), ElementsAre(0, 1, 2, 3, 4, 5, 6, 7));
    EXPECT_THAT(survivors(&Ssrc::type), ElementsAre(0, 1, 2, 3));
    EXPECT_THAT(survivors(&VideoTimingParameters::timingMode), ElementsAre(1, 2, 3));
    EXPECT_THAT(survivors(&TributaryType::type), ElementsAre(0, 1, 2));
}

} // namespace
