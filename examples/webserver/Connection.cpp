#include "examples/webserver/Connection.h"

#include <algorithm>
#include <boost/asio/read_until.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/write.hpp>
#include <utility>

#include "examples/webserver/Pages.h"
#include "examples/webserver/RequestContext.h"
#include "metrics/Instrument.h"

namespace WebServer {

namespace asio = boost::asio;
namespace http = boost::beast::http;
using boost::system::error_code;

namespace {

constexpr std::size_t kMaxRequest = 8192;

using Request = http::request<http::empty_body>;
using Answer = http::response<http::string_body>;

// None when it is not one whole request without a body.
std::optional<Request> Parse(std::string_view text) {
    METRICS_SCOPE("parse");
    http::request_parser<http::empty_body> parser;
    error_code error;
    parser.put(asio::buffer(text.data(), text.size()), error);
    if (error || !parser.is_done()) return std::nullopt;
    return parser.release();
}

std::string_view View(boost::beast::string_view text) {
    return {text.data(), text.size()};
}

Page Route(const std::optional<Request>& request) {
    METRICS_SCOPE("route");
    if (!request) return ErrorPage(400);
    if (request->method() != http::verb::get && request->method() != http::verb::head) return ErrorPage(405);
    return FindPage(View(request->target()));
}

Answer Render(const Page& page, const std::optional<Request>& request) {
    METRICS_SCOPE("render");
    const std::string_view target = request ? View(request->target()) : std::string_view();
    Answer answer(http::status(page.status), request ? request->version() : 11);
    answer.set(http::field::content_type, "text/html; charset=utf-8");
    answer.keep_alive(request && request->keep_alive());
    answer.body() = page.render(target.substr(std::min(target.find('?'), target.size())));
    answer.prepare_payload();
    if (request && request->method() == http::verb::head) answer.body().clear();  // its length is said
    return answer;
}

}  // namespace

Connection::Connection(asio::ip::tcp::socket socket, std::atomic<std::uint64_t>& answered)
    : socket_(std::move(socket)), answered_(answered) {}

void Connection::Start() {
    error_code ignored;  // the client has left, which reading tells
    socket_.set_option(asio::ip::tcp::no_delay(true), ignored);
    socket_.non_blocking(true, ignored);
    Read();
}

void Connection::Read() {
    asio::async_read_until(socket_, asio::dynamic_buffer(input_, kMaxRequest), "\r\n\r\n",
                           [self = shared_from_this()](error_code error, std::size_t length) {
                               // What is longer is answered too: as no request.
                               const bool tooLong = error == asio::error::not_found;
                               if (error && !tooLong) return;
                               self->length_ = tooLong ? self->input_.size() : length;
                               self->OnRequest();
                           });
}

void Connection::OnRequest() {
    const error_code error = AnswerRequest(std::string_view(input_).substr(0, length_));
    answered_.fetch_add(1, std::memory_order_relaxed);
    if (!error) return Next();
    if (error == asio::error::would_block) SendRest();
}

// The request as it is measured: a context, and in it a scope for each step. Nothing in here waits for the
// client.
error_code Connection::AnswerRequest(std::string_view text) {
    [[maybe_unused]] const RequestContext context(text.substr(0, text.find("\r\n")));
    const std::optional<Request> request = Parse(text);
    const Page page = Route(request);
    answer_ = Render(page, request);
    const error_code error = Send();
    METRICS_VALUE("status", page.status);
    return error;
}

// Hands the system what it takes at once: nearly always everything. error::would_block when some is left.
error_code Connection::Send() {
    METRICS_SCOPE("send");
    error_code error;
    serializer_.emplace(answer_);
    http::write(socket_, *serializer_, error);
    return error;
}

void Connection::SendRest() {
    http::async_write(socket_, *serializer_, [self = shared_from_this()](error_code error, std::size_t) {
        if (!error) self->Next();
    });
}

void Connection::Next() {
    input_.erase(0, length_);
    if (answer_.keep_alive()) return Read();
    error_code ignored;
    socket_.shutdown(asio::ip::tcp::socket::shutdown_send, ignored);
}

}  // namespace WebServer
