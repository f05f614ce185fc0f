// The fields of MQTT packets, for brokers that tests play.
#pragma once

#include <cstddef>
#include <string>
#include <utility>

/// 16 bits.
inline std::string MqttNumber(int number) {
  return {static_cast<char>(number / 256), static_cast<char>(number % 256)};
}

inline std::string MqttString(const std::string& text) {
  return MqttNumber(static_cast<int>(text.size())) + text;
}

/// Of a packet, or of its properties: as many bytes as it takes.
inline std::string MqttLength(std::size_t length) {
  std::string bytes;
  do {
    const auto digit = static_cast<unsigned char>(length % 128);
    length /= 128;
    bytes += static_cast<char>(length > 0 ? digit | 0x80U : digit);
  } while (length > 0);
  return bytes;
}

/// Takes fields off the front of a packet; beyond its end there are zeros.
class MqttFields {
 public:
  explicit MqttFields(std::string packet) : packet_(std::move(packet)) {}

  int Byte() {
    return position_ < packet_.size() ? static_cast<unsigned char>(packet_[position_++]) : 0;
  }
  int Number() {
    const int high = Byte();
    return high * 256 + Byte();
  }
  std::string Bytes(std::size_t count) {
    const std::string bytes = position_ < packet_.size() ? packet_.substr(position_, count) : "";
    position_ += bytes.size();
    return bytes;
  }
  std::string String() { return Bytes(static_cast<std::size_t>(Number())); }
  std::string Properties() {
    std::size_t length = 0;
    for (unsigned shift = 0; shift < 28; shift += 7) {
      const auto digit = static_cast<unsigned>(Byte());
      length += static_cast<std::size_t>(digit & 0x7FU) << shift;
      if ((digit & 0x80U) == 0) {
        break;
      }
    }
    return Bytes(length);
  }
  std::string Rest() { return Bytes(packet_.size()); }
  bool IsAtEnd() const { return position_ >= packet_.size(); }

 private:
  std::string packet_;
  std::size_t position_ = 0;
};
