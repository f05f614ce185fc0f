// The program's end of the line to libhostcheck.so.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <json/value.h>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>

namespace hostcheck {

/// Everything happens on the thread that runs the context.
class PluginServer {
 public:
  /// @param on_event called with each line of a plug-in.
  PluginServer(boost::asio::io_context* context, const std::string& address,
               std::function<void(const Json::Value&)> on_event);
  PluginServer(const PluginServer&) = delete;
  PluginServer& operator=(const PluginServer&) = delete;

  int port() const { return acceptor_.local_endpoint().port(); }

  /// Has the plug-in do something.
  void Do(const Json::Value& command);

  bool IsConnected() const { return !lines_.empty(); }

 private:
  struct Line;
  void Accept();
  void ReadNext(const std::shared_ptr<Line>& line);

  boost::asio::ip::tcp::acceptor acceptor_;
  std::function<void(const Json::Value&)> on_event_;
  std::vector<std::shared_ptr<Line>> lines_;
};

}  // namespace hostcheck
