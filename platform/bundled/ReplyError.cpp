#include "platform/bundled/ReplyError.hpp"

#include "platform/PlatformProtocol.hpp"
#include "platform/api/ResultCode.hpp"

std::string replyErrorSentence(int code) {
    switch (code) {
    case result_code::kUnknownId:
        return "There is no command with this command_id.";
    case result_code::kConsumerNotConnected:
        return "The service cannot connect to this address: it must be a ZeroMQ endpoint such as "
               "tcp://192.0.2.10:7000, and the number of consumers is limited.";
    case platform_protocol::kErrorMalformed:
        return "The message cannot be decoded.";
    case platform_protocol::kErrorUnreachable:
        return "A service that the command needs cannot be reached or did not answer in time.";
    case platform_protocol::kErrorSocket:
        return "A socket that the command needs cannot be created or connected.";
    default:
        return "The command failed with code " + std::to_string(code) + ".";
    }
}
