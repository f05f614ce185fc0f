// contract/asyncapi.json: what goes between a camera and its clients, held against what
// does. Stricter than a client has to be: a member that the contract does not name is a
// violation.
#pragma once

#include <memory>
#include <mutex>
#include <string>

#include <json/value.h>

class Contract {
 public:
  /// Read once per process, each schema when it is first asked for. Any thread may use it.
  /// Throws std::runtime_error when it is no JSON.
  static Contract& Instance();

  /// What of a document a schema does not allow, a line each; empty when it holds.
  /// Throws std::runtime_error when there is no such schema.
  /// @param schema such as "message_ivs_result".
  std::string Violations(const std::string& schema, const Json::Value& document);

  /// The schema of the response to a name, which need not be one of a request.
  std::string ResponseSchema(const std::string& name) const;

  /// The same as Violations of what a camera sent on a topic; empty for a topic that it does not
  /// send on.
  std::string ViolationsOnTopic(const std::string& topic, const std::string& text);

  /// The document itself.
  const Json::Value& document() const { return document_; }

 private:
  struct Schemas;

  Contract();
  ~Contract();
  bool Has(const std::string& schema) const;

  Json::Value document_;
  Json::Value root_;  ///< with the schemas, for their references to each other
  std::mutex mutex_;
  std::unique_ptr<Schemas> schemas_;  ///< those that were asked for
};
