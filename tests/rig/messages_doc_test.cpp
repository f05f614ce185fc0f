// The examples of docs/messages.md, held against the running desk. In the document,
// `<!-- rig: camera_ctl ... -->` runs a command, and `<!-- example: KIND NAME -->`
// stands before a block: a request is sent, a response or a message awaited.
//
// With MESSAGES_DOC_WRITE set, the document gets what came instead (./dev examples).
#include <json/writer.h>

#include <cstdlib>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>

#include "rig_test.h"

namespace {

/// What differs from run to run: times, and what they are part of.
const std::set<std::string> kVolatileKeys = {"sec",
                                             "usec",
                                             "decsec",
                                             "decmin",
                                             "dechour",
                                             "decday",
                                             "decmon",
                                             "decyear",
                                             "timestamp",
                                             "imagePath",
                                             "imageFragmentPath",
                                             "imgPath",
                                             "full_image_path",
                                             "small_image_path",
                                             "time",
                                             "waited_ms",
                                             "bright",
                                             "carBright"};

Json::Value WithoutVolatile(const Json::Value& value) {
  Json::Value result = value;
  if (value.isObject()) {
    for (const std::string& key : value.getMemberNames()) {
      result[key] = kVolatileKeys.count(key) != 0 && !value[key].isObject()
                        ? Json::Value(value[key].isString() ? "some text" : "some number")
                        : WithoutVolatile(value[key]);
    }
  } else if (value.isArray()) {
    for (Json::ArrayIndex i = 0; i < value.size(); ++i) {
      result[i] = WithoutVolatile(value[i]);
    }
  }
  return result;
}

/// On one line where there is room.
std::string Styled(const Json::Value& value) {
  const std::string line = Compact(value);
  if (line.size() <= 100) {
    return line;
  }
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "  ";
  return Json::writeString(builder, value);
}

class MessagesDoc : public RigTest {
 protected:
  void Run(const std::string& command) {
    std::istringstream words(command);
    std::vector<std::string> arguments;
    for (std::string word; words >> word;) {
      arguments.push_back(word);
    }
    arguments.erase(arguments.begin());  // "camera_ctl" itself
    rig_.Ctl(arguments);
  }

  /// Plays one example. @return what stands in its block afterwards.
  std::string Play(const std::string& kind, const std::string& name, const std::string& block) {
    if (kind == "request") {
      rig_.cloud->Publish(rig_.Topic("request/" + name), block);
      return block;
    }
    const auto message = rig_.cloud->Pick([&](const MqttClient::Message& candidate) {
      return candidate.topic == rig_.Topic(kind + "/" + name);
    });
    if (!message) {
      ADD_FAILURE() << "no " << kind << " " << name;
      return block;
    }
    const Json::Value came = ParseJson(message->payload);
    if (getenv("MESSAGES_DOC_WRITE") == nullptr) {
      EXPECT_EQ(Styled(WithoutVolatile(came)), Styled(WithoutVolatile(ParseJson(block))))
          << kind << " " << name << ": docs/messages.md differs; see ./dev examples";
    }
    return Styled(came) + "\n";
  }
};

TEST_F(MessagesDoc, ShowsWhatTheDeskProduces) {
  rig_.StartCamera({"--seed", "7"});
  rig_.StartAgent({"--picture-url", "http://pictures.example/"});
  rig_.Request("lanectrl_result_cfg",
               R"([{"event":"person_stay","enable":1},{"event":"vehicle_stay","enable":1}])");
  rig_.cloud->Forget();
  std::ifstream document(MESSAGES_DOC);
  std::ostringstream updated;
  int examples = 0;
  for (std::string line; std::getline(document, line);) {
    updated << line << "\n";
    std::istringstream words(line);
    std::string open, mark, kind, name;
    words >> open >> mark >> kind >> name;
    if (open == "<!--" && mark == "rig:") {
      const size_t begin = line.find("rig:") + 5;
      Run(line.substr(begin, line.rfind(" -->") - begin));
    } else if (open == "<!--" && mark == "example:") {
      std::getline(document, line);
      updated << line << "\n";
      std::string block;
      while (std::getline(document, line) && line != "```") {
        block += line + "\n";
      }
      updated << Play(kind, name, block) << "```\n";
      ++examples;
    }
  }
  EXPECT_GT(examples, 60);
  if (getenv("MESSAGES_DOC_WRITE") != nullptr && !HasFailure()) {
    document.close();
    std::ofstream(MESSAGES_DOC) << updated.str();
  }
}

}  // namespace
