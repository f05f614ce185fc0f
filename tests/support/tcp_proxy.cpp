#include "support/tcp_proxy.h"

#include <array>
#include <optional>
#include <set>
#include <thread>

#include <boost/asio.hpp>

using boost::asio::ip::tcp;

namespace {

tcp::endpoint Loopback(int port) {
  return {boost::asio::ip::address_v4::loopback(), static_cast<unsigned short>(port)};
}

}  // namespace

class TcpProxy::Relay {
 public:
  explicit Relay(int target_port)
      : target_port_(target_port), acceptor_(context_, Loopback(0)), thread_([this] {
          Accept();
          context_.run();
        }) {}

  ~Relay() {
    context_.stop();
    thread_.join();
  }

  int port() const { return acceptor_.local_endpoint().port(); }

  void RefuseNew(bool refuse) { refuses_ = refuse; }

  void CutAfter(std::size_t bytes) {
    boost::asio::post(context_, [this, bytes] { cut_in_ = bytes; });
  }

  int cuts() const { return cuts_; }

 private:
  /// Two sockets, and what is on its way between them.
  struct Session : std::enable_shared_from_this<Session> {
    explicit Session(tcp::socket accepted)
        : client(std::move(accepted)), server(client.get_executor()) {}

    void Reset() {
      boost::system::error_code ignored;
      for (tcp::socket* socket : {&client, &server}) {
        socket->set_option(boost::asio::socket_base::linger(true, 0), ignored);
        socket->close(ignored);
      }
    }

    tcp::socket client;
    tcp::socket server;
    std::array<char, 16384> up;
    std::array<char, 16384> down;
  };
  using SessionPtr = std::shared_ptr<Session>;

  void Accept() {
    acceptor_.async_accept([this](boost::system::error_code error, tcp::socket accepted) {
      if (!error && !refuses_) {
        Open(std::make_shared<Session>(std::move(accepted)));
      }
      Accept();
    });
  }

  void Open(const SessionPtr& session) {
    session->server.async_connect(Loopback(target_port_),
                                  [this, session](boost::system::error_code error) {
                                    if (error) {
                                      session->Reset();
                                      return;
                                    }
                                    session->client.set_option(tcp::no_delay(true));
                                    session->server.set_option(tcp::no_delay(true));
                                    sessions_.insert(session);
                                    Pump(session, session->client, session->server, session->up);
                                    Pump(session, session->server, session->client, session->down);
                                  });
  }

  void Pump(const SessionPtr& session, tcp::socket& from, tcp::socket& to,
            std::array<char, 16384>& buffer) {
    from.async_read_some(boost::asio::buffer(buffer), [this, session, &from, &to, &buffer](
                                                          boost::system::error_code error,
                                                          std::size_t length) {
      if (error) {
        Close(session);
        return;
      }
      const bool is_cut = cut_in_ && length >= *cut_in_;
      const std::size_t passed = is_cut ? *cut_in_ : length;
      boost::asio::async_write(to, boost::asio::buffer(buffer, passed),
                               [this, session, &from, &to, &buffer, is_cut](
                                   boost::system::error_code write_error, std::size_t /*length*/) {
                                 if (is_cut) {
                                   CutAll();
                                 } else if (write_error) {
                                   Close(session);
                                 } else {
                                   Pump(session, from, to, buffer);
                                 }
                               });
      if (is_cut) {
        cut_in_.reset();
      } else if (cut_in_) {
        *cut_in_ -= length;
      }
    });
  }

  void Close(const SessionPtr& session) {
    boost::system::error_code ignored;
    session->client.close(ignored);
    session->server.close(ignored);
    sessions_.erase(session);
  }

  void CutAll() {
    for (const SessionPtr& session : sessions_) {
      session->Reset();
    }
    sessions_.clear();
    ++cuts_;
  }

  const int target_port_;
  boost::asio::io_context context_;
  tcp::acceptor acceptor_;
  std::set<SessionPtr> sessions_;
  std::optional<std::size_t> cut_in_;
  std::atomic<bool> refuses_{false};
  std::atomic<int> cuts_{0};
  std::thread thread_;
};

TcpProxy::TcpProxy(int target_port) : relay_(std::make_unique<Relay>(target_port)) {}

TcpProxy::~TcpProxy() = default;

int TcpProxy::port() const { return relay_->port(); }

void TcpProxy::RefuseNew(bool refuse) { relay_->RefuseNew(refuse); }

void TcpProxy::CutAfter(std::size_t bytes) { relay_->CutAfter(bytes); }

int TcpProxy::cuts() const { return relay_->cuts(); }
