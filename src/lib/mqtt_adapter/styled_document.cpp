#include "styled_document.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "json_text.h"

namespace qex {
namespace {

/// Stands for a value in the text that the layout is taken from.
std::string Marker(size_t number) { return "@" + std::to_string(number) + "@"; }

/// Whether a character stands in JSON as it is.
bool IsPlain(char c) { return c >= 0x20 && c < 0x7F && c != '"' && c != '\\'; }

/// A text that is written from its beginning on, into room that grows in steps: so most writing
/// calls no function of std::string.
class TextWriter {
 public:
  explicit TextWriter(std::string& text) : text_(text) { text_.resize(text_.capacity()); }

  void Append(const char* bytes, size_t size) {
    memcpy(Room(size), bytes, size);
    length_ += size;
  }
  void Append(const std::string& text) { Append(text.data(), text.size()); }
  void Append(Json::LargestUInt number) {
    char digits[20];  // of 2^64
    char* const end = digits + sizeof(digits);
    char* begin = end;
    do {
      *--begin = static_cast<char>('0' + number % 10);
      number /= 10;
    } while (number != 0);
    Append(begin, static_cast<size_t>(end - begin));
  }
  void Append(Json::LargestInt number) {
    const auto bits = static_cast<Json::LargestUInt>(number);
    if (number < 0) {
      Append("-", 1);
    }
    Append(number < 0 ? 0 - bits : bits);
  }
  /// @return false where the value is of a kind that is not written here.
  bool Append(const Json::Value& value);

  /// Takes what has room only off the text.
  void Finish() { text_.resize(length_); }

 private:
  char* Room(size_t size) {
    if (text_.size() - length_ < size) {
      text_.resize(2 * text_.size() + size);
    }
    return &text_[length_];
  }

  std::string& text_;
  size_t length_ = 0;
};

bool TextWriter::Append(const Json::Value& value) {
  switch (value.type()) {
    case Json::intValue:
      Append(value.asLargestInt());
      return true;
    case Json::uintValue:
      Append(value.asLargestUInt());
      return true;
    case Json::booleanValue:
      value.asBool() ? Append("true", 4) : Append("false", 5);
      return true;
    case Json::stringValue: {
      const char* begin = nullptr;
      const char* end = nullptr;
      value.getString(&begin, &end);
      Append("\"", 1);
      Append(begin, static_cast<size_t>(end - begin));
      Append("\"", 1);
      return std::all_of(begin, end, IsPlain);
    }
    default:
      return false;
  }
}

}  // namespace

Json::Value& Members::operator[](const char* name) const {
  return document_ != nullptr ? document_->Member(*object_, name) : (*object_)[name];
}

Members Members::Of(const char* name) const {
  Members of_member = *this;
  of_member.object_ = &(*this)[name];
  return of_member;
}

Members StyledDocument::Fill() {
  next_place_ = 0;
  return Members(body, *this);
}

Json::Value& StyledDocument::Member(Json::Value& object, const char* name) {
  if (next_place_ == places_.size()) {
    places_.push_back({nullptr, nullptr, nullptr});
  }
  Place& place = places_[next_place_++];
  if (place.object != &object || place.name != name) {
    place = {&object, name, &object[name]};
  }
  return *place.member;
}

std::string StyledText(const Json::Value& document) {
  std::string text = document.toStyledString();
  Json::Value whole;
  if (!Json::String2Json(text, whole)) {
    throw std::bad_alloc();
  }
  return text;
}

void StyledDocument::FindSlots(const Json::Value& value, Json::Value& marked,
                               std::vector<Slot>& slots) {
  if (value.isObject() && !value.empty()) {
    for (auto member = value.begin(); member != value.end(); ++member) {
      FindSlots(*member, marked[member.name()], slots);
    }
  } else if (!value.isArray()) {
    marked = Marker(slots.size());
    slots.push_back({&value, std::string()});
  }
}

void StyledDocument::TakeLayout() {
  Json::Value marked = body;
  std::vector<Slot> slots;
  FindSlots(body, marked, slots);
  const std::string text = StyledText(marked);
  size_t from = 0;
  for (size_t i = 0; i < slots.size(); ++i) {
    const std::string marker = '"' + Marker(i) + '"';
    const size_t at = text.find(marker, from);
    slots[i].before = text.substr(from, at - from);
    from = at + marker.size();
  }
  after_ = text.substr(from);
  slots_.swap(slots);  // the last: a layout is whole, or there is none yet
}

const std::string& StyledDocument::Text() {
  if (slots_.empty()) {
    TakeLayout();
  }
  TextWriter writer(text_);
  for (const Slot& slot : slots_) {
    writer.Append(slot.before);
    if (!writer.Append(*slot.value)) {
      text_ = body.toStyledString();
      return text_;
    }
  }
  writer.Append(after_);
  writer.Finish();
  return text_;
}

}  // namespace qex
