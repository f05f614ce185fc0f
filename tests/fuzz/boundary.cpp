// All that a host, the cloud and the camera do with the plug-in, in any order and within each
// other. The input: steps, a line each, of a letter and what it takes; the letters are those of
// TakeStep. What happens within a picture or a publication is the next step of the input.
#include <cstdlib>
#include <stdexcept>

#include "fuzz_host.h"
#include "support/good_requests.h"

namespace {

// Steps of one input, a result being one: enough to have more results than may wait.
constexpr int kMostSteps = 40;
// Calls within calls.
constexpr int kDeepest = 3;

/// What a text begins with; 0 where that is no number.
int Number(const std::string& text) { return static_cast<int>(strtol(text.c_str(), nullptr, 10)); }

class Play {
 public:
  explicit Play(std::string input) : input_(std::move(input)), host_(Camera(), Lacking()) {
    host_.on_picture = [this](const std::string& source, const std::string& name) {
      return Picture(source, name);
    };
    host_.on_publication = [this](unsigned long long tag) {
      last_tag_ = tag;
      if (steps_within_ > 0) {
        --steps_within_;
        TakeStep();
      }
    };
  }

  void Run() {
    while (!input_.empty()) {
      TakeStep();
    }
    steps_within_ = 0;
    picture_ = "";
    host_.Tick(10000);
    host_.AcknowledgeAll();
  }

 private:
  /// The first line, if it begins with '!', names what the device lacks by letters.
  fuzz::Host::Missing Lacking() {
    fuzz::Host::Missing missing;
    if (!input_.empty() && input_.front() == '!') {
      const std::string letters = fuzz::TakeUpTo('\n', &input_);
      missing.bus = letters.find('b') != std::string::npos;
      missing.system_database = letters.find('s') != std::string::npos;
      missing.user_database = letters.find('u') != std::string::npos;
      missing.image_function = letters.find('i') != std::string::npos;
    }
    return missing;
  }

  fuzz::Host::Camera Camera() {
    return [this](const fake::BusRequest& request) -> fake::BusAnswer {
      if (failures_ > 0) {
        --failures_;
        throw std::runtime_error("thrown by the bus");
      }
      if (answers_.empty()) {
        return fuzz::GoodCamera(request);
      }
      const std::string answer = answers_.front();
      answers_.pop_front();
      return {answer.empty() ? 0 : 1, answer};
    };
  }

  std::string Picture(const std::string& source, const std::string& name) {
    if (picture_ == "throw") {
      throw std::runtime_error("no room for a picture");
    }
    if (picture_ == "step") {
      TakeStep();
    }
    return picture_.empty() ? source + name : picture_;
  }

  void TakeStep() {
    if (input_.empty() || depth_ >= kDeepest || ++steps_ > kMostSteps) {
      if (steps_ > kMostSteps) {
        input_.clear();
      }
      return;
    }
    std::string rest = fuzz::TakeUpTo('\n', &input_);
    const char letter = rest.empty() ? ' ' : rest.front();
    rest.erase(0, rest.size() > 1 && rest[1] == ' ' ? 2 : 1);
    ++depth_;
    Do(letter, rest);
    --depth_;
  }

  void Do(char letter, std::string& rest) {
    switch (letter) {
      case 'r': {  // a request: name, version and payload
        const std::string name = fuzz::TakeUpTo(' ', &rest);
        const std::string version = fuzz::TakeUpTo(' ', &rest);
        host_.Request(name, fuzz::AnyValue(rest), version);
        break;
      }
      case 'g':  // a good request, by its number
        Good(Number(rest));
        break;
      case 'b': {  // a bus message: topic and body
        const std::string topic = fuzz::TakeUpTo(' ', &rest);
        host_.Deliver(topic, rest);
        break;
      }
      case 'p':  // a plate result: how its record begins
        host_.Deliver("BUS_SRV_IVS_RESULT", fuzz::RecordOf(rest));
        break;
      case 'n':  // as many plate results, with other ids
        for (int left = Number(rest) % 32; left > 0 && steps_ < kMostSteps; --left) {
          std::string record = fuzz::RecordOf("N");
          ++steps_;
          record[80] = static_cast<char>(++plate_id_);
          host_.Deliver("BUS_SRV_IVS_RESULT", record);
        }
        break;
      case 'a':  // an acknowledgement: of the tag, or the last one
        host_.Acknowledge(rest.empty() ? last_tag_ : strtoull(rest.c_str(), nullptr, 10));
        break;
      case 't':  // time passes, at most ten minutes
        if (depth_ == 1) {
          host_.Tick(std::abs(Number(rest) % 600000));
        }
        break;
      case 's':
        host_.Subscribe(rest);
        break;
      case 'u':
        host_.Unsubscribe(rest);
        break;
      case 'c':
        host_.LinkUp();
        break;
      case 'd':
        host_.LinkDown();
        break;
      case 'm':  // a message to the plug-in itself
        host_.Post(static_cast<unsigned int>(strtoul(rest.c_str(), nullptr, 10)));
        break;
      case 'A':  // the next answer of a service that has not its own
        answers_.push_back(rest);
        break;
      case 'F':  // as many bus requests throw
        failures_ = Number(rest) % 8;
        break;
      case 'i':  // what the image function returns; "throw" and "step": it does that
        picture_ = rest;
        break;
      case 'w':  // so many publications have the next step happen within
        steps_within_ = Number(rest) % 8;
        break;
      case 'D': {  // what a database has: the database, the key and the value
        const std::string database = fuzz::TakeUpTo(' ', &rest);
        const std::string key = fuzz::TakeUpTo(' ', &rest);
        fake::ThePlatform().databases[database][key] = rest;
        break;
      }
      default:
        break;
    }
  }

  void Good(int number) {
    const auto index = static_cast<std::size_t>(abs(number % int{std::size(kGoodRequests)}));
    const GoodRequest& request = kGoodRequests[index];
    host_.Request(request.name, fuzz::AnyValue(request.payload), "1.0");
  }

  std::string input_;
  std::deque<std::string> answers_;
  std::string picture_;
  int failures_ = 0;
  int steps_ = 0;
  int steps_within_ = 0;
  int depth_ = 0;
  int plate_id_ = 0;
  unsigned long long last_tag_ = 0;
  fuzz::Host host_;  // the last: it asks the camera above while it begins and ends
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Play(std::string(reinterpret_cast<const char*>(data), size)).Run();
  return 0;
}
