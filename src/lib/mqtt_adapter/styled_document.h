// A JSON document that is filled in again and again, and its styled text.
#pragma once

#include <string>
#include <vector>

#include <json/value.h>

namespace qex {

/// Keeps its members while their values change, so that none is made anew, and writes the text
/// that Value::toStyledString writes.
///
/// What stands between the values is taken from jsoncpp's own text of the document, once, so the
/// layout is that of whatever jsoncpp is loaded. Written here are whole numbers, truth values and
/// texts of plain ASCII; with anything else in it the document is left to toStyledString.
class StyledDocument {
 public:
  StyledDocument() = default;
  StyledDocument(const StyledDocument&) = delete;
  StyledDocument& operator=(const StyledDocument&) = delete;

  /// Whose members, and arrays, stay as they are once Text has been called.
  Json::Value body;

  /// @return what body.toStyledString() returns; the caller's until the next call.
  const std::string& Text();

 private:
  /// A value that may change, and the text between the one before it and itself.
  struct Slot {
    const Json::Value* value;
    std::string before;
  };
  void FindSlots(const Json::Value& value, Json::Value& marked);
  void TakeLayout();

  std::vector<Slot> slots_;  ///< in the order of the text; empty before the first text
  std::string after_;        ///< what follows the last value
  std::string text_;
};

}  // namespace qex
