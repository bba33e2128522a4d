#pragma once

#include <zmq.hpp>

#include <string>

/// One message body for any number of receivers: every copy() of the frame refers to the same
/// bytes, which are freed with the last of them.
zmq::message_t makeSharedFrame(std::string body);
