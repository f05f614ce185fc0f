#include "support/random_json.h"

#include <algorithm>

#include "json_text.h"
#include "tarvex/base64.h"

namespace {

constexpr int kAllOptional = 50;  // percent of the optional members are there

std::string TwoDigits(std::int64_t number) {
  return (number < 10 ? "0" : "") + std::to_string(number);
}

}  // namespace

const Json::Value& RandomJson::Resolved(const Json::Value& schema) const {
  if (!schema.isObject() || !schema.isMember("$ref")) {
    return schema;
  }
  const Json::Value* target = &root_;
  const std::string path = schema["$ref"].asString();
  for (std::size_t begin = 2; begin < path.size();) {  // behind "#/"
    const std::size_t end = std::min(path.find('/', begin), path.size());
    target = &(*target)[path.substr(begin, end - begin)];
    begin = end + 1;
  }
  return Resolved(*target);
}

std::size_t RandomJson::Below(std::size_t count) {
  return std::uniform_int_distribution<std::size_t>(0, count - 1)(random_);
}

std::int64_t RandomJson::Integer(std::int64_t least, std::int64_t most) {
  const std::size_t kind = Below(4);
  if (kind < 2) {
    return kind == 0 ? least : most;
  }
  return std::uniform_int_distribution<std::int64_t>(least, most)(random_);
}

Json::Value RandomJson::For(const Json::Value& unresolved) {
  const Json::Value& schema = Resolved(unresolved);
  if (schema.isMember("const")) {
    return schema["const"];
  }
  if (schema.isMember("enum")) {
    return schema["enum"][static_cast<Json::ArrayIndex>(Below(schema["enum"].size()))];
  }
  if (schema.isMember("oneOf")) {
    return For(schema["oneOf"][static_cast<Json::ArrayIndex>(Below(schema["oneOf"].size()))]);
  }
  Json::Value type = schema["type"];
  if (type.isArray()) {
    type = type[static_cast<Json::ArrayIndex>(Below(type.size()))];
  }
  if (type == "integer" || type == "number") {
    return Json::Int64{Integer(schema.get("minimum", -1000000).asInt64(),
                               schema.get("maximum", 1000000).asInt64())};
  }
  if (type == "string") {
    return Text(schema);
  }
  if (type == "boolean") {
    return Chance(50);
  }
  if (type == "null") {
    return {};
  }
  if (type == "array") {
    Json::Value array(Json::arrayValue);
    for (std::size_t left = Below(4); left > 0; --left) {
      array.append(For(schema["items"]));
    }
    return array;
  }
  return Object(schema);
}

Json::Value RandomJson::Object(const Json::Value& schema) {
  Json::Value object(Json::objectValue);
  for (const Json::Value& part : schema["allOf"]) {
    object = For(part);
  }
  const Json::Value& required = schema["required"];
  for (const std::string& name : schema["properties"].getMemberNames()) {
    const bool is_required = object.isMember(name) ||
                             std::find(required.begin(), required.end(), name) != required.end();
    if (is_required || Chance(kAllOptional)) {
      object[name] = For(schema["properties"][name]);
    }
  }
  return object;
}

Json::Value RandomJson::Text(const Json::Value& schema) {
  static const char* const kCharacters[] = {"A", "z", "0", " ", "/", "\"", "\\", "\n", "é", "京"};
  if (schema["contentEncoding"] == "base64") {
    std::string bytes(Below(1016) + 1, '\0');
    std::generate(bytes.begin(), bytes.end(), [this] { return static_cast<char>(Below(256)); });
    return tarvex::Base64::Encode(bytes);
  }
  if (schema.isMember("minimum")) {
    return std::to_string(Integer(schema["minimum"].asInt64(), schema["maximum"].asInt64()));
  }
  if (schema.isMember("pattern")) {  // a time of day
    return TwoDigits(Integer(0, 23)) + ":" + TwoDigits(Integer(0, 59));
  }
  std::string text;
  const std::size_t longest = std::min<std::size_t>(schema.get("maxLength", 40).asUInt(), 40);
  for (std::size_t left = Below(longest) + 1; left > 0; --left) {
    text += kCharacters[Below(std::size(kCharacters))];
  }
  return text;
}

Json::Value RandomJson::Anything(int depth) {
  const std::size_t kind = Below(depth > 0 ? 8 : 6);
  switch (kind) {
    case 0:
      return {};
    case 1:
      return Chance(50);
    case 2:
      return Json::Int64{Integer(-1, 1)};
    case 3:
      return Json::Int64{Integer(INT64_MIN, INT64_MAX)};
    case 4:
      return 1.5;
    case 5:
      return std::string(Below(300), 'x');
    default:
      break;
  }
  Json::Value nested(kind == 6 ? Json::arrayValue : Json::objectValue);
  if (kind == 6) {
    nested.append(Anything(depth - 1));
  } else {
    nested["type"] = Anything(depth - 1);
  }
  return nested;
}

void RandomJson::DamageOnce(Json::Value& document) {
  const bool goes_deeper = Chance(70);
  if (document.isObject() && !document.empty()) {
    const Json::Value::Members names = document.getMemberNames();
    const std::string& name = names[Below(names.size())];
    if (goes_deeper) {
      DamageOnce(document[name]);
    } else if (Chance(50)) {
      document.removeMember(name);
    } else {
      document[name] = Anything(2);
    }
  } else if (document.isArray() && !document.empty() && goes_deeper) {
    DamageOnce(document[static_cast<Json::ArrayIndex>(Below(document.size()))]);
  } else {
    document = Anything(2);
  }
}

std::string RandomJson::Damaged(Json::Value document) {
  for (std::size_t left = Below(3) + 1; left > 0; --left) {
    DamageOnce(document);
  }
  std::string text;
  Json::Json2String(document, text);
  const std::size_t kind = Below(10);
  if (kind == 0) {
    text.resize(Below(text.size() + 1));
  } else if (kind == 1) {
    text[Below(text.size())] = static_cast<char>(Below(256));
  }
  return text;
}
