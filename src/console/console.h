// The desk in a browser: puts together what is heard and serves it to the page.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include <json/value.h>
#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>

#include "console/desk/broker_client.h"
#include "console/desk/bus_client.h"
#include "console/desk/desk.h"
#include "console/http/http_server.h"
#include "console/http/request_check.h"
#include "console/link/tcp_proxy.h"
#include "console/metrics.h"
#include "console/options.h"
#include "console/passports/passport_book.h"

namespace console {

/// Everything happens on the context's thread.
class Console {
 public:
  /// Throws std::exception, with one line that says why, when it cannot begin.
  Console(boost::asio::io_context& context, const ConsoleOptions& options);
  ~Console();
  Console(const Console&) = delete;
  Console& operator=(const Console&) = delete;

  /// Such as "http://127.0.0.1:8090/".
  std::string Address() const;

  /// Where agents find the broker; 0 where the console gives no link.
  int link_port() const { return link_ ? link_->port() : 0; }

 private:
  using Reply = HttpServer::Reply;

  void ListenToCamera(const std::string& sn, const std::string& prefix);
  void OnTrace(const std::string& text);
  void OnStatus(const std::string& sn, const std::string& text);
  void OnBacklog(const std::string& sn);
  void OnStep(const Passport& passport, const std::string& step);
  std::string AnswerPassport(const std::string& question) const;
  void AskCamera(
      const std::string& sn, const Json::Value& command, std::chrono::milliseconds timeout,
      std::function<void(const Json::Value& answer, const std::string& error)> on_answer);

  void EverySecond();
  void Flush();
  std::string Snapshot() const;

  void OnRequest(const HttpRequest& request, const Reply& reply);
  HttpResponse Get(const std::string& path) const;
  HttpResponse Page() const;
  bool AskedOfCamera(const HttpRequest& request, const Reply& reply);
  void Post(const HttpRequest& request, const Reply& reply);
  HttpResponse SendRequest(const std::string& sn, const std::string& name, const std::string& text);
  void ChangeWorld(const std::string& sn, const std::string& text, const Reply& reply);
  HttpResponse RestartAgent(const std::string& sn);
  HttpResponse ChangeLink(const std::string& text);

  const ConsoleOptions options_;
  const std::string token_ = MakeToken();
  Desk desk_;
  const std::string contract_;
  Metrics metrics_;
  PassportBook book_;
  LinkState link_state_;
  std::uint64_t last_request_ = 0;
  const std::string run_;  ///< what the correlation data of this run's requests begins with
  std::unique_ptr<TcpProxy> link_;
  std::unique_ptr<BusClient> bus_;  ///< null without a bus
  std::unique_ptr<BrokerClient> broker_;
  std::unique_ptr<HttpServer> server_;
  boost::asio::steady_timer second_;
  boost::asio::steady_timer flush_;
};

}  // namespace console
