#include "console/link/tcp_proxy.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <optional>
#include <set>
#include <thread>
#include <utility>

#include <boost/asio.hpp>

namespace console {
namespace {

using boost::asio::ip::tcp;
using Clock = std::chrono::steady_clock;

tcp::endpoint Loopback(int port) {
  return {boost::asio::ip::address_v4::loopback(), static_cast<unsigned short>(port)};
}

}  // namespace

class TcpProxy::Relay {
 public:
  Relay(int target_port, int port)
      : target_port_(target_port), acceptor_(context_, Loopback(port)), thread_([this] {
          Accept();
          context_.run();
        }) {}

  ~Relay() {
    context_.stop();
    thread_.join();
  }

  int port() const { return acceptor_.local_endpoint().port(); }

  void RefuseNew(bool refuse) { refuses_ = refuse; }

  void Freeze(bool is_frozen) {
    boost::asio::post(context_, [this, is_frozen] {
      is_frozen_ = is_frozen;
      // A way that waits looks again.
      for (const SessionPtr& session : std::set<SessionPtr>(sessions_)) {
        session->up.timer.cancel();
        session->down.timer.cancel();
      }
    });
  }

  void Limp(std::chrono::milliseconds delay, std::size_t bytes_per_second) {
    boost::asio::post(context_, [this, delay, bytes_per_second] {
      delay_ = delay;
      bytes_per_second_ = bytes_per_second;
    });
  }

  void Cut() {
    boost::asio::post(context_, [this] { ResetAll(); });
  }

  void CutAfter(std::size_t bytes) {
    boost::asio::post(context_, [this, bytes] { cut_in_ = bytes; });
  }

  int cuts() const { return cuts_; }

  int connections() const { return connections_; }

 private:
  /// What is on its way in one direction.
  struct Way {
    explicit Way(const boost::asio::any_io_executor& executor) : timer(executor) {}

    std::array<char, 16384> buffer{};
    boost::asio::steady_timer timer;
  };

  /// Two sockets, and what is on its way between them.
  struct Session {
    explicit Session(tcp::socket accepted)
        : client(std::move(accepted)),
          server(client.get_executor()),
          up(client.get_executor()),
          down(client.get_executor()) {}

    void Reset() {
      boost::system::error_code ignored;
      for (tcp::socket* socket : {&client, &server}) {
        socket->set_option(boost::asio::socket_base::linger(true, 0), ignored);
        socket->close(ignored);
      }
      StopTimers();
    }

    void Close() {
      boost::system::error_code ignored;
      client.close(ignored);
      server.close(ignored);
      StopTimers();
    }

    void StopTimers() {
      is_over = true;
      up.timer.cancel();
      down.timer.cancel();
    }

    tcp::socket client;
    tcp::socket server;
    Way up;
    Way down;
    bool is_over = false;
  };
  using SessionPtr = std::shared_ptr<Session>;

  /// One direction of a session; the session is kept for as long as something is awaited.
  struct Flow {
    SessionPtr session;
    tcp::socket* from;
    tcp::socket* to;
    Way* way;
  };

  void Accept() {
    acceptor_.async_accept([this](boost::system::error_code error, tcp::socket accepted) {
      if (!error && !refuses_) {
        Open(std::make_shared<Session>(std::move(accepted)));
      }
      Accept();
    });
  }

  void Open(const SessionPtr& session) {
    session->server.async_connect(
        Loopback(target_port_), [this, session](boost::system::error_code error) {
          if (error || refuses_) {
            session->Reset();
            return;
          }
          session->client.set_option(tcp::no_delay(true), error);
          session->server.set_option(tcp::no_delay(true), error);
          sessions_.insert(session);
          connections_ = static_cast<int>(sessions_.size());
          Read({session, &session->client, &session->server, &session->up});
          Read({session, &session->server, &session->client, &session->down});
        });
  }

  void Read(const Flow& flow) {
    flow.from->async_read_some(boost::asio::buffer(flow.way->buffer),
                               [this, flow](boost::system::error_code error, std::size_t length) {
                                 if (error) {
                                   End(flow.session);
                                 } else {
                                   Hold(flow, length, Clock::now() + TimeFor(length));
                                 }
                               });
  }

  Clock::duration TimeFor(std::size_t length) const {
    if (bytes_per_second_ == 0) {
      return delay_;
    }
    return delay_ + std::chrono::microseconds(length * 1000000 / bytes_per_second_);
  }

  /// Passes on what was read when its time has come and nothing is frozen.
  void Hold(const Flow& flow, std::size_t length, Clock::time_point until) {
    if (flow.session->is_over) {
      return;
    }
    if (!is_frozen_ && Clock::now() >= until) {
      Write(flow, length);
      return;
    }
    flow.way->timer.expires_at(is_frozen_ ? Clock::time_point::max() : until);
    flow.way->timer.async_wait(
        [this, flow, length, until](boost::system::error_code) { Hold(flow, length, until); });
  }

  void Write(const Flow& flow, std::size_t length) {
    const bool is_cut = cut_in_ && length >= *cut_in_;
    const std::size_t passed = is_cut ? *cut_in_ : length;
    boost::asio::async_write(
        *flow.to, boost::asio::buffer(flow.way->buffer, passed),
        [this, flow, is_cut](boost::system::error_code error, std::size_t /*length*/) {
          if (is_cut) {
            ResetAll();
            ++cuts_;
          } else if (error) {
            End(flow.session);
          } else {
            Read(flow);
          }
        });
    if (is_cut) {
      cut_in_.reset();
    } else if (cut_in_) {
      *cut_in_ -= length;
    }
  }

  void End(const SessionPtr& session) {
    session->Close();
    sessions_.erase(session);
    connections_ = static_cast<int>(sessions_.size());
  }

  void ResetAll() {
    for (const SessionPtr& session : std::exchange(sessions_, {})) {
      session->Reset();
    }
    connections_ = 0;
  }

  const int target_port_;
  boost::asio::io_context context_;
  tcp::acceptor acceptor_;
  std::set<SessionPtr> sessions_;
  std::optional<std::size_t> cut_in_;
  bool is_frozen_ = false;
  std::chrono::milliseconds delay_{0};
  std::size_t bytes_per_second_ = 0;
  std::atomic<bool> refuses_{false};
  std::atomic<int> cuts_{0};
  std::atomic<int> connections_{0};
  std::thread thread_;
};

TcpProxy::TcpProxy(int target_port, int port)
    : relay_(std::make_unique<Relay>(target_port, port)) {}

TcpProxy::~TcpProxy() = default;

int TcpProxy::port() const { return relay_->port(); }

void TcpProxy::RefuseNew(bool refuse) { relay_->RefuseNew(refuse); }

void TcpProxy::Freeze(bool is_frozen) { relay_->Freeze(is_frozen); }

void TcpProxy::Limp(std::chrono::milliseconds delay, std::size_t bytes_per_second) {
  relay_->Limp(delay, bytes_per_second);
}

void TcpProxy::Cut() { relay_->Cut(); }

void TcpProxy::CutAfter(std::size_t bytes) { relay_->CutAfter(bytes); }

int TcpProxy::cuts() const { return relay_->cuts(); }

int TcpProxy::connections() const { return relay_->connections(); }

}  // namespace console
