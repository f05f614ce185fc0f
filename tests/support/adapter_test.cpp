#include "adapter_test.h"

#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>

#include "contract.h"
#include "json_text.h"

namespace {

std::string Number(const std::string& bytes, size_t offset) {
  int32_t value = 0;
  memcpy(&value, bytes.data() + offset, sizeof(value));
  return std::to_string(value);
}

std::string Rendered(const fake::BusRequest& request) {
  std::string line = request.queue + " ";
  if (request.queue == "EVS_GPIO_CONTROL" && request.data.size() == 12) {
    line += "io=" + Number(request.data, 0) + " value=" + Number(request.data, 4) +
            " delay=" + Number(request.data, 8);
  } else if (request.queue == "EVS_RS485_WRITE" && request.data.size() >= 8) {
    line += "word=" + Number(request.data, 0) + " channel=" + Number(request.data, 4) +
            " data=" + request.data.substr(8);
  } else {
    line += request.data;
  }
  return line + " timeout=" + std::to_string(request.timeout_ms);
}

/// The start of the loaded file that an address lies in; null where it lies in none.
const void* FileOf(const void* address) {
  Dl_info info = {};
  return dladdr(address, &info) != 0 ? info.dli_fbase : nullptr;
}

/// Calls `visit` with the address of every key and text of a value.
void ForEachText(const Json::Value& value, const std::function<void(const char*)>& visit) {
  const char* end = nullptr;
  if (const char* text = nullptr; value.isString() && value.getString(&text, &end)) {
    visit(text);
  }
  for (auto member = value.begin(); member != value.end(); ++member) {
    if (value.isObject()) {
      visit(member.memberName(&end));
    }
    ForEachText(*member, visit);
  }
}

}  // namespace

Json::Value Parsed(const std::string& text) {
  Json::Value value;
  if (!Json::String2Json(text, value)) {
    throw std::invalid_argument("the test's own JSON is wrong: " + text);
  }
  return value;
}

std::string Compact(const Json::Value& value) {
  std::string text;
  Json::Json2String(value, text);
  return text;
}

AdapterTest::AdapterTest() : events_(new fake::EventService) {
  fake::ResetPlatform();
  image_func_ = [this](const std::string& source, const std::string& name) {
    image_calls_.push_back(source + " " + name);
    return "url:" + name;
  };
}

AdapterTest::~AdapterTest() { Destroy(); }

void AdapterTest::TearDown() {
  EXPECT_EQ(BusHeard(), "nothing") << "a bus request that the test did not expect";
  EXPECT_TRUE(published_.empty()) << "a publication that the test did not expect: "
                                  << published_.front().name;
}

void AdapterTest::LoadLibrary() {
  library_ = dlopen(LibraryFile(), RTLD_NOW | RTLD_LOCAL);
  if (library_ == nullptr) {
    throw std::runtime_error(dlerror());
  }
  create_ = reinterpret_cast<decltype(&create_adapter)>(dlsym(library_, "create_adapter"));
  destroy_ = reinterpret_cast<decltype(&destory_adapter)>(dlsym(library_, "destory_adapter"));
  library_file_ = FileOf(reinterpret_cast<const void*>(create_));
}

void AdapterTest::Create() {
  LoadLibrary();
  CreateAdapter();
}

void AdapterTest::CreateAdapter() {
  adapter_ = create_(events_, 7);
  adapter_->SignalPushMessage.connect(this, &AdapterTest::OnPush);
}

void AdapterTest::Start() {
  Create();
  Console([this] { adapter_->Initialize(image_func_); });
  ForgetLogs();
}

void AdapterTest::Destroy() {
  if (adapter_ != nullptr) {
    destroy_(adapter_);
    adapter_ = nullptr;
  }
  if (library_ != nullptr) {
    // Unloading it, so that the picture counters start again with the next test.
    dlclose(library_);
    library_ = nullptr;
  }
}

bool AdapterTest::CloudSends(const std::string& name, const std::string& payload,
                             const std::string& version) {
  return HostRequests(name, Parsed(payload), version);
}

bool AdapterTest::HostRequests(const std::string& name, const Json::Value& payload,
                               const std::string& version) {
  has_response_of_the_test_ = !response_.isNull();
  const size_t published_before = published_.size();
  const size_t asked_before = platform().requests.size();
  const bool done = adapter_->RequestMessage(name, payload, version, response_);
  ExpectOwnedByTheHost(response_);
  if (!has_response_of_the_test_) {
    ExpectResponseInContract(name, done, published_before);
    if (!done && platform().requests.size() == asked_before) {
      ExpectRefusedByContract(name, payload, version);
    }
  }
  has_response_of_the_test_ = false;
  return done;
}

std::string AdapterTest::BusHeard() {
  std::deque<fake::BusRequest>& requests = platform().requests;
  if (requests.empty()) {
    return "nothing";
  }
  const fake::BusRequest request = requests.front();
  requests.pop_front();
  EXPECT_EQ(request.flags, 0);
  EXPECT_TRUE(request.into_empty_reply);
  return Rendered(request);
}

std::string AdapterTest::Published() {
  if (published_.empty()) {
    return "nothing";
  }
  const std::string head = std::string(PublishedHead());
  return head + " " + Compact(PublishedPayload());
}

std::string AdapterTest::PublishedHead() {
  if (published_.empty()) {
    return "nothing";
  }
  const Publication& next = published_.front();
  EXPECT_EQ(next.version, "1.0");
  return next.name + " " + std::to_string(next.tag);
}

