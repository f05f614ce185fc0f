#include "broker.h"

#include <array>
#include <utility>
#include <vector>

#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>

#include "support/mqtt_bytes.h"

namespace hostcheck {
namespace {

using boost::asio::ip::tcp;

constexpr int kConnect = 1;
constexpr int kPublish = 3;
constexpr int kPubrel = 6;
constexpr int kSubscribe = 8;
constexpr int kUnsubscribe = 10;
constexpr int kPingreq = 12;
constexpr int kDisconnect = 14;
constexpr int kMqtt5 = 5;
constexpr int kNotAuthorized = 0x87;

}  // namespace

/// One connection.
class Broker::Session : public std::enable_shared_from_this<Session> {
 public:
  Session(Broker* broker, int number, tcp::socket socket)
      : broker_(broker), number_(number), socket_(std::move(socket)) {}

  void ReadNext() {
    boost::asio::async_read(socket_, boost::asio::buffer(head_, 2),
                            [self = shared_from_this()](const auto& error, std::size_t) {
                              if (!error) {
                                self->length_ = self->head_[1] & 0x7FU;
                                self->ReadLength(7, (self->head_[1] & 0x80U) != 0);
                              } else {
                                self->End();
                              }
                            });
  }

  void Send(int first_byte, const std::string& body) {
    const std::string packet = static_cast<char>(first_byte) + MqttLength(body.size()) + body;
    boost::system::error_code error;
    boost::asio::write(socket_, boost::asio::buffer(packet), error);
  }

  void Answer(const Message& message, int reason) {
    if (message.qos > 0) {
      const std::string body = MqttNumber(message.packet_id);
      Send(message.qos == 1 ? 0x40 : 0x50,
           reason == 0 ? body : body + static_cast<char>(reason) + std::string(1, '\0'));
    }
  }

  void Publish(const std::string& topic, const std::string& payload) {
    Send(0x30, MqttString(topic) + NoProperties() + payload);
  }

  void Reset() {
    boost::system::error_code ignored;
    socket_.set_option(boost::asio::socket_base::linger(true, 0), ignored);
    socket_.close(ignored);
  }

  int version() const { return version_; }
  bool is_subscribed() const { return is_subscribed_; }

 private:
  /// The length of a packet has up to four bytes.
  void ReadLength(unsigned shift, bool has_more) {
    if (!has_more || shift > 21) {
      ReadBody();
      return;
    }
    boost::asio::async_read(socket_, boost::asio::buffer(&head_[1], 1),
                            [self = shared_from_this(), shift](const auto& error, std::size_t) {
                              if (!error) {
                                self->length_ += static_cast<std::size_t>(self->head_[1] & 0x7FU)
                                                 << shift;
                                self->ReadLength(shift + 7, (self->head_[1] & 0x80U) != 0);
                              } else {
                                self->End();
                              }
                            });
  }

  void ReadBody() {
    body_.resize(length_);
    boost::asio::async_read(socket_, boost::asio::buffer(body_),
                            [self = shared_from_this()](const auto& error, std::size_t) {
                              if (!error) {
                                self->Handle(self->head_[0] >> 4, self->head_[0] & 0xF,
                                             MqttFields(self->body_));
                                self->ReadNext();
                              } else {
                                self->End();
                              }
                            });
  }

  std::string NoProperties() const { return version_ == kMqtt5 ? std::string(1, '\0') : ""; }

  void Handle(int type, int flags, MqttFields fields) {
    switch (type) {
      case kConnect:
        fields.String();
        version_ = fields.Byte();
        Send(0x20, std::string(2, '\0') + NoProperties());
        break;
      case kPublish:
        HandlePublish((flags >> 1) & 3, std::move(fields));
        break;
      case kPubrel:
        Send(0x70, fields.Bytes(2));
        break;
      case kSubscribe:
        HandleSubscribe(std::move(fields));
        break;
      case kUnsubscribe:
        Send(0xB0, fields.Bytes(2) + (version_ == kMqtt5 ? std::string(2, '\0') : ""));
        break;
      case kPingreq:
        Send(0xD0, "");
        break;
      case kDisconnect:
        End();
        break;
      default:
        break;
    }
  }

  void HandlePublish(int qos, MqttFields fields) {
    Message message;
    message.session = shared_from_this();
    message.connection = number_;
    message.qos = qos;
    message.topic = fields.String();
    message.packet_id = qos > 0 ? fields.Number() : 0;
    if (version_ == kMqtt5) {
      fields.Properties();
    }
    message.payload = fields.Rest();
    broker_->on_message_(message);
  }

  void HandleSubscribe(MqttFields fields) {
    std::string answer = fields.Bytes(2) + NoProperties();
    if (version_ == kMqtt5) {
      fields.Properties();
    }
    while (!fields.IsAtEnd()) {
      fields.String();
      answer += static_cast<char>(fields.Byte() & 3);
    }
    Send(0x90, answer);
    is_subscribed_ = true;
  }

  void End() {
    Reset();
    broker_->sessions_.erase(shared_from_this());
  }

  Broker* const broker_;
  const int number_;
  tcp::socket socket_;
  std::array<unsigned char, 2> head_{};
  std::size_t length_ = 0;
  std::string body_;
  int version_ = 0;
  bool is_subscribed_ = false;
};

Broker::Broker(boost::asio::io_context* context, const std::string& address,
               std::function<void(const Message&)> on_message)
    : acceptor_(*context, tcp::endpoint(boost::asio::ip::make_address(address), 0)),
      on_message_(std::move(on_message)) {
  Accept();
}

Broker::~Broker() { Cut(); }

void Broker::Accept() {
  acceptor_.async_accept([this](const boost::system::error_code& error, tcp::socket socket) {
    if (error) {
      return;
    }
    const auto session = std::make_shared<Session>(this, connections_ + 1, std::move(socket));
    if (does_let_in_) {
      ++connections_;
      sessions_.insert(session);
      session->ReadNext();
    } else {
      session->Reset();
    }
    Accept();
  });
}

void Broker::Answer(const Message& message, bool is_refused) {
  if (const auto session = message.session.lock()) {
    session->Answer(message, is_refused ? kNotAuthorized : 0);
  }
}

void Broker::Publish(const std::string& topic, const std::string& payload) {
  for (const auto& session : sessions_) {
    if (session->is_subscribed()) {
      session->Publish(topic, payload);
    }
  }
}

void Broker::Cut() {
  for (const auto& session : std::exchange(sessions_, {})) {
    session->Reset();
  }
}

bool Broker::CanRefuse() const {
  for (const auto& session : sessions_) {
    if (session->version() != kMqtt5) {
      return false;
    }
  }
  return !sessions_.empty();
}

}  // namespace hostcheck
