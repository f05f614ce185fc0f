// What is measured: each piece of the plug-in's work beside the same work done naively.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <json/value.h>

namespace bench {

struct Work {
  std::string name;
  std::function<void()> prepare;  ///< before the first of a row of runs of the plug-in's
  std::function<void()> plug_in;
  /// The same document or the same request and answer made once as one first writes it: string
  /// keys, every value new. Nothing is sent, logged or checked. JSON is read and written by the
  /// same platform functions that the plug-in calls.
  std::function<void()> naive;
  double goal;              ///< the plug-in's instructions over the naive way's, at most
  double goal_allocations;  ///< the same of allocations; 0: none
};

/// One recognition result's record, and its document made the naive way.
std::string PlateRecord();
Json::Value NaivePlateDocument(const std::string& record);

/// One recognition result, from the bus message to its confirmation.
Work PlateResult();

/// Each of the 23 requests.
std::vector<Work> Requests();

/// All of it. The plug-in is loaded and initialised on the first call.
const std::vector<Work>& AllWork();

}  // namespace bench