Json::Value AdapterTest::PublishedPayload() {
  if (published_.empty()) {
    ADD_FAILURE() << "nothing was published";
    return Json::Value();
  }
  const Json::Value payload = published_.front().payload;
  published_.pop_front();
  return payload;
}

void AdapterTest::ClaimEverything() {
  while (BusHeard() != "nothing") {
  }
  while (Published() != "nothing") {
  }
}

void AdapterTest::Answers(const std::string& queue, const std::string& reply, int result) {
  platform().standing_answers[queue] = {result, reply};
}

void AdapterTest::AnswersNext(const std::string& queue, const std::string& reply, int result) {
  platform().scripted_answers[queue].push_back({result, reply});
}

void AdapterTest::Deliver(const std::string& topic, const std::string& body) {
  platform().Deliver(topic, body);
}

std::string AdapterTest::Waiting() {
  std::string line;
  for (const auto& pending : events_->pending) {
    line += (line.empty() ? "" : ", ") + std::to_string(pending.message.message_id) + "@" +
            std::to_string(pending.due_ms);
  }
  return line.empty() ? "nothing" : line;
}

size_t AdapterTest::Logged(int priority, const std::string& text) {
  const auto& logs = platform().logs;
  return static_cast<size_t>(std::count_if(logs.begin(), logs.end(), [&](const auto& entry) {
    return entry.priority == priority && entry.text == text;
  }));
}

size_t AdapterTest::LoggedBy(const std::string& function, int priority, const std::string& text) {
  const auto& logs = platform().logs;
  return static_cast<size_t>(std::count_if(logs.begin(), logs.end(), [&](const auto& entry) {
    return entry.function == function && entry.priority == priority && entry.text == text;
  }));
}

std::vector<std::string> AdapterTest::LogLines(int priority) {
  std::vector<std::string> lines;
  for (const auto& entry : platform().logs) {
    if (priority < 0) {
      lines.push_back(std::to_string(entry.priority) + " " + entry.text);
    } else if (entry.priority == priority) {
      lines.push_back(entry.text);
    }
  }
  return lines;
}

std::set<std::string> AdapterTest::LogSources() {
  std::set<std::string> sources;
  for (const auto& entry : platform().logs) {
    sources.insert(entry.source);
  }
  return sources;
}

void AdapterTest::ForgetLogs() { platform().logs.clear(); }

std::string AdapterTest::Console(const std::function<void()>& action) {
  fflush(stdout);
  const std::unique_ptr<FILE, int (*)(FILE*)> file(tmpfile(), fclose);
  const int saved = dup(STDOUT_FILENO);
  dup2(fileno(file.get()), STDOUT_FILENO);
  action();
  fflush(stdout);
  dup2(saved, STDOUT_FILENO);
  close(saved);
  rewind(file.get());
  std::string text;
  char buffer[4096];
  for (size_t n = 0; (n = fread(buffer, 1, sizeof(buffer), file.get())) > 0;) {
    text.append(buffer, n);
  }
  return text;
}

fake::Platform& AdapterTest::platform() { return fake::ThePlatform(); }

void AdapterTest::OnPush(const std::string& name, const Json::Value& payload,
                         const std::string& version, unsigned long long tag) {
  const fake::Undisturbed host;
  ExpectOwnedByTheHost(payload);
  if (!has_response_of_the_test_) {
    ExpectMessageInContract(name, payload, version, tag);
  }
  published_.push_back({name, payload, version, tag});
  if (on_publication_) {
    on_publication_();
  }
}

void AdapterTest::ExpectOwnedByTheHost(const Json::Value& value) {
  ForEachText(value, [this](const char* text) {
    EXPECT_NE(FileOf(text), library_file_) << "a text in the library's own memory: " << text;
  });
}

void AdapterTest::ExpectMessageInContract(const std::string& name, const Json::Value& payload,
                                          const std::string& version, unsigned long long tag) {
  Json::Value message;
  message["version"] = version;
  message["tag"] = Json::UInt64{tag};
  message["payload"] = payload;
  EXPECT_EQ(Contract::Instance().Violations("message_" + name, message), "") << Compact(message);
}

void AdapterTest::ExpectResponseInContract(const std::string& name, bool done,
                                           size_t published_before) {
  Json::Value response;
  // As a host adds what the request has published under its own name.
  for (size_t i = published_before; i < published_.size(); ++i) {
    if (published_[i].name == name) {
      response["answer"] = published_[i].payload;
    }
  }
  response["result"] = done;
  response["response"] = response_;
  if (!done) {
    response["error"] = "the camera refused or did not carry out the request";
    response["code"] = "refused";
  }
  Contract& contract = Contract::Instance();
  EXPECT_EQ(contract.Violations(contract.ResponseSchema(name), response), "") << Compact(response);
}

void AdapterTest::ExpectRefusedByContract(const std::string& name, const Json::Value& payload,
                                          const std::string& version) {
  const bool is_well = platform().bus != nullptr && !platform().serialising_fails &&
                       platform().throw_on_request.empty() && events_->throw_on_clear == 0;
  Contract& contract = Contract::Instance();
  if (!is_well || !contract.document()["channels"]["request"]["messages"].isMember(name)) {
    return;
  }
  Json::Value request;
  request["version"] = version;
  request["payload"] = payload;
  EXPECT_NE(contract.Violations("request_" + name, request), "")
      << "refused without asking a service, and in the contract: " << Compact(request);
}
