#include "platform/records/AdvSessionEntry.hpp"
#include "platform/records/IpcMsg.hpp"
#include "platform/records/PtpCommonInfo.hpp"
#include "platform/records/SysParametersDynamic.hpp"
#include "platform/records/ZatPmcPtpCfg.hpp"
#include "tests/support/RecordText.hpp"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace {

TEST(Records, NumbersAreTruncatedToTheirWidth) {
    const auto ptp = recordFrom<PtpCommonInfo>(
        R"({"cfgSetting1":257,"cfgSetting2":-1,"cfgSetting3":18446744073709551615,"cfgFlag":2,)"
        R"("profile":{"domain":300,"announce_interval":255,"sync_interval":128,)"
        R"("delay_req_interval":-129},)"
        R"("ports":[{"portNumber":65537,"portSetting1":256,"portSetting2":3.9}]})");
    EXPECT_EQ(ptp.cfgSetting1, 1);
    EXPECT_EQ(ptp.cfgSetting2, 255);
    EXPECT_EQ(ptp.cfgSetting3, 255);
    EXPECT_TRUE(ptp.cfgFlag);
    EXPECT_EQ(ptp.profile.domain, 44);
    EXPECT_EQ(ptp.profile.announceInterval, -1);
    EXPECT_EQ(ptp.profile.syncInterval, -128);
    EXPECT_EQ(ptp.profile.delayReqInterval, 127);
    EXPECT_EQ(ptp.ports.front().portNumber, 1);
    EXPECT_EQ(ptp.ports.front().portSetting1, 0);
    EXPECT_EQ(ptp.ports.front().portSetting2, 3);

    EXPECT_EQ(rewritten<ZatPmcPtpCfg>(
                  R"({"cfgFlag":4294967295,"ports":[{"portNumber":200},{"portNumber":-129}]})"),
              R"({"cfgFlag":-1,"cfgSetting1":0,"cfgSetting2":0,"cfgSetting3":0,"ports":[)"
              R"({"portNumber":-56,"portSetting1":0,"portSetting2":0,"portSetting3":0},)"
              R"({"portNumber":127,"portSetting1":0,"portSetting2":0,"portSetting3":0}]})");

    const auto eth = recordFrom<EthBasicInfo>(R"({"state":257,"speed_mbps":4294967396})");
    EXPECT_EQ(eth.state, 1);
    EXPECT_EQ(eth.speedMbps, 100U);
}

TEST(Records, MissingKeysTakeTheEmptyOrZeroValueAlsoOverAFullRecord) {
    auto ptp = recordFrom<PtpCommonInfo>(
        R"({"clock_id":"c","grandmaster_id":"g","locked":true,"offset_ns":1,"cfgFlag":true,)"
        R"("mean_path_delay_ns":1,"profile":{"name":"p","domain":1},"ports":[{}],"cfgSetting1":1})");
    Json::Value nothing(Json::objectValue);
    ptp.Deserialize(nothing);
    EXPECT_EQ(textOf(ptp), textOf(PtpCommonInfo()));

    const std::string dynamic =
        R"({"eths":[{"ip":"","mac":"","name":"","sfp":{"part_number":"","present":false,)"
        R"("rx_power_dbm":0.0,"serial":"","temperature_c":0.0,"tx_power_dbm":0.0,"vendor":""},)"
        R"("speed_mbps":0,"state":0}],"temperature_c":0.0,"uptime_s":18446744073709551615})";
    EXPECT_EQ(rewritten<SysParametersDynamic>(R"({"eths":[{}],"uptime_s":18446744073709551615})"),
              dynamic);
    EXPECT_EQ(rewritten<SysParametersDynamic>(dynamic), dynamic);
    EXPECT_EQ(rewritten<AdvSessionEntry>(R"({"id":9,"sdp":"v=0"})"),
              R"({"id":9,"name":"","sdp":"v=0"})");
}

TEST(Records, UnconvertibleValuesAreRefused) {
    for (const char* text :
         {R"({"ports":[7]})", R"({"profile":"p"})", R"({"offset_ns":"1"})",
          R"({"offset_ns":9223372036854775808})", R"({"cfgSetting1":"1"})",
          R"({"offset_ns":9223372036854775808.0})", R"({"cfgSetting1":18446744073709551616})",
          R"({"cfgSetting1":1e30})", R"({"locked":"yes"})"}) {
        EXPECT_THROW(recordFrom<PtpCommonInfo>(text), Json::Exception) << text;
    }
    for (const char* text :
         {R"({"eths":[{"sfp":1}]})", R"({"eths":[{"sfp":{"present":{}}}]})", R"({"uptime_s":-1})",
          R"({"uptime_s":18446744073709551616})", R"({"temperature_c":"hot"})"}) {
        EXPECT_THROW(recordFrom<SysParametersDynamic>(text), Json::Exception) << text;
    }
    for (const std::string list : {"5", "\"text\"", "true", "{}"}) {
        const std::string ports = R"({"ports":)" + list + "}";
        EXPECT_THROW(recordFrom<PtpCommonInfo>(ports), Json::Exception) << list;
        EXPECT_THROW(recordFrom<ZatPmcPtpCfg>(ports), Json::Exception) << list;
        EXPECT_THROW(recordFrom<SysParametersDynamic>(R"({"eths":)" + list + "}"), Json::Exception)
            << list;
    }
}

TEST(Records, RealNumbersAreConvertedAsFarAsTheyFit) {
    EXPECT_EQ(recordFrom<PtpCommonInfo>(R"({"offset_ns":-9223372036854775808.0})").offsetNs,
              std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(recordFrom<PtpCommonInfo>(R"({"offset_ns":9223372036854774784.0})").offsetNs,
              9223372036854774784);
    EXPECT_EQ(recordFrom<SysParametersDynamic>(R"({"uptime_s":18446744073709549568.0})").uptimeS,
              18446744073709549568U);
    EXPECT_EQ(recordFrom<SysParametersDynamic>(R"({"uptime_s":1.9})").uptimeS, 1U);
}

TEST(Records, MessageNeedsACommandIdAndNothingElse) {
    EXPECT_EQ(rewritten<IpcMsg>(R"({"command_id":4294967295})"),
              R"({"command_id":4294967295,"command_name":"","payload":null})");
    EXPECT_EQ(rewritten<IpcMsg>(R"({"command_id":1,"command_name":"n","payload":[{"a":1}]})"),
              R"({"command_id":1,"command_name":"n","payload":[{"a":1}]})");
    for (const char* text :
         {"{}", R"({"command_id":-1})", R"({"command_id":4294967296})", R"({"command_id":"1"})",
          R"({"command_id":null})", R"({"command_id":true})", R"({"command_id":1.5})",
          R"({"command_id":1,"command_name":{}})"}) {
        EXPECT_THROW(recordFrom<IpcMsg>(text), Json::Exception) << text;
    }
}

} // namespace
