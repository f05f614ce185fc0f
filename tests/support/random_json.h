// Random documents for a JSON Schema, and random damage to documents.
#pragma once

#include <cstdint>
#include <random>
#include <string>

#include <json/value.h>

/// Knows the keywords that the contract's requests use.
class RandomJson {
 public:
  /// @param root what the schemas' references ("#/...") lead into; outlives this.
  RandomJson(const Json::Value& root, std::uint32_t seed) : root_(root), random_(seed) {}

  /// A document that the schema mostly allows: what it says with "if" and "pattern" is not
  /// looked at, or only guessed.
  Json::Value For(const Json::Value& schema);

  /// The text of a document with something wrong with it: a member gone, a value that is
  /// another, or a text that is no JSON any more.
  std::string Damaged(Json::Value document);

  /// A number from `least` to `most`, often one of the two.
  std::int64_t Integer(std::int64_t least, std::int64_t most);

 private:
  const Json::Value& Resolved(const Json::Value& schema) const;
  bool Chance(int percent) { return Integer(1, 100) <= percent; }
  std::size_t Below(std::size_t count);
  Json::Value Object(const Json::Value& schema);
  Json::Value Text(const Json::Value& schema);
  Json::Value Anything(int depth);
  void DamageOnce(Json::Value& document);

  const Json::Value& root_;
  std::mt19937 random_;
};
