#include "gateway/HttpSession.hpp"

#include "gateway/Clients.hpp"
#include "gateway/Transport.hpp"
#include "gateway/Users.hpp"

#include <boost/asio/ip/address.hpp>
#include <boost/beast/core/error.hpp>
#include <boost/beast/core/flat_static_buffer.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/serializer.hpp>
#include <boost/beast/http/span_body.hpp>
#include <boost/beast/http/write.hpp>

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

namespace gateway {
namespace {

namespace http = boost::beast::http;

constexpr unsigned kHttp11 = 11;
constexpr unsigned kNotModified = 304;

/// Everything that a browser is to refuse, whatever the page or the device says.
constexpr std::array<std::pair<const char*, const char*>, 4> kSecurityFields = {
    {{"Content-Security-Policy",
      "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; "
      "connect-src 'self'; worker-src 'self'; base-uri 'none'; form-action 'none'; "
      "frame-ancestors 'none'"},
     {"X-Content-Type-Options", "nosniff"},
     {"Referrer-Policy", "no-referrer"},
     {"Cross-Origin-Resource-Policy", "same-origin"}}};

std::string_view view(boost::beast::string_view text) {
    return {text.data(), text.size()};
}

/// "localhost:8580" and "[::1]:8580" without port and brackets.
std::string_view hostName(std::string_view host) {
    if (host.starts_with('[')) {
        const auto end = host.find(']');
        return end == std::string_view::npos ? host : host.substr(1, end - 1);
    }
    return host.substr(0, host.find(':'));
}

bool isSameName(std::string_view left, std::string_view right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(), [](char a, char b) {
        const auto lower = [](char c) {
            return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c;
        };
        return lower(a) == lower(b);
    });
}

/// What a request names.
struct Target {
    explicit Target(std::string_view text) {
        for (const std::string_view scheme : {"http://", "https://"}) {
            if (isSameName(text.substr(0, scheme.size()), scheme)) {
                text.remove_prefix(scheme.size());
                authority = text.substr(0, text.find_first_of("/?"));
                text.remove_prefix(authority.size());
                break;
            }
        }
        path = text.substr(0, text.find('?'));
        query = text.substr(std::min(text.size(), path.size() + 1));
        if (path.empty()) {
            path = "/";
        }
    }

    /// Empty unless the target is a whole URL, as some proxies send it. It goes before Host then.
    std::string_view authority;
    std::string_view path;
    std::string_view query;
};

/// The library's templates stay in this file.
class Session final : public HttpSession, public std::enable_shared_from_this<Session> {
public:
    Session(Transport transport, Shared& shared, Users* users);
    virtual ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    Session(Session&&) = delete;
    Session& operator=(Session&&) = delete;

    void start();
    void checkDeadline(Clock::time_point now) override;
    bool giveWay() override;
    void close();

private:
    using Parser = http::request_parser<http::empty_body>;
    using Request = http::request<http::empty_body>;
    using Response = http::response<http::span_body<const char>>;
    using Serializer = http::response_serializer<http::span_body<const char>>;

    void beginRequest();
    void read();
    void headFailed(const boost::system::error_code& error);
    void carryOut(const Request& request);
    /// An answer when the request is refused before its path is looked at.
    std::optional<Answer> refusal(const Request& request, std::string_view authority);
    std::optional<Answer> refusalOfMethod(http::verb method);
    std::optional<Answer> refusalOfStrangers(std::string_view authorization);
    bool isOwnHost(std::string_view host);
    std::string clientAddress(const Request& request) const;
    void startStream(const Request& request, std::string_view query);
    void respond(Answer answer, bool isHead, bool keepAlive);
    void write();
    void written();
    /// Tells the other side that nothing more comes, and waits until it has seen it.
    void finish();
    void discard();
    void countRefusal(const std::string& reason);

