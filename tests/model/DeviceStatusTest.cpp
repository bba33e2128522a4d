#include "model/DeviceStatus.hpp"

#include "tests/support/RecordText.hpp"

#include <gtest/gtest.h>

namespace {

const std::string kDefaultPtp =
    R"({"cfgFlag":false,"cfgSetting1":0,"cfgSetting2":0,"cfgSetting3":0,"clock_id":"",)"
    R"("grandmaster_id":"","locked":false,"mean_path_delay_ns":0,"offset_ns":0,)"
    R"("profile":{"announce_interval":0,"delay_req_interval":0,"domain":0,"name":"",)"
    R"("sync_interval":0}})";

const std::string kSession =
    R"({"alarms":[{"description":"d","severity":"","type":-3},)"
    R"({"description":"","severity":"major","type":2147483647}],)"
    R"("device_id":"dev","id":18446744073709551615,"nmos_id":"n","stream":[{"id":4294967296},)"
    R"({"alarms":[{"description":"x","severity":"minor","type":1}],"id":5},{"id":4}]})";

TEST(DeviceStatus, EmptyRecordsWriteTheirSingleValuesAndNoLists) {
    EXPECT_EQ(textOf(StreamAlarmData()), R"({"description":"","severity":"","type":0})");
    EXPECT_EQ(textOf(StreamStatusData()), R"({"id":0})");
    EXPECT_EQ(textOf(SessionStatusData()), R"({"device_id":"","id":0,"nmos_id":""})");
    EXPECT_EQ(textOf(WebNotifierDeviceStatus()), R"({"device_id":"","ptp":)" + kDefaultPtp + "}");
}

TEST(DeviceStatus, FullDocumentIsReadAndWrittenKeyForKeyInListOrder) {
    const std::string port =
        R"({"ip":"10.0.0.2","mac":"00:11","name":"eth1","sfp":{"part_number":"p","present":true,)"
        R"("rx_power_dbm":-3.5,"serial":"s","temperature_c":40.25,"tx_power_dbm":-2.25,)"
        R"("vendor":"v"},"speed_mbps":10000,"state":1})";
    const std::string ptp =
        R"({"cfgFlag":true,"cfgSetting1":1,"cfgSetting2":2,"cfgSetting3":255,"clock_id":"c",)"
        R"("grandmaster_id":"g","locked":true,"mean_path_delay_ns":-9223372036854775808,)"
        R"("offset_ns":9223372036854775807,"ports":[{"portNumber":65535,"portSetting1":1,)"
        R"("portSetting2":2,"portSetting3":3,"state":"SLAVE"}],"profile":{"announce_interval":-3,)"
        R"("delay_req_interval":-128,"domain":127,"name":"st2059","sync_interval":127}})";
    const std::string document = R"({"device_id":"dev","eths":[)" + port + R"(],"ptp":)" + ptp +
                                 R"(,"sessions":[)" + kSession +
                                 R"(,{"device_id":"","id":1,"nmos_id":""}]})";
    EXPECT_EQ(rewritten<WebNotifierDeviceStatus>(document), document);
}

TEST(DeviceStatus, MissingSeverityReadsAsWarningAndNullAsEmpty) {
    EXPECT_EQ(rewritten<StreamStatusData>(R"({"alarms":[{},{"severity":null},null]})"),
              R"({"alarms":[{"description":"","severity":"warning","type":0},)"
              R"({"description":"","severity":"","type":0},)"
              R"({"description":"","severity":"warning","type":0}],"id":0})");
}

TEST(DeviceStatus, ReadingReplacesEverythingThatWasThere) {
    auto document = recordFrom<WebNotifierDeviceStatus>(
        R"({"device_id":"old","eths":[{},{}],"ptp":{"locked":true},"sessions":[{},{},{},{},{}]})");
    Json::Value two = parseJson(R"({"sessions":[{"id":8},{"id":3}]})");
    document.Deserialize(two);
    EXPECT_EQ(textOf(document), R"({"device_id":"","ptp":)" + kDefaultPtp +
                                    R"(,"sessions":[{"device_id":"","id":8,"nmos_id":""},)"
                                    R"({"device_id":"","id":3,"nmos_id":""}]})");

    auto session = recordFrom<SessionStatusData>(kSession);
    Json::Value nothing(Json::objectValue);
    session.Deserialize(nothing);
    EXPECT_EQ(textOf(session), textOf(SessionStatusData()));
}

TEST(DeviceStatus, ReadingLeavesNullListsInTheInputAndNothingElse) {
    EXPECT_EQ(inputAfterReading<StreamStatusData>(R"({"id":7})"), R"({"alarms":null,"id":7})");
    EXPECT_EQ(inputAfterReading<SessionStatusData>("{}"), R"({"alarms":null,"stream":null})");
    EXPECT_EQ(inputAfterReading<WebNotifierDeviceStatus>("{}"),
              R"({"eths":null,"ptp":{"ports":null,"profile":null},"sessions":null})");
}

TEST(DeviceStatus, WritingLeavesSurplusElementsAndOtherMembersInPlace) {
    Json::Value json = parseJson(
        R"({"alarms":[{"type":9,"kept":1},{"type":8}],"stream":[{},{},{},{"id":6}],"other":1})");
    recordFrom<SessionStatusData>(R"({"alarms":[{}],"stream":[{"id":1}]})").Serialize(json);
    EXPECT_EQ(toCompactJson(json),
              R"({"alarms":[{"description":"","kept":1,"severity":"warning","type":0},{"type":8}],)"
              R"("device_id":"","id":0,"nmos_id":"","other":1,)"
              R"("stream":[{"id":1},{},{},{"id":6}]})");

    Json::Value document = parseJson(R"({"sessions":[{},{"id":2}],"eths":[{"name":"kept"}]})");
    recordFrom<WebNotifierDeviceStatus>(R"({"sessions":[{"id":1}]})").Serialize(document);
    EXPECT_EQ(document["sessions"].size(), 2U);
    EXPECT_EQ(document["sessions"][1]["id"], 2);
    EXPECT_EQ(document["eths"][0]["name"], "kept");
}

TEST(DeviceStatus, ValuesAreConvertedWhereTheLibraryCan) {
    EXPECT_EQ(rewritten<SessionStatusData>(
                  R"({"id":7.9,"nmos_id":5,"device_id":true,"alarms":"text","stream":12})"),
              R"({"device_id":"true","id":7,"nmos_id":"5"})");
    EXPECT_EQ(rewritten<SessionStatusData>(R"({"id":null,"nmos_id":null,"alarms":false})"),
              textOf(SessionStatusData()));
}

TEST(DeviceStatus, ValuesThatCannotBeConvertedRaiseTheLibrarysError) {
    for (const char* text :
         {R"({"id":-1})", R"({"id":"7"})", R"({"id":36893488147419103232})", R"({"id":[]})",
          R"({"nmos_id":{}})", R"({"device_id":[]})", R"({"alarms":{"a":{}}})", R"({"alarms":[5]})",
          R"({"alarms":[{"severity":{}}]})", R"({"alarms":[{"type":"x"}]})",
          R"({"alarms":[{"type":2147483648}]})", R"({"stream":[{"id":-1}]})",
          R"({"stream":[{"alarms":[[]]}]})"}) {
        EXPECT_THROW(recordFrom<SessionStatusData>(text), Json::Exception) << text;
        EXPECT_THROW(
            recordFrom<WebNotifierDeviceStatus>(R"({"sessions":[)" + std::string(text) + "]}"),
            Json::Exception)
            << text;
    }
}

} // namespace
