#include "virtual_camera/store/settings.h"

#include "json_text.h"

namespace virtual_camera {

namespace {

constexpr char kSettingsTable[] =
    "CREATE TABLE IF NOT EXISTS settings(name TEXT PRIMARY KEY, value TEXT NOT NULL)";

}  // namespace

Settings::Settings(Database& database)
    : database_(database.Execute(kSettingsTable)),
      select_(database, "SELECT value FROM settings WHERE name = ?"),
      replace_(database, "INSERT OR REPLACE INTO settings(name, value) VALUES(?, ?)") {}

std::optional<std::string> Settings::Text(const std::string& name) {
  std::optional<std::string> text;
  if (select_.BindText(1, name).Step()) {
    text = select_.Bytes(0);
    select_.Reset();
  }
  return text;
}

void Settings::SetText(const std::string& name, const std::string& text) {
  replace_.BindText(1, name).BindText(2, text).Run();
}

void Settings::SetTexts(const std::map<std::string, std::string>& texts) {
  Transaction transaction(database_);
  for (const auto& [name, text] : texts) {
    SetText(name, text);
  }
  transaction.Commit();
}

Json::Value Settings::JsonValue(const std::string& name, const Json::Value& otherwise) {
  Json::Value value;
  const std::optional<std::string> text = Text(name);
  return text && Json::String2Json(*text, value) ? value : otherwise;
}

void Settings::SetJson(const std::string& name, const Json::Value& value) {
  std::string text;
  Json::Json2String(value, text);
  SetText(name, text);
}

}  // namespace virtual_camera
