// The vocabulary of the contract tests: the built library, loaded as a host loads
// it, and driven only through BaseAdapter and the fake platform.
//
// What the plug-in sent on the bus or published must be claimed by the test; what
// is left over fails it, and so does a payload or response that points into the library
// or that the contract with the cloud does not allow.
#pragma once

#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <json/value.h>
#include <boost/shared_ptr.hpp>

#include "base_adapter.h"
#include "fake_platform.h"
#include "sigslot.h"

/// A 552-byte recognition record, written at offsets.
class RecordBytes {
 public:
  RecordBytes() : bytes_(552, '\0') {}
  RecordBytes& Text(size_t offset, const std::string& text) {
    bytes_.replace(offset, text.size(), text);
    return *this;
  }
  RecordBytes& Byte(size_t offset, unsigned char value) {
    bytes_[offset] = static_cast<char>(value);
    return *this;
  }
  RecordBytes& Word16(size_t offset, unsigned int value) {
    return Byte(offset, value & 0xFF).Byte(offset + 1, (value >> 8) & 0xFF);
  }
  RecordBytes& Word(size_t offset, unsigned int value) {
    return Word16(offset, value & 0xFFFF).Word16(offset + 2, value >> 16);
  }
  RecordBytes& PlateId(unsigned int id) { return Word(80, id); }
  operator const std::string&() const { return bytes_; }  // NOLINT(google-explicit-constructor)
  std::string str() const { return bytes_; }

 private:
  std::string bytes_;
};

/// The file under test: each program of tests has its own way to say which it is.
const char* LibraryFile();

Json::Value Parsed(const std::string& text);
std::string Compact(const Json::Value& value);

class AdapterTest : public testing::Test, public sigslot::has_slots<sigslot::single_threaded> {
 protected:
  AdapterTest();
  ~AdapterTest() override;
  void TearDown() override;

  /// Loads the library alone.
  void LoadLibrary();
  /// Creates an adapter of the library that is loaded.
  void CreateAdapter();
  /// Loads the library and creates an adapter, not initialised.
  void Create();
  /// Create, then Initialize with `image_func_`; forgets what was logged and listened.
  void Start();
  void Destroy();

  /// Hands a request to the adapter; `response_` is what it made of the response.
  bool CloudSends(const std::string& name, const std::string& payload,
                  const std::string& version = "1.0");
  /// The same with a payload that need not be text.
  bool HostRequests(const std::string& name, const Json::Value& payload,
                    const std::string& version);

  /// The next request that no one has claimed, as one line; "nothing" if there is none.
  /// Texts stand as they are; the binary queues' packets are rendered by field.
  std::string BusHeard();

  /// The next unclaimed publication as "name tag payload", with compact JSON.
  std::string Published();
  /// The payload of the next unclaimed publication, whatever its name and tag.
  Json::Value PublishedPayload();
  /// "name tag" of the next unclaimed publication.
  std::string PublishedHead();

  /// Claims whatever was sent and published.
  void ClaimEverything();

  /// Has a service answer: every request, or (Next) the next one only.
  void Answers(const std::string& queue, const std::string& reply, int result = 1);
  void AnswersNext(const std::string& queue, const std::string& reply, int result = 1);

  void Deliver(const std::string& topic, const std::string& body);
  /// Delivers the messages that are posted for now.
  void RunPosted() { events_->Tick(0); }
  /// The posted messages, as "id after delay" of those that wait.
  std::string Waiting();

  /// How often such an entry is in the log.
  size_t Logged(int priority, const std::string& text);
  /// The same, with the function that logged it.
  size_t LoggedBy(const std::string& function, int priority, const std::string& text);
  /// All entries as "priority text" lines; of one level only if given.
  std::vector<std::string> LogLines(int priority = -1);
  void ForgetLogs();
  /// The components whose entries are in the log.
  std::set<std::string> LogSources();

  /// What `action` prints on standard output.
  std::string Console(const std::function<void()>& action);

  fake::Platform& platform();

  decltype(&create_adapter) create_ = nullptr;  ///< the library's
  decltype(&destory_adapter) destroy_ = nullptr;
  boost::shared_ptr<fake::EventService> events_;
  BaseAdapter* adapter_ = nullptr;
  Json::Value response_;
  std::function<std::string(const std::string&, const std::string&)> image_func_;
  /// What the image function was called with, as "source name".
  std::vector<std::string> image_calls_;
  /// Called on each publication, after it was noted.
  std::function<void()> on_publication_;

 private:
  struct Publication {
    std::string name;
    Json::Value payload;
    std::string version;
    unsigned long long tag;
  };
  void OnPush(const std::string& name, const Json::Value& payload, const std::string& version,
              unsigned long long tag);
  void ExpectOwnedByTheHost(const Json::Value& value);
  void ExpectMessageInContract(const std::string& name, const Json::Value& payload,
                               const std::string& version, unsigned long long tag);
  void ExpectResponseInContract(const std::string& name, bool done, size_t published_before);

  /// What the adapter refuses by itself, while all is well, no client may send.
  void ExpectRefusedByContract(const std::string& name, const Json::Value& payload,
                               const std::string& version);

  void* library_ = nullptr;
  const void* library_file_ = nullptr;
  std::deque<Publication> published_;
  /// A host passes an empty response. What a test put into it is not in the contract, and
  /// some requests publish that very object.
  bool has_response_of_the_test_ = false;
};
