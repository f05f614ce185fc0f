// A camera whose services answer anything, to a good request of the cloud and whatever follows
// from it. The input: the request's name, or what else asks a service, and a line break; then the
// answers in turn, each up to a byte 30. An answer begins with what the send says: '1' answered,
// '0' failed, '-' failed in another way, 'x' and 'y' thrown; what follows is the reply. The last
// answer stands for all after it.
#include <numeric>
#include <stdexcept>
#include <utility>
#include <vector>

#include "fuzz_host.h"
#include "support/good_requests.h"

namespace {

constexpr char kEndOfAnswer = 30;

fake::BusAnswer AnswerOf(const std::string& text) {
  if (text.empty()) {
    return {0, ""};
  }
  switch (text.front()) {
    case 'x':
      throw std::runtime_error("thrown by the bus");
    case 'y':
      throw 1;  // no std::exception either
    case '0':
      return {0, text.substr(1)};
    case '-':
      return {-1, text.substr(1)};
    default:
      return {1, text.substr(1)};
  }
}

/// What the host and the cloud do that asks a service, beside the requests.
void DoSomethingElse(std::size_t number, fuzz::Host& host) {
  switch (number) {
    case 0:
      host.Subscribe("offline_record");
      break;
    case 1:
      host.Acknowledge(16);
      break;
    case 2:
      host.Deliver("BUS_SRV_IVS_RESULT", fuzz::RecordOf("A"));
      host.Acknowledge(11);
      break;
    case 3:
      host.Request("white_list_operator",
                   fuzz::AnyValue(R"({"type":"white_list_operator",)"
                                  R"("body":{"operator_type":"delete","plate":"A"}})"),
                   "1.0");
      break;
    case 4:
      host.Request("check_offline_record",
                   fuzz::AnyValue(R"({"type":"check_offline_record","body":{"enable":"clear"}})"),
                   "1.0");
      break;
    default:
      host.Request("set_cloud_ctrl", fuzz::AnyValue(R"({"body":{"type":32}})"), "1.0");
      break;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string input(reinterpret_cast<const char*>(data), size);
  const std::string name = fuzz::TakeUpTo('\n', &input);
  const std::size_t any = std::accumulate(name.begin(), name.end(), std::size_t{0});
  fuzz::Host host([&input](const fake::BusRequest&) {
    const std::string answer = fuzz::TakeUpTo(kEndOfAnswer, &input);
    if (input.empty()) {
      input = answer;
    }
    return AnswerOf(answer);
  });
  int acknowledged = 0;
  host.on_publication = [&](unsigned long long tag) {
    if (tag == 16 && ++acknowledged < 8) {  // the next one is five seconds later
      host.Acknowledge(tag);
    }
  };
  const GoodRequest* wanted = &kGoodRequests[any % std::size(kGoodRequests)];
  bool is_request = any % 2 == 0;
  for (const GoodRequest& request : kGoodRequests) {
    if (name == request.name) {
      wanted = &request;
      is_request = true;
    }
  }
  if (is_request) {
    host.Request(wanted->name, fuzz::AnyValue(wanted->payload), "1.0");
  } else {
    DoSomethingElse(any / 2 % 6, host);
  }
  host.Tick(60000);
  host.AcknowledgeAll();
  return 0;
}
