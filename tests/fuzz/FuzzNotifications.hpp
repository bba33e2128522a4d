#pragma once

#include "tests/fuzz/Expect.hpp"
#include "tests/fuzz/FuzzInput.hpp"
#include "tests/fuzz/FuzzedHandler.hpp"

#include <zmq.hpp>

#include <string>
#include <vector>

/// Anything as a notification of one platform service: whatever comes, the document and what is
/// published stay sound, and the next notification is read.
///
/// `Service` is a FuzzedHandler with the endpoint of that service (kEndpoint), a notification that
/// ends an input (endMark(), two frames), and atEnd(): whether it has been read.
template <typename Service>
class NotificationFuzzer {
public:
    NotificationFuzzer() : publisher(publisherContext, zmq::socket_type::xpub) {
        publisher.bind(Service::kEndpoint);
        waitForSubscriptions();
    }

    void take(const std::uint8_t* data, std::size_t size) {
        send(framesOf(data, size));
        const std::vector<std::string> mark = service.endMark();
        send({mark.begin(), mark.end()});
        constexpr long kPatienceMs = 5000;
        while (!service.atEnd()) {
            expect(service.serveEvents(kPatienceMs), "the next notification is read");
        }
        service.readMail();
        service.soundDocument();
        service.tidyUp();
    }

private:
    void waitForSubscriptions() {
        // The end mark is among the kinds subscribed to; once it gets through, everything does.
        constexpr long kStepMs = 10;
        const std::vector<std::string> mark = service.endMark();
        while (!service.atEnd()) {
            zmq::message_t subscription;
            while (publisher.recv(subscription, zmq::recv_flags::dontwait)) {
            }
            send({mark.begin(), mark.end()});
            service.serveEvents(kStepMs);
        }
        while (service.serveEvents(kStepMs)) {
        }
    }

    void send(const std::vector<std::string_view>& frames) {
        for (std::size_t i = 0; i < frames.size(); ++i) {
            publisher.send(zmq::buffer(frames[i]), i + 1 < frames.size() ? zmq::send_flags::sndmore
                                                                         : zmq::send_flags::none);
        }
    }

    Service service;
    zmq::context_t publisherContext;
    zmq::socket_t publisher;
};
