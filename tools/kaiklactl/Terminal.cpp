#include "tools/kaiklactl/Terminal.hpp"

#include "tools/client/Waiting.hpp"

#include <climits>

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <optional>
#include <stdexcept>
#include <utility>

namespace kaiklactl {
namespace {

/// The character tables of UTF-8, whatever the environment's locale is, for one scope.
class Utf8Scope {
public:
    Utf8Scope() {
        static const locale_t utf8 = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
        if (utf8 != nullptr) {
            previous = ::uselocale(utf8);
        }
    }
    ~Utf8Scope() {
        if (previous != nullptr) {
            ::uselocale(previous);
        }
    }
    Utf8Scope(const Utf8Scope&) = delete;
    Utf8Scope& operator=(const Utf8Scope&) = delete;
    Utf8Scope(Utf8Scope&&) = delete;
    Utf8Scope& operator=(Utf8Scope&&) = delete;

private:
    locale_t previous = nullptr;
};

/// Marks that reorder what stands around them (Unicode Standard Annex 9). They have no width and so
/// count as printable in the character tables.
bool turnsTextRound(wchar_t c) {
    return c == L'\u061C' || c == L'\u200E' || c == L'\u200F' ||
           (c >= L'\u202A' && c <= L'\u202E') || (c >= L'\u2066' && c <= L'\u2069');
}

std::string escaped(const char* format, unsigned code) {
    constexpr std::size_t kLongestEscape = 16;
    std::array<char, kLongestEscape> text{};
    std::snprintf(text.data(), text.size(), format, code);
    return text.data();
}

std::string escapedCharacter(wchar_t c) {
    switch (c) {
    case L'\n':
        return "\\n";
    case L'\r':
        return "\\r";
    case L'\t':
        return "\\t";
    default:
        constexpr wchar_t kFirstBeyondAscii = 0x80;
        return escaped(c < kFirstBeyondAscii ? "\\x%02x" : "\\u%04x", static_cast<unsigned>(c));
    }
}

constexpr std::size_t kMaxPendingBytes = std::size_t{4} * 1024 * 1024;

} // namespace

PrintableText printable(std::string_view raw) {
    const Utf8Scope scope;
    PrintableText result;
    const auto addEscape = [&result](const std::string& escape) {
        result.text += escape;
        result.columns += escape.size();
    };
    std::mbstate_t state{};
    while (!raw.empty()) {
        wchar_t character = 0;
        const std::size_t length = std::mbrtowc(&character, raw.data(), raw.size(), &state);
        if (length == 0) {
            addEscape("\\x00");
            raw.remove_prefix(1);
        } else if (length > raw.size()) {
            addEscape(escaped("\\x%02x", static_cast<unsigned char>(raw.front())));
            raw.remove_prefix(1);
            state = {};
        } else {
            const int columns = ::wcwidth(character);
            if (columns < 0 || turnsTextRound(character)) {
                addEscape(escapedCharacter(character));
            } else {
                result.text += raw.substr(0, length);
                result.columns += static_cast<std::size_t>(columns);
            }
            raw.remove_prefix(length);
        }
    }
    return result;
}

std::string painted(const std::string& text, Style style, bool colour) {
    const char* start = "";
    switch (style) {
    case Style::plain:
        return text;
    case Style::heading:
        start = "\x1b[1m";
        break;
    case Style::good:
        start = "\x1b[32m";
        break;
    case Style::warning:
        start = "\x1b[33m";
        break;
    case Style::alarm:
        start = "\x1b[1;31m";
        break;
    }
    return colour ? start + text + "\x1b[0m" : text;
}

bool colourWanted() {
    // https://no-color.org: set and not empty.
    const char* noColour = std::getenv("NO_COLOR");
    const char* terminal = std::getenv("TERM");
    return ::isatty(STDOUT_FILENO) != 0 && (noColour == nullptr || *noColour == '\0') &&
           (terminal == nullptr || std::string_view(terminal) != "dumb");
}

void notice(const std::string& text) {
    const std::string line = "kaiklactl: " + printable(text).text + '\n';
    pollfd item{STDERR_FILENO, POLLOUT, 0};
    if (::poll(&item, 1, 0) > 0 && (item.revents & POLLOUT) != 0) {
        (void)!::write(STDERR_FILENO, line.data(), line.size());
    }
}

void LineOutput::add(std::string_view line) {
    if (isClosed) {
        return;
    }
    if (!pending.empty() && pending.size() - written + line.size() > kMaxPendingBytes) {
        ++leftOut;
        return;
    }
    pending.erase(0, std::exchange(written, 0));
    pending += line;
    pending += '\n';
    write();
}

zmq_pollitem_t LineOutput::pollItem() const {
    // A closed output is reported without being asked for.
    const short events = pending.empty() ? 0 : ZMQ_POLLOUT;
    return {nullptr, descriptor, events, 0};
}

void LineOutput::proceed(short revents) {
    if ((revents & ZMQ_POLLERR) != 0) {
        isClosed = true;
        pending.clear();
    } else if ((revents & ZMQ_POLLOUT) != 0) {
        write();
    }
}

void LineOutput::write() {
    // The descriptor may be shared with other programs and so stays in blocking mode. One that is
    // ready takes this much without blocking.
    while (!pending.empty()) {
        pollfd item{descriptor, POLLOUT, 0};
        if (::poll(&item, 1, 0) <= 0 || (item.revents & POLLOUT) == 0) {
            return;
        }
        const ssize_t count = ::write(descriptor, pending.data() + written,
                                      std::min<std::size_t>(pending.size() - written, PIPE_BUF));
        if (count >= 0) {
            written += static_cast<std::size_t>(count);
            if (written == pending.size()) {
                pending.clear();
                written = 0;
            }
        } else if (errno != EAGAIN && errno != EINTR) {
            errorNumber = errno == EPIPE ? 0 : errno;
            isClosed = true;
            pending.clear();
        }
    }
}

std::size_t LineOutput::takeLeftOut() {
    return std::exchange(leftOut, 0);
}

void LineOutput::check() const {
    if (errorNumber != 0) {
        throw std::runtime_error(std::string("the output cannot be written: ") +
                                 std::strerror(errorNumber) + ".");
    }
}

void print(std::string_view text, StopSignals& stop) {
    if (text.empty()) {
        return;
    }
    LineOutput output(STDOUT_FILENO);
    output.add(text);
    while (!output.idle()) {
        std::array<zmq_pollitem_t, 2> items = {output.pollItem(), client::pollItem(stop)};
        client::waitFor(items, std::nullopt);
        client::throwIfStopped(stop);
        output.proceed(items.front().revents);
    }
    output.check();
}

} // namespace kaiklactl
