#include "contract.h"

#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <unordered_set>

#include <valijson/adapters/jsoncpp_adapter.hpp>
#include <valijson/schema.hpp>
#include <valijson/schema_parser.hpp>
#include <valijson/validation_results.hpp>
#include <valijson/validator.hpp>

#include "json_text.h"

/// contract/asyncapi.json, embedded.
extern "C" {
extern const char contract_document[];
extern const char contract_document_end[];
}

namespace {

using valijson::adapters::JsonCppAdapter;

/// Whether it is the schema of an object that says which members there are.
bool NamesMembers(const Json::Value& schema) {
  if (!schema.isObject() || !schema["properties"].isObject()) {
    return false;
  }
  const Json::Value& type = schema["type"];
  if (type.isArray()) {
    for (const Json::Value& one : type) {
      if (one == "object") {
        return true;
      }
    }
  }
  return type == "object";
}

/// Closes every object that says which members it has and not that there may be others.
void MakeStrict(Json::Value& schema) {
  if (NamesMembers(schema) && !schema.isMember("additionalProperties")) {
    schema["additionalProperties"] = false;
  }
  if (schema.isObject() || schema.isArray()) {
    for (Json::Value& part : schema) {
      MakeStrict(part);
    }
  }
}

std::string Lines(valijson::ValidationResults& results) {
  std::string lines;
  valijson::ValidationResults::Error error;
  while (results.popError(error)) {
    std::string place;
    for (const std::string& step : error.context) {
      place += step;
    }
    lines += place + ": " + error.description + "\n";
  }
  return lines;
}

}  // namespace

struct Contract::Schemas {
  struct One {
    valijson::Schema schema;
    std::unordered_set<std::string> held;  ///< documents that hold: most are sent more than once
  };
  std::map<std::string, One> by_name;
  valijson::Validator validator{valijson::Validator::kStrongTypes};  ///< keeps its patterns
};

Contract& Contract::Instance() {
  static Contract contract;
  return contract;
}

Contract::Contract() : schemas_(std::make_unique<Schemas>()) {
  if (!Json::String2Json(std::string(contract_document, contract_document_end), document_)) {
    throw std::runtime_error("the contract is no JSON");
  }
  root_["components"]["schemas"] = document_["components"]["schemas"];
  MakeStrict(root_);
}

Contract::~Contract() = default;

bool Contract::Has(const std::string& schema) const {
  return root_["components"]["schemas"].isMember(schema);
}

std::string Contract::ResponseSchema(const std::string& name) const {
  return Has("response_" + name) ? "response_" + name : "response_of_no_request";
}

std::string Contract::Violations(const std::string& schema, const Json::Value& document) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!Has(schema)) {
    throw std::runtime_error("the contract has no schema " + schema);
  }
  const auto [entry, is_new] = schemas_->by_name.try_emplace(schema);
  auto& [rules, held] = entry->second;
  if (is_new) {
    root_["allOf"][0]["$ref"] = "#/components/schemas/" + schema;
    valijson::SchemaParser().populateSchema(JsonCppAdapter(root_), rules);
  }
  std::string text;
  const bool is_text = Json::Json2String(document, text);
  if (is_text && held.count(text) != 0) {
    return "";
  }
  valijson::ValidationResults results;
  if (schemas_->validator.validate(rules, JsonCppAdapter(document), &results) && is_text) {
    held.insert(text);
  }
  return Lines(results);
}

std::string Contract::ViolationsOnTopic(const std::string& topic, const std::string& text) {
  std::istringstream levels(topic);
  std::string root, sn, kind, name;
  std::getline(levels, root, '/') && std::getline(levels, sn, '/') &&
      std::getline(levels, kind, '/') && std::getline(levels, name);
  if (kind != "response" && kind != "message" && kind != "status") {
    return "";
  }
  // A response topic that a client has chosen gets responses of any request.
  const std::string schema = kind == "response"
                                 ? Has("response_" + name) ? "response_" + name : "response"
                             : kind == "message" ? "message_" + name
                                                 : "status";
  if (!Has(schema)) {
    return "the contract has no " + topic + "\n";
  }
  Json::Value document;
  if (!Json::String2Json(text, document)) {
    return "not JSON: " + text + "\n";
  }
  return Violations(schema, document);
}
