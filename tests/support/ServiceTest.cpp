#include "tests/support/ServiceTest.hpp"

#include <utility>

void ServiceTest::startAll(std::vector<std::string> options) {
    playServices();
    startService(std::move(options));
    ASSERT_TRUE(waitForSubscriptions());
}

void ServiceTest::playServices() {
    session.emplace(context, platform_protocol::kSessionManagerEndpoint);
    system.emplace(context, platform_protocol::kSystemManagerEndpoint);
    ptp.emplace(context, platform_protocol::kPtpManagementEndpoint);
    node.emplace(context);
}

void ServiceTest::startService(std::vector<std::string> options) {
    options.insert(options.begin(), "kaikla");
    service.emplace(std::move(options));
    lists = 0;
    list();
}

bool ServiceTest::waitForSubscriptions() {
    return session->waitForSubscription(AvmgrPublisher::avmgr_session_status) &&
           system->waitForSubscription(SysmgrPublisher::sysmgr_dynamic_information_update) &&
           ptp->waitForSubscription(ZatPmcPublisher::zat_pmc_configuration_change);
}

Json::Value ServiceTest::command(unsigned id, const std::string& address) {
    Json::Value payload;
    payload["address"] = address;
    return client.request(id, payload);
}

void ServiceTest::registerAndGreet(Consumer& consumer) {
    ASSERT_EQ(add(consumer.address()), 0);
    ASSERT_EQ(consumer.receive()["command_name"], "status-all");
}

Json::Value ServiceTest::list() {
    ++lists;
    const Json::Value reply = client.request(kList);
    EXPECT_EQ(reply["result"], 0);
    return reply["payload"];
}

std::string ServiceTest::wholeLog() {
    if (!service->waitForExit(std::chrono::milliseconds(0))) {
        list();
        EXPECT_TRUE(service->waitForError("GET Server list) carried out", lists));
    }
    return service->error();
}

Json::Value ServiceTest::document() {
    return client.request(kGetStatus)["payload"]["status"];
}

std::vector<unsigned> ServiceTest::sessionIds() {
    std::vector<unsigned> ids;
    const Json::Value sessions = document()["sessions"];
    for (const Json::Value& record : sessions) {
        ids.push_back(record["id"].asUInt());
    }
    return ids;
}

std::optional<int> ServiceTest::stop(int signal) {
    service->signal(signal);
    const std::optional<int> status = service->waitForExit(std::chrono::seconds(1));
    if (status) {
        // The log is complete when its pipe is closed.
        service->finish();
    }
    return status;
}
