// A bus on which only the store answers.
#pragma once

#include <string>
#include <vector>

#include "tarvex/dp_client.h"

namespace agent {

class FakeBus : public tarvex::DpClient {
 public:
  int SendRequest(const std::string& type, int, const char* data, size_t length,
                  std::string* answer, int) override {
    requests.push_back(type + " " + std::string(data, length));
    if (reply.empty()) {
      return 0;
    }
    *answer = reply;
    return 1;
  }
  int ListenMessage(const std::string&, int) override { return 0; }
  int RemoveListenMessage(const std::string&) override { return 0; }

  std::string reply;  // empty: nobody answers
  std::vector<std::string> requests;
};

}  // namespace agent
