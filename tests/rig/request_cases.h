// The 23 requests as the virtual camera carries them out and refuses them.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include <json/value.h>

struct RequestCase {
  std::string name;
  std::string good_body;
  std::string done;                         ///< what a good one comes to
  std::vector<std::string> refused_bodies;  ///< "" is none at all
  std::string service = {};                 ///< its queue; empty: none is asked
  std::string down = "refused";
  std::string garbage = "refused";
  bool needs_version = true;
};

std::ostream& operator<<(std::ostream& stream, const RequestCase& row);

const std::vector<RequestCase>& RequestCases();

/// What a response says in short: "done" or its code, with "+answer" where it has one.
std::string InShort(const Json::Value& response);
