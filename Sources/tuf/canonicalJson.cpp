#include "tuf/canonicalJson.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "ground/osal_heap.h"
#include "tuf/Error.h"

namespace tuf {
namespace {

constexpr std::size_t kMaxLevels = 64;

/// A value of few bytes takes a hundred in memory, and files are parsed before they are trusted.
constexpr std::size_t kMaxValues = std::size_t{1} << 20;

/// Builds the value from the parser's events.
class Builder final : public nlohmann::json_sax<Json> {
 public:
  explicit Builder(Json& result) : result_(result) {}
  Builder(const Builder&) = delete;
  Builder& operator=(const Builder&) = delete;

  bool null() override { return add(nullptr); }
  bool boolean(bool value) override { return add(value); }
  bool number_integer(number_integer_t value) override { return add(value); }
  bool number_unsigned(number_unsigned_t value) override { return add(value); }
  bool number_float(number_float_t value, const string_t&) override { return add(value); }
  // A copy: the parser keeps the room of its buffer, and the value takes no more than it needs.
  bool string(string_t& value) override { return add(Json(value)); }
  bool binary(binary_t&) override { return false; }  // JSON has none
  bool start_object(std::size_t) override { return open(Json::object()); }
  bool start_array(std::size_t) override { return open(Json::array()); }
  bool end_object() override { return close(); }
  bool end_array() override { return close(); }

  bool key(string_t& name) override {
    auto& members = levels_.back()->get_ref<Json::object_t&>();
    const std::size_t before = members.size();
    const auto member = members.try_emplace(members.end(), name);  // they are mostly sorted
    if (members.size() == before) refuseMalformed("A member stands twice in one object");
    member_ = &member->second;
    return true;
  }

  bool parse_error(std::size_t position, const std::string&, const Json::exception&) override {
    refuseMalformed("No JSON from byte " + std::to_string(position) + " on");
  }

 private:
  /// Elements of an array stay where they are while what is inside the last one is being built.
  Json& place(Json&& value) {
    if (++values_ > kMaxValues) refuseMalformed("The JSON has too many values");
    if (levels_.empty()) return result_ = std::move(value);
    Json& parent = *levels_.back();
    if (parent.is_object()) return *member_ = std::move(value);
    parent.push_back(std::move(value));
    return parent.back();
  }

  bool add(Json&& value) {
    place(std::move(value));
    return true;
  }

  bool open(Json&& value) {
    if (levels_.size() == kMaxLevels) refuseMalformed("The JSON has too many levels");
    levels_.push_back(&place(std::move(value)));
    return true;
  }

  bool close() {
    levels_.pop_back();
    return true;
  }

  Json& result_;
  std::vector<Json*> levels_;
  Json* member_ = nullptr;
  std::size_t values_ = 0;
};

void encodeString(std::string_view text, std::string& out) {
  const auto isEscaped = [](char c) { return c == '"' || c == '\\'; };
  out += '"';
  for (auto plain = text.begin(); plain != text.end();) {
    const auto end = std::find_if(plain, text.end(), isEscaped);
    out.append(plain, end);
    if (end == text.end()) break;
    (out += '\\') += *end;
    plain = end + 1;
  }
  out += '"';
}

void encode(const Json& value, std::string& out) {
  switch (value.type()) {
    case Json::value_t::object: {
      char separator = '{';
      for (const auto& [name, member] : value.get_ref<const Json::object_t&>()) {
        out += std::exchange(separator, ',');
        encodeString(name, out);
        out += ':';
        encode(member, out);
      }
      out += value.empty() ? "{}" : "}";
      break;
    }
    case Json::value_t::array: {
      char separator = '[';
      for (const Json& element : value) {
        out += std::exchange(separator, ',');
        encode(element, out);
      }
      out += value.empty() ? "[]" : "]";
      break;
    }
    case Json::value_t::string:
      encodeString(value.get_ref<const std::string&>(), out);
      break;
    case Json::value_t::number_unsigned:
      out += std::to_string(value.get<std::uint64_t>());
      break;
    case Json::value_t::number_float:
      refuseMalformed("A number in what is signed is no integer");
    default:
      out += value.dump();
  }
}

}  // namespace

Json parseJson(std::string_view text) {
  osal_growHeap(kGrowth * text.size());
  Json result;
  Builder builder(result);
  // The library takes a NUL for the end, whatever is behind it.
  const bool isCut = text.find('\0') != std::string_view::npos;
  if (isCut || !Json::sax_parse(text.begin(), text.end(), &builder)) refuseMalformed("No JSON");
  return result;
}

std::string canonicalJson(const Json& value, std::size_t expectedSize) {
  std::string out;
  out.reserve(expectedSize);
  encode(value, out);
  return out;
}

std::string shown(const std::string& name) {
  return Json(name).dump(-1, ' ', true, Json::error_handler_t::replace);
}

}  // namespace tuf