    Transport transport;
    Shared& shared;
    std::list<HttpSession*>::iterator entry;
    Users* users;
    std::string peer;
    bool isLoopback = false;
    bool isClosed = false;
    bool hasBegun = false;
    Clock::time_point deadline;

    boost::beast::flat_static_buffer<kMaxHeadBytes + 1024> buffer;
    std::optional<Parser> parser;
    Answer answer;
    std::optional<Response> response;
    std::optional<Serializer> serializer;
    bool isHead = false;
};

Session::Session(Transport connection, Shared& sharedParts, Users* knownUsers)
    : transport(std::move(connection)), shared(sharedParts),
      entry(shared.sessions.insert(shared.sessions.end(), this)), users(knownUsers) {
    boost::system::error_code error;
    const auto address = unmapped(transport.socket().remote_endpoint(error).address());
    peer = addressText(address);
    isLoopback = !error && address.is_loopback();
}

Session::~Session() {
    shared.sessions.erase(entry);
}

void Session::start() {
    deadline = Clock::now() + kHeadLimit;
    transport.async_handshake([self = shared_from_this()](const auto& error) {
        if (error || self->isClosed) {
            self->countRefusal("handshake");
            self->close();
            return;
        }
        self->hasBegun = true;
        self->beginRequest();
    });
}

void Session::checkDeadline(Clock::time_point now) {
    if (isClosed || now < deadline) {
        return;
    }
    if (serializer) {
        shared.stream.incidents.count(Incidents::kEviction, "stalled", peer);
    } else if (hasBegun) {
        countRefusal("slow-head");
    }
    close();
}

bool Session::giveWay() {
    if (isClosed || serializer) {
        return false;
    }
    shared.stream.incidents.count(Incidents::kEviction, "room", peer);
    close();
    return true;
}

void Session::close() {
    isClosed = true;
    transport.close();
}

void Session::beginRequest() {
    shared.sessions.splice(shared.sessions.end(), shared.sessions, entry);
    parser.emplace();
    parser->header_limit(kMaxHeadBytes);
    parser->body_limit(0);
    if (buffer.size() > 0) {
        // What the client has sent already may be a whole request.
        hasBegun = true;
        deadline = Clock::now() + kHeadLimit;
    }
    read();
}

void Session::read() {
    http::async_read_some(
        transport, buffer, *parser,
        [self = shared_from_this()](const boost::system::error_code& error, std::size_t) {
            if (self->isClosed) {
                return;
            }
            if (!self->hasBegun) {
                self->hasBegun = true;
                self->deadline = Clock::now() + kHeadLimit;
            }
            if (error) {
                self->headFailed(error);
            } else if (self->parser->is_done()) {
                self->carryOut(self->parser->get());
            } else {
                self->read();
            }
        });
}

void Session::headFailed(const boost::system::error_code& error) {
    if (error == http::error::header_limit || error == http::error::buffer_overflow) {
        countRefusal("head-too-large");
        respond(problem(431, "Request Header Fields Too Large", "The head is over 8 KiB."), false,
                false);
    } else if (error == http::error::unexpected_body || error == http::error::body_limit) {
        std::optional<Answer> refused = refusalOfMethod(parser->get().method());
        if (!refused) {
            countRefusal("body");
            refused = problem(413, "Content Too Large", "A request has no body here.");
        }
        respond(std::move(*refused), false, false);
    } else if (error == http::error::end_of_stream || error == http::error::partial_message ||
               error.category() != http::make_error_code(http::error::bad_version).category()) {
        close();
    } else {
        countRefusal("malformed");
        respond(problem(400, "Bad Request", "This is not HTTP/1.1: " + error.message() + "."),
                false, false);
    }
}

void Session::carryOut(const Request& request) {
    const bool head = request.method() == http::verb::head;
    const bool keepAlive = request.keep_alive() && request.version() == kHttp11;
    const Target target(view(request.target()));
    if (std::optional<Answer> refused = refusal(request, target.authority)) {
        respond(std::move(*refused), head, keepAlive);
        return;
    }
    if (target.path == "/api/v1/events") {
        if (head) {
            respond({200, "text/event-stream", std::make_shared<const std::string>(), {}}, head,
                    keepAlive);
        } else {
            startStream(request, target.query);
        }
        return;
    }
    const Question question{target.path, target.query, view(request[http::field::if_none_match]),
                            view(request[http::field::accept_encoding]).find("gzip") !=
                                std::string_view::npos};
    respond(shared.answer(question), head, keepAlive);
}

std::optional<Answer> Session::refusal(const Request& request, std::string_view authority) {
    const auto host = request.find(http::field::host);
    if (host == request.end() || request.count(http::field::host) != 1) {
        countRefusal("host");
        return problem(400, "Bad Request", "A request names exactly one Host.");
    }
    if (!isOwnHost(hostName(authority.empty() ? view(host->value()) : authority))) {
        countRefusal("host");
        return problem(421, "Misdirected Request",
                       "This Host is not known here; --host NAME makes it known.");
    }
    if (std::optional<Answer> refused = refusalOfMethod(request.method())) {
        return refused;
    }
    return users == nullptr ? std::nullopt
                            : refusalOfStrangers(view(request[http::field::authorization]));
}

std::optional<Answer> Session::refusalOfMethod(http::verb method) {
    if (method == http::verb::get || method == http::verb::head) {
        return std::nullopt;
    }
    countRefusal("method");
    Answer refused = problem(405, "Method Not Allowed", "Only GET and HEAD are known here.");
    refused.fields.emplace_back("Allow", "GET, HEAD");
    return refused;
}

std::optional<Answer> Session::refusalOfStrangers(std::string_view authorization) {
    const Clock::time_point now = Clock::now();
    Answer refused = problem(401, "Unauthorized", "A name and a password are needed.");
    refused.fields.emplace_back("WWW-Authenticate", R"(Basic realm="kaikla", charset="UTF-8")");
    if (authorization.empty()) {
        return refused;
    }
    const auto delay = std::chrono::ceil<std::chrono::seconds>(users->delay(peer, now));
    const Users::Verdict verdict =
        delay.count() > 0 ? Users::Verdict::busy : users->check(authorization, now);
    switch (verdict) {
    case Users::Verdict::right:
        users->succeeded(peer);
        return std::nullopt;
    case Users::Verdict::wrong:
        users->failed(peer, now);
        countRefusal("password");
        return refused;
    case Users::Verdict::busy:
        break;
    }
    countRefusal("password-delay");
    refused = problem(429, "Too Many Requests", "Passwords were wrong before; try again later.");
    refused.fields.emplace_back("Retry-After",
                                std::to_string(std::max(delay, std::chrono::seconds(1)).count()));
    return refused;
}

bool Session::isOwnHost(std::string_view host) {
    if (std::any_of(shared.hosts.begin(), shared.hosts.end(),
                    [host](const std::string& name) { return isSameName(name, host); })) {
        return true;
    }
    boost::system::error_code error;
    const auto own = unmapped(transport.socket().local_endpoint(error).address());
    if (own.is_loopback() && isSameName(host, "localhost")) {
        return true;
    }
    const auto named = boost::asio::ip::make_address(std::string(host), error);
    return !error && named == own;
}

/// A proxy on this host names the client that it speaks for last in this field.
std::string Session::clientAddress(const Request& request) const {
    constexpr std::size_t kLongestAddress = 64;
    const std::string_view field = view(request["X-Forwarded-For"]);
    if (!isLoopback || field.empty()) {
        return peer;
    }
    std::string_view last = field.substr(field.rfind(',') + 1);
    last.remove_prefix(std::min(last.size(), last.find_first_not_of(' ')));
    return std::string(last.substr(0, kLongestAddress));
}

void Session::startStream(const Request& request, std::string_view query) {
    const std::string address = clientAddress(request);
    const Clients::Admission admission = shared.stream.clients.admit(address);
    if (admission != Clients::Admission::welcome) {
        const bool isFull = admission == Clients::Admission::full;
        countRefusal(isFull ? "clients" : "clients-of-address");
        Answer refused =
            isFull ? problem(503, "Service Unavailable", "There are 1000 clients.")
                   : problem(429, "Too Many Requests", "There are 64 clients from this address.");
        refused.fields.emplace_back("Retry-After", "10");
        respond(std::move(refused), false, false);
        return;
    }
    std::string_view id = view(request["Last-Event-ID"]);
    if (id.empty()) {
        id = queryValue(query, "since");
    }
    // Short pauses between attempts of a browser: the gateway restarts within a second or two.
    std::string head = "HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\n"
                       "Cache-Control: no-store\r\nX-Accel-Buffering: no\r\nConnection: close\r\n";
    for (const auto& [name, value] : kSecurityFields) {
        head.append(name).append(": ").append(value).append("\r\n");
    }
    head += "\r\nretry: 2000\n\n";
    const auto since = shared.stream.ring.position(id);
    isClosed = true;
    EventStream::serve(std::move(transport), shared.stream, address,
                       std::make_shared<const std::string>(std::move(head)), since);
}

void Session::respond(Answer given, bool onlyHead, bool keepAlive) {
    answer = std::move(given);
    isHead = onlyHead;
    response.emplace();
    response->result(answer.status);
    response->version(kHttp11);
    response->keep_alive(keepAlive);
    response->set(http::field::content_type, answer.type);
    response->set(http::field::cache_control, "no-store");
    for (const auto& [name, value] : kSecurityFields) {
        response->set(name, value);
    }
    for (const auto& [name, value] : answer.fields) {
        response->set(name, value);
    }
    response->body() = {answer.body->data(), answer.body->size()};
    // The length of a 304 would be that of the body that it leaves out.
    if (answer.status != kNotModified) {
        response->prepare_payload();
    }
    serializer.emplace(*response);
    serializer->split(isHead);
    deadline = Clock::now() + kStallLimit;
    write();
}

void Session::write() {
    http::async_write_some(
        transport, *serializer,
        [self = shared_from_this()](const boost::system::error_code& error, std::size_t) {
            if (error || self->isClosed) {
                self->close();
                return;
            }
            self->deadline = Clock::now() + kStallLimit;
            if (self->isHead ? self->serializer->is_header_done() : self->serializer->is_done()) {
                self->written();
            } else {
                self->write();
            }
        });
}

void Session::written() {
    const bool keepAlive = response->keep_alive();
    serializer.reset();
    response.reset();
    answer = Answer();
    hasBegun = false;
    if (keepAlive) {
        deadline = Clock::now() + kIdleLimit;
        beginRequest();
    } else {
        finish();
    }
}

// A connection that is closed while bytes of the client wait unread is reset, and the reset may
// overtake the answer.

void Session::finish() {
    constexpr std::chrono::seconds kLinger{1};
    boost::system::error_code ignored;
    (void)transport.socket().shutdown(Socket::shutdown_send, ignored);
    deadline = Clock::now() + kLinger;
    buffer.clear();
    discard();
}

void Session::discard() {
    transport.socket().async_read_some(
        buffer.prepare(kMaxHeadBytes),
        [self = shared_from_this()](const boost::system::error_code& error, std::size_t) {
            if (error || self->isClosed) {
                self->close();
            } else {
                self->discard();
            }
        });
}

void Session::countRefusal(const std::string& reason) {
    shared.stream.incidents.count(Incidents::kRefusal, reason, peer);
}

} // namespace

void HttpSession::serve(Transport transport, Shared& shared, Users* users) {
    std::make_shared<Session>(std::move(transport), shared, users)->start();
}

bool HttpSession::makeRoom(Shared& shared) {
    return std::any_of(shared.sessions.begin(), shared.sessions.end(),
                       [](HttpSession* session) { return session->giveWay(); });
}

} // namespace gateway
