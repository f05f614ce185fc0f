// The way of a plate result with no work done on it: what its waiting, reading and sending alone
// costs, as the floor of what the agent and its peers cost.
//
// Takes records from the bus, publishes a text of a result's size for each, and asks for the
// confirmation of each acknowledged one, waiting for the answer as the plug-in does. Reads and
// sends as much at once as there is. One thread.
#include <poll.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <exception>
#include <string>
#include <string_view>

#include <CLI/CLI.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/write.hpp>

namespace {

using boost::asio::ip::tcp;

constexpr std::size_t kRecordSize = 552;
constexpr std::size_t kPlateIdOffset = 80;
constexpr std::size_t kMostWaiting = 64;
// Of a plate result's JSON text.
constexpr std::size_t kTextSize = 1100;
constexpr std::size_t kAcknowledgementSize = 4;
constexpr std::string_view kLineEnd = "\r\n";

/// A connection to a program on this machine, for bytes.
class Connection {
 public:
  /// @param address "HOST:PORT"
  Connection(boost::asio::io_context& context, const std::string& address) : socket_(context) {
    const std::size_t colon = address.rfind(':');
    socket_.connect({boost::asio::ip::make_address(address.substr(0, colon)),
                     static_cast<std::uint16_t>(std::stoi(address.substr(colon + 1)))});
    socket_.set_option(tcp::no_delay(true));
  }
  int descriptor() { return socket_.native_handle(); }
  void Send(const std::string& bytes) { boost::asio::write(socket_, boost::asio::buffer(bytes)); }
  /// Waits for bytes.
  std::string_view Receive() { return {room_.data(), socket_.receive(boost::asio::buffer(room_))}; }

 private:
  tcp::socket socket_;
  std::array<char, 65536> room_{};
};

class Bus {
 public:
  Bus(boost::asio::io_context& context, const std::string& address)
      : connection_(context, address) {
    connection_.Send("CONNECT {\"verbose\":false,\"pedantic\":false}\r\nSUB _INBOX.calls 1\r\n");
  }
  int descriptor() { return connection_.descriptor(); }

  void Subscribe() {
    connection_.Send("SUB BUS_SRV_IVS_RESULT 2\r\nPING\r\n");
    while (!is_subscribed_) {
      Read();
    }
  }

  /// Waits for bytes, and takes what is complete.
  void Read() {
    received_ += connection_.Receive();
    std::size_t at = 0;
    for (std::size_t end = 0; (end = received_.find(kLineEnd, at)) != std::string::npos;) {
      const std::string_view line(&received_[at], end - at);
      std::size_t next = end + kLineEnd.size();
      if (line.substr(0, 4) == "MSG ") {
        const std::size_t size = std::stoul(std::string(line.substr(line.rfind(' ') + 1)));
        if (received_.size() < next + size + kLineEnd.size()) {
          break;
        }
        Take({&received_[next], size});
        next += size + kLineEnd.size();
      } else if (line == "PING") {
        connection_.Send("PONG\r\n");
      } else if (line == "PONG") {
        is_subscribed_ = true;
      }
      at = next;
    }
    received_.erase(0, at);
  }

  void Confirm(std::uint32_t plate_id) {
    const std::string request = R"({"type":"STP_SET_MQTT_OFFLINE_STATUS","body":{"plate_id":)" +
                                std::to_string(plate_id) + R"(,"push_status":0}})";
    connection_.Send("PUB BUS_GET_IVS_INFO _INBOX.calls " + std::to_string(request.size()) +
                     "\r\n" + request + "\r\n");
    is_answered_ = false;
    while (!is_answered_) {
      Read();
    }
  }

  std::deque<std::uint32_t> waiting;  ///< plate ids

 private:
  void Take(std::string_view message) {
    if (message.size() != kRecordSize) {
      is_answered_ = true;
    } else if (waiting.size() < kMostWaiting) {
      std::memcpy(&waiting.emplace_back(), &message[kPlateIdOffset], sizeof(std::uint32_t));
    }
  }

  Connection connection_;
  std::string received_;
  bool is_subscribed_ = false;
  bool is_answered_ = false;
};

/// A text of MQTT, with its length before it.
std::string MqttText(const std::string& text) {
  return {std::string{static_cast<char>(text.size() >> 8U), static_cast<char>(text.size())} + text};
}

/// A packet of MQTT, of at most 16,383 bytes.
std::string MqttPacket(unsigned char kind, const std::string& body) {
  std::string head{static_cast<char>(kind), static_cast<char>((body.size() & 0x7FU) | 0x80U),
                   static_cast<char>(body.size() >> 7U)};
  return head + body;
}

void Run(const std::string& bus_address, const std::string& broker_address,
         const std::string& topic, std::size_t most_in_flight) {
  boost::asio::io_context context;
  Connection broker(context, broker_address);
  broker.Send(MqttPacket(0x10, MqttText("MQTT") + std::string{4, 2, 0, 0} + MqttText("calls")));
  broker.Receive();
  Bus bus(context, bus_address);
  bus.Subscribe();
  puts("ready");
  fflush(stdout);
  std::deque<std::uint32_t> in_flight;
  std::uint16_t packet_id = 0;
  std::array<pollfd, 2> wait = {{{bus.descriptor(), POLLIN, 0}, {broker.descriptor(), POLLIN, 0}}};
  for (;;) {
    poll(wait.data(), wait.size(), -1);
    if (wait[0].revents != 0) {
      bus.Read();
    }
    if (wait[1].revents != 0) {
      for (std::size_t left = broker.Receive().size(); left >= kAcknowledgementSize;
           left -= kAcknowledgementSize) {
        bus.Confirm(in_flight.front());
        in_flight.pop_front();
      }
    }
    std::string packets;
    for (; !bus.waiting.empty() && in_flight.size() < most_in_flight; bus.waiting.pop_front()) {
      in_flight.push_back(bus.waiting.front());
      std::string text = R"({"payload":{"plateid":)" + std::to_string(bus.waiting.front()) + "}}";
      text.resize(kTextSize, ' ');
      packet_id = packet_id == UINT16_MAX ? 1 : static_cast<std::uint16_t>(packet_id + 1);
      packets += MqttPacket(
          0x32, MqttText(topic) +
                    std::string{static_cast<char>(packet_id >> 8U), static_cast<char>(packet_id)} +
                    text);
    }
    if (!packets.empty()) {
      broker.Send(packets);
    }
  }
}

}  // namespace

int main(int argc, char** argv) try {
  CLI::App app("Does what is asked of the system for each plate result, and nothing else");
  std::string broker;
  std::string root;
  std::string pictures;
  std::size_t most_in_flight = 1;
  app.add_option("--broker", broker, "HOST:PORT")->required();
  app.add_option("--root", root, "What every topic begins with")->required();
  app.add_option("--picture-dir", pictures, "Not used");
  app.add_option("--results-in-flight", most_in_flight);
  CLI11_PARSE(app, argc, argv);
  const char* const bus = std::getenv("TARVEX_BUS_ADDRESS");
  const char* const serial_number = std::getenv("TARVEX_SERIAL_NUMBER");
  if (bus == nullptr || serial_number == nullptr) {
    fputs("system_calls: TARVEX_BUS_ADDRESS or TARVEX_SERIAL_NUMBER is not set\n", stderr);
    return 2;
  }
  Run(bus, broker, root + "/" + serial_number + "/message/ivs_result", most_in_flight);
} catch (const std::exception& error) {
  fprintf(stderr, "system_calls: %s\n", error.what());
  return 1;
}
