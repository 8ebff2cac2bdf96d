#include "examples/webserver/Server.h"

#include <atomic>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <csignal>
#include <exception>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "examples/webserver/Connection.h"

namespace WebServer {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;

namespace {

class Server {
  public:
    Server(std::uint16_t port, unsigned threads)
        : io_(static_cast<int>(threads)),
          acceptor_(io_, tcp::endpoint(asio::ip::address_v4::loopback(), port)),
          pause_(io_),
          signals_(io_, SIGINT, SIGTERM) {
        signals_.async_wait([this](error_code, int) { io_.stop(); });
        Accept();
    }

    std::uint16_t Port() const { return acceptor_.local_endpoint().port(); }
    std::uint64_t Answered() const { return answered_.load(std::memory_order_relaxed); }

    // A request is measured within one handler, and handlers that began are finished: none is cut in two.
    void Run() {
        while (!io_.stopped()) {
            try {
                io_.run();
            } catch (const std::exception& error) {  // ends one connection, whose handler let go of it
                std::cerr << std::string(error.what()) + "\n";
            }
        }
    }

  private:
    void Accept() {
        acceptor_.async_accept([this](error_code error, tcp::socket socket) {
            if (error) return AcceptLater();
            std::make_shared<Connection>(std::move(socket), answered_)->Start();
            Accept();
        });
    }

    // Out of descriptors, most likely. Trying at once would keep a thread busy with it.
    void AcceptLater() {
        pause_.expires_after(std::chrono::milliseconds(100));
        pause_.async_wait([this](error_code error) {
            if (!error) Accept();
        });
    }

    std::atomic<std::uint64_t> answered_ = 0;
    asio::io_context io_;  // holds the connections, which count in answered_
    tcp::acceptor acceptor_;
    asio::steady_timer pause_;
    asio::signal_set signals_;
};

}  // namespace

std::uint64_t Serve(std::uint16_t port, unsigned threads,
                    const std::function<void(std::uint16_t)>& onListening) {
    Server server(port, threads);
    onListening(server.Port());
    {
        std::vector<std::jthread> others;
        for (unsigned i = 1; i < threads; ++i) others.emplace_back([&server] { server.Run(); });
        server.Run();
    }
    return server.Answered();
}

}  // namespace WebServer
