// A JSON document that is filled in again and again, and its styled text.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include <json/value.h>

namespace qex {

/// What document.toStyledString() returns. Throws std::bad_alloc where that is no JSON: when memory
/// runs out, jsoncpp's stream loses the rest without a word.
std::string StyledText(const Json::Value& document);

class StyledDocument;

/// The members of an object that is filled in: as those of Json::Value, but found without a search
/// where a document has kept their places.
class Members {
 public:
  /// Of any object, or of null. A packer takes either, so this is no explicit conversion.
  Members(Json::Value& object) : object_(&object) {}
  Members(Json::Value& object, StyledDocument& document) : object_(&object), document_(&document) {}

  /// @param name a literal: the document compares where it stands, not its text.
  Json::Value& operator[](const char* name) const;

  /// The members of a member.
  Members Of(const char* name) const;

 private:
  Json::Value* object_;
  StyledDocument* document_ = nullptr;
};

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

  /// Whose members stay, and whose arrays stay as they are, once Text or Fill has been called.
  Json::Value body;

  /// The body's members, to be named in the same order as the time before. Where that differs
  /// they are searched for.
  Members Fill();

  /// @return what body.toStyledString() returns; the caller's until the next call.
  const std::string& Text();

 private:
  /// A value that may change, and the text between the one before it and itself.
  struct Slot {
    const Json::Value* value;
    std::string before;
  };
  /// A member that was named when the document was filled in.
  struct Place {
    const Json::Value* object;
    const char* name;
    Json::Value* member;
  };
  friend class Members;
  Json::Value& Member(Json::Value& object, const char* name);
  static void FindSlots(const Json::Value& value, Json::Value& marked, std::vector<Slot>& slots);
  void TakeLayout();

  std::vector<Place> places_;  ///< in the order of filling in
  size_t next_place_ = 0;
  std::vector<Slot> slots_;  ///< in the order of the text; empty before the first text
  std::string after_;        ///< what follows the last value
  std::string text_;
};

}  // namespace qex
