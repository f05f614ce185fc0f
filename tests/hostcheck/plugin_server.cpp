#include "plugin_server.h"

#include <algorithm>
#include <sstream>
#include <utility>

#include <json/reader.h>
#include <json/writer.h>
#include <boost/asio/read_until.hpp>
#include <boost/asio/write.hpp>

namespace hostcheck {

using boost::asio::ip::tcp;

struct PluginServer::Line {
  explicit Line(tcp::socket connected) : socket(std::move(connected)) {}

  tcp::socket socket;
  std::string received;
};

PluginServer::PluginServer(boost::asio::io_context* context, const std::string& address,
                           std::function<void(const Json::Value&)> on_event)
    : acceptor_(*context, tcp::endpoint(boost::asio::ip::make_address(address), 0)),
      on_event_(std::move(on_event)) {
  Accept();
}

void PluginServer::Accept() {
  acceptor_.async_accept([this](const boost::system::error_code& error, tcp::socket socket) {
    if (error) {
      return;
    }
    lines_.push_back(std::make_shared<Line>(std::move(socket)));
    ReadNext(lines_.back());
    Accept();
  });
}

void PluginServer::ReadNext(const std::shared_ptr<Line>& line) {
  boost::asio::async_read_until(
      line->socket, boost::asio::dynamic_buffer(line->received), '\n',
      [this, line](const boost::system::error_code& error, std::size_t length) {
        if (error) {
          lines_.erase(std::remove(lines_.begin(), lines_.end(), line), lines_.end());
          return;
        }
        std::istringstream text(line->received.substr(0, length));
        line->received.erase(0, length);
        Json::Value event;
        std::string ignored;
        if (Json::parseFromStream(Json::CharReaderBuilder(), text, &event, &ignored) &&
            event.isObject()) {
          on_event_(event);
        }
        ReadNext(line);
      });
}

void PluginServer::Do(const Json::Value& command) {
  Json::StreamWriterBuilder writer;
  writer["indentation"] = "";
  const std::string text = Json::writeString(writer, command) + "\n";
  for (const auto& line : lines_) {
    boost::system::error_code ignored;
    boost::asio::write(line->socket, boost::asio::buffer(text), ignored);
  }
}

}  // namespace hostcheck
