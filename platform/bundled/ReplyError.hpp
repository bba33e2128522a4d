#pragma once

#include <string>

/// One sentence for a person who reads the reply of a command that failed with `code`, one of
/// result_code's or the platform's.
std::string replyErrorSentence(int code);
