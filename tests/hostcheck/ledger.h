// What a host has done, held against what it owes: the judge of hostcheck.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <json/value.h>

namespace hostcheck {

/// Hears, in order, of everything that happens in the plug-in and at the broker. Knows no time and
/// no connection of its own.
class Ledger {
 public:
  enum class State { kNotExercised, kKept, kBroken };

  struct Verdict {
    State state = State::kNotExercised;
    std::string
        moment;  ///< of a broken one: what happened, when, after what; else why not exercised
  };

  /// A message of the plug-in.
  struct Publication {
    unsigned long long tag = 0;
    std::string name;
    unsigned plate_id = 0;
    int session = 0;       ///< how many losses of the link the host had told of
    int connection = 0;    ///< how many connections there had been
    int arrivals = 0;      ///< at the broker
    std::string withhold;  ///< check that forbids to confirm it; empty for none
    bool is_answered = false;
    bool is_refused = false;
    bool is_confirmed = false;
  };

  /// @param now a time of the run for people, as in "3.214 s".
  explicit Ledger(std::function<std::string()> now);

  /// The plug-in tells.
  void OnEvent(const Json::Value& event);

  /// The host has made its connection of that number to the broker.
  void OnConnection(int connection) { connection_ = connection; }

  /// A publication has arrived at the broker, on that connection.
  void OnArrived(const std::string& mark, int connection);

  /// The broker is about to answer for a publication.
  void OnAnswered(const std::string& mark, bool is_refused);

  /// Something else has happened, to be named in a moment: "the link was cut".
  void Note(const std::string& what);

  /// It was put to the test: kept, unless it is found broken.
  void Exercised(const char* check);
  void Broken(const char* check, const std::string& what);
  /// Why a check is not exercised.
  void Skipped(const char* check, const std::string& why);

  const Verdict& verdict(const std::string& check) const { return verdicts_.at(check); }
  bool IsAnyBroken() const;

  // What scenes wait for.
  int Count(const std::string& event) const;  ///< how often it was told
  const std::set<std::string>& subscribed() const { return subscribed_; }
  bool is_connected() const { return is_connected_; }
  const std::vector<unsigned>& results() const { return results_; }  ///< handed over: plate ids
  /// The latest publication of a plate with a tag; empty without one.
  std::string MarkOf(unsigned long long tag, unsigned plate_id) const;
  bool Knows(const std::string& mark) const { return publications_.count(mark) != 0; }
  const Publication& publication(const std::string& mark) const { return publications_.at(mark); }
  const std::string& first_mark() const { return first_mark_; }
  long last_wait_ms() const { return last_wait_ms_; }

 private:
  void JudgeOrderOfCalls(const std::string& name);
  void OnResult(const Json::Value& event);
  void OnPublishes(const Json::Value& event);
  std::string ConfirmedBy(unsigned long long tag) const;
  void OnConfirmed(unsigned long long tag);
  void OnRequest(const Json::Value& event);
  void OnLinkCall(bool is_connected);
  void Withhold(const char* check, unsigned except_plate_id);

  std::function<std::string()> now_;
  std::map<std::string, Verdict> verdicts_;
  std::string latest_ = "nothing";
  std::map<std::string, int> counts_;
  std::map<std::string, Publication> publications_;
  std::string first_mark_;
  std::set<std::string> subscribed_;
  std::vector<unsigned> results_;
  // The result that the plug-in has, until it is acknowledged or lost.
  bool has_result_ = false;
  unsigned result_plate_id_ = 0;
  std::string result_mark_;
  Json::Int64 thread_ = 0;
  bool is_connected_ = false;
  int session_ = 0;
  int connection_ = 0;
  long last_wait_ms_ = 0;
};

}  // namespace hostcheck
