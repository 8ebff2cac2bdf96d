#pragma once

#include <atomic>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/serializer.hpp>
#include <boost/beast/http/string_body.hpp>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace WebServer {

/// One client: its requests, one after the other. It waits for one operation at a time, so that its handlers
/// never meet, and lives as long as it waits.
class Connection : public std::enable_shared_from_this<Connection> {
  public:
    /// Counts the requests it answers in `answered`.
    Connection(boost::asio::ip::tcp::socket socket, std::atomic<std::uint64_t>& answered);

    void Start();

  private:
    using Answer = boost::beast::http::response<boost::beast::http::string_body>;
    using Serializer = boost::beast::http::response_serializer<boost::beast::http::string_body>;

    void Read();
    void OnRequest();
    boost::system::error_code AnswerRequest(std::string_view text);
    boost::system::error_code Send();
    void SendRest();
    void Next();

    boost::asio::ip::tcp::socket socket_;
    std::atomic<std::uint64_t>& answered_;
    std::string input_;       // what came and is not answered yet
    std::size_t length_ = 0;  // how much of it is the request that is being answered
    Answer answer_;
    std::optional<Serializer> serializer_;  // of answer_: what of it is still to be sent
};

}  // namespace WebServer
