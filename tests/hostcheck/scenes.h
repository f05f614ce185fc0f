// What hostcheck puts a host through, in order.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <boost/asio/io_context.hpp>

#include "broker.h"
#include "ledger.h"
#include "plugin_server.h"
#include "support/child_process.h"

namespace hostcheck {

struct SceneOptions {
  std::string listen = "127.0.0.1";  ///< address of broker and plug-in server
  /// How the cloud asks: {name}, and {payload} in the body.
  std::string request_topic;
  std::string request_body;
  std::chrono::milliseconds patience{10000};  ///< for what has to come
  std::chrono::milliseconds quiet{300};       ///< for what must not come
  std::chrono::milliseconds blocked{5000};    ///< how long a bus request keeps the host's thread
  /// Has the camera recognise so many cars, one right after the other; their plate ids grow.
  std::function<void(int count)> recognise;
};

/// One run with one host. Each scene says to the ledger what it has put to the test.
class Scenes {
 public:
  explicit Scenes(SceneOptions options);

  std::string broker_address() const;
  std::string plugin_address() const;

  /// @param host is running; it is ended by SIGTERM.
  void Play(ChildProcess* host);

  const Ledger& ledger() const { return ledger_; }

 private:
  using Condition = std::function<bool()>;

  using Scene = void (Scenes::*)();

  bool Start();
  void OneResult();
  void Burst();
  void NoPublication();
  void Request();
  void Refusal();
  void Redelivery();
  void EmptiedQueue();
  void LostLink();
  void QuickLosses();
  void BlockedThread();
  void Platform();
  void End();

  /// Runs everything until a condition holds. @return whether it did in time.
  bool Await(const Condition& condition);
  /// Lets pass what is to be watched for; the ledger judges it.
  void BeQuiet();
  /// Awaits what a check demands. @return whether it came.
  bool Expect(const char* check, const std::string& what, const Condition& condition);
  /// Gives back what the scene before has taken. @return whether the host can go on.
  bool IsReady();
  bool IsLinkUp() const;

  void OnEvent(const Json::Value& event);
  void OnMessage(const Broker::Message& message);
  void Answer(const std::string& mark, bool is_refused = false);
  void AnswerAll();
  bool HasArrived(const std::string& mark) const;
  bool IsConfirmed(const std::string& mark) const;
  void Do(const char* what, Json::Value command = Json::objectValue);
  void Recognise(int count);

  /// The publication of the next result that is handed over, at the broker; empty where none comes.
  std::string NextResult();
  /// The same of a record that the plug-in re-delivers.
  std::string Redeliver(unsigned plate_id);
  void AskCloud(const std::string& name, const std::string& body);
  bool CutAndReturn();

  const SceneOptions options_;
  const std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
  boost::asio::io_context context_{1};
  Ledger ledger_;
  Broker broker_;
  PluginServer plugin_;
  ChildProcess* host_ = nullptr;
  bool holds_answers_ = false;
  std::map<std::string, Broker::Message> early_;  // by mark, which the plug-in did not tell yet
  std::map<std::string, Broker::Message> unanswered_;  // by mark
  std::size_t results_seen_ = 0;
  unsigned last_record_ = 1000000;  // plate id
  std::string ended_early_;         // why
};

}  // namespace hostcheck
