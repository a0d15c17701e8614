#include "Updater/config/settingsParser.h"

#include <algorithm>
#include <optional>
#include <tuple>

#include "Updater/config/nearestName.h"
#include "Updater/config/tomlLibrary.h"

namespace {

using Node = toml::node;

/// What reading a value gives: null, or the node that is wrong: the value itself or one in a list.
using Wrong = const Node*;

/// A value that has a text, which `parse` understands.
template <class Target, class Parse>
Wrong text(const Node& node, Target& target, Parse parse) {
  const auto* const value = node.as_string();
  if (value == nullptr) return &node;
  auto parsed = parse(value->get());
  if (!parsed) return &node;
  target = std::move(*parsed);
  return nullptr;
}

template <class Item, class Parse>
Wrong list(const Node& node, std::vector<Item>& target, Parse parse) {
  const toml::array* const items = node.as_array();
  if (items == nullptr) return &node;
  for (const Node& item : *items) {
    Item value;
    if (const Wrong wrong = text(item, value, parse)) return wrong;
    target.push_back(std::move(value));
  }
  return nullptr;
}

Wrong truth(const Node& node, bool& target) {
  const auto* const value = node.as_boolean();
  if (value == nullptr) return &node;
  target = value->get();
  return nullptr;
}

/// Bytes as a text with a unit, or as a bare number.
Wrong size(const Node& node, std::uint64_t& target, std::uint64_t least) {
  if (const auto* const number = node.as_integer()) {
    if (number->get() < 0) return &node;
    target = static_cast<std::uint64_t>(number->get());
  } else if (const Wrong wrong = text(node, target, parseSize)) {
    return wrong;
  }
  return target < least ? &node : nullptr;
}

/// A duration of at least a second.
std::optional<std::chrono::seconds> someTime(const std::string& value) {
  const auto duration = parseDuration(value);
  return duration && duration->count() > 0 ? duration : std::nullopt;
}

std::optional<std::string> anyText(const std::string& value) { return value; }

/// A path, or nothing for an empty text.
std::optional<std::string> optionalPath(const std::string& value) {
  return value.empty() ? value : parsePath(value);
}

std::optional<std::string> authorities(const std::string& value) {
  return value == "system" ? value : parsePath(value);
}

std::optional<bool> replacesConffiles(const std::string& value) {
  if (value != "keep" && value != "replace") return std::nullopt;
  return value == "replace";
}

Wrong packageCount(const Node& node, unsigned int& target) {
  const auto* const number = node.as_integer();
  if (number == nullptr || number->get() < 0 || number->get() > 9) return &node;
  target = static_cast<unsigned int>(number->get());
  return nullptr;
}

constexpr const char* kAddress = "an address such as \"https://updates.example.com/agent\"";
constexpr const char* kPath = "a path that begins with \"/\"";
constexpr const char* kTime =
    "a duration of at most 3660d with a unit (s, m, h, d), such as \"30m\"";
constexpr const char* kSomeTime = "a duration of at least \"1s\" (s, m, h, d), such as \"30m\"";
constexpr const char* kSize = "a size such as \"64MiB\" (KiB, MiB, GiB, or bytes without a unit)";
constexpr const char* kTruth = "true or false, without quotes";

struct Key {
  std::string_view name;  ///< with its section
  const char* takes;
  Wrong (*read)(const Node&, Settings&);
};

#define QD_READ(...) [](const Node& node, Settings& s) -> Wrong { return __VA_ARGS__; }

/// Every key of the file. A section's keys are read after the section itself was switched on.
constexpr Key kKeys[] = {
    {"server", kAddress, QD_READ(text(node, s.server, parseServerAddress))},
    {"mirrors", "a list of addresses such as [\"https://mirror.example.com/agent\"]",
     QD_READ(list(node, s.mirrors, parseServerAddress))},
    {"trust.root", kPath, QD_READ(text(node, s.trust->root, parsePath))},
    {"trust.channel", "a name of letters, digits, \".\", \"_\" and \"-\"",
     QD_READ(text(node, s.trust->channel, parseName))},
    {"fetch.proxy", "an address such as \"http://proxy:3128\", or \"\" for none",
     QD_READ(text(node, s.fetch.proxy, parseProxyAddress))},
    {"fetch.no_proxy", "a text such as \"localhost,.example.com\"",
     QD_READ(text(node, s.fetch.noProxy, anyText))},
    {"fetch.ca", "\"system\", or the path of a PEM file",
     QD_READ(text(node, s.fetch.ca, authorities))},
    {"fetch.client_cert", kPath, QD_READ(text(node, s.fetch.clientCert, optionalPath))},
    {"fetch.client_key", kPath, QD_READ(text(node, s.fetch.clientKey, optionalPath))},
    {"fetch.rate", "bytes a second, at least \"1KiB\", such as \"2MiB\"",
     QD_READ(size(node, s.fetch.rate, 1024))},
    {"fetch.deadline", kSomeTime, QD_READ(text(node, s.fetch.deadline, someTime))},
    {"install.lock_wait", kTime, QD_READ(text(node, s.install.lockWait, parseDuration))},
    {"install.reserve", kSize, QD_READ(size(node, s.install.reserve, 0))},
    {"install.rehearse", kTruth, QD_READ(truth(node, s.install.rehearse))},
    {"install.conffiles", "\"keep\" or \"replace\"",
     QD_READ(text(node, s.install.replaceConffiles, replacesConffiles))},
    {"health.settle", kTime, QD_READ(text(node, s.health->settle, parseDuration))},
    {"health.timeout", kSomeTime, QD_READ(text(node, s.health->timeout, someTime))},
    {"health.rollback", kTruth, QD_READ(truth(node, s.health->rollback))},
    {"health.keep", "a number from 0 to 9, without quotes",
     QD_READ(packageCount(node, s.health->keep))},
    {"rollout.window", "a list of times such as [\"Mon-Fri 01:00-04:00\", \"Sun 22:00-02:00\"]",
     QD_READ(list(node, s.rollout->windows, parseWindow))},
    {"rollout.min_age", kTime, QD_READ(text(node, s.rollout->minAge, parseDuration))},
    {"rollout.pin",
     "a version such as \"7.2.1.15\", or its beginning and a \"*\", such as \"7.2.*\"",
     QD_READ(text(node, s.rollout->pin, VersionPin::parse))},
    {"report.textfile", kPath, QD_READ(text(node, s.report.textfile, optionalPath))},
    {"report.history", "a size of at least \"4KiB\", such as \"1MiB\"",
     QD_READ(size(node, s.report.history, 4096))},
};

#undef QD_READ

struct Section {
  std::string_view name;
  void (*switchOn)(Settings&);
};

constexpr Section kSections[] = {
    {"trust", [](Settings& s) { s.trust.emplace(); }},
    {"fetch", [](Settings&) {}},
    {"install", [](Settings&) {}},
    {"health", [](Settings& s) { s.health.emplace(); }},
    {"rollout", [](Settings& s) { s.rollout.emplace(); }},
    {"report", [](Settings&) {}},
};

std::vector<std::string_view> allNames() {
  std::vector<std::string_view> names;
  for (const Key& key : kKeys) names.push_back(key.name);
  for (const Section& section : kSections) names.push_back(section.name);
  return names;
}

/// A text of the file for a message of one line: control characters as "?".
std::string printable(std::string_view text) {
  std::string result(text);
  std::ranges::replace_if(
      result, [](unsigned char c) { return c < ' ' || c == 0x7f; }, '?');
  return result;
}

/// In quotes, and cut where it is long. A `quoted` for strings is the standard library's own.
std::string inQuotes(std::string_view value) {
  constexpr std::size_t kMost = 60;
  return '"' + printable(value.substr(0, kMost)) + (value.size() > kMost ? "...\"" : "\"");
}

std::string shown(const Node& value) {
  if (const auto* const text = value.as_string()) return inQuotes(text->get());
  if (const auto* const number = value.as_integer()) return std::to_string(number->get());
  if (const auto* const flag = value.as_boolean()) return flag->get() ? "true" : "false";
  if (value.is_array()) return "a list";
  if (value.is_table()) return "a section";
  return value.is_number() ? "a fraction" : "a date or time";
}

class Reader {
 public:
  std::variant<Settings, SettingsFault> read(const toml::table& file) {
    for (const auto& [key, node] : file) readTopLevel(key, node);
    if (!fault_) checkTogether(file);
    if (fault_) return *fault_;
    settings_.hasPassword = holdsPassword();
    return settings_;
  }

 private:
  void readTopLevel(const toml::key& key, const Node& node) {
    const auto* const section = std::ranges::find(kSections, key.str(), &Section::name);
    if (section == std::end(kSections)) return readKey(std::string(key.str()), key, node);
    const toml::table* const keys = node.as_table();
    if (keys == nullptr) {
      const std::string name(section->name);
      return complain(key.source(), inQuotes(name) + " is a section: write [" + name +
                                        "] once, on a line of its own, with its keys below it");
    }
    section->switchOn(settings_);
    for (const auto& [inner, value] : *keys) {
      readKey(std::string(key.str()) + "." + std::string(inner.str()), inner, value);
    }
  }

  void readKey(const std::string& name, const toml::key& key, const Node& node) {
    const auto* const known = std::ranges::find(kKeys, name, &Key::name);
    if (known == std::end(kKeys)) {
      const std::string nearest(nearestName(name, allNames()));
      return complain(key.source(), "unknown key " + inQuotes(name) + "; did you mean " +
                                        inQuotes(nearest) + "?");
    }
    if (const Wrong wrong = known->read(node, settings_)) {
      complain(wrong->source(),
               inQuotes(name) + " takes " + known->takes + "; here is " + shown(*wrong));
    }
  }

  /// Checks keys that depend on each other.
  void checkTogether(const toml::table& file) {
    if (settings_.trust && settings_.trust->root.empty()) {
      complain(file["trust"].node()->source(),
               "[trust] needs \"root\": the path of the first trusted root, which the publisher "
               "of the packages gives out");
    }
    if (settings_.rollout && settings_.rollout->minAge.count() > 0 && !settings_.trust) {
      complain(
          file["rollout"]["min_age"].node()->source(),
          "\"min_age\" is used only with [trust], whose releases say since when they are there: "
          "add that section or remove this key");
    }
    if (!settings_.mirrors.empty() && !settings_.trust) {
      complain(file["mirrors"].node()->source(),
               "\"mirrors\" are used only with [trust], which tells a mirror's packages from "
               "forged ones: add that section or remove this key");
    }
    const FetchSettings& fetch = settings_.fetch;
    if (fetch.clientCert.empty() != fetch.clientKey.empty()) {
      complain(file["fetch"].node()->source(),
               "\"fetch.client_cert\" and \"fetch.client_key\" belong together: set both or none");
    }
  }

  [[nodiscard]] bool holdsPassword() const {
    return addressHasPassword(settings_.server) ||
           std::ranges::any_of(settings_.mirrors, addressHasPassword) ||
           (settings_.fetch.proxy && addressHasPassword(*settings_.fetch.proxy));
  }

  /// The first in the text wins.
  void complain(const toml::source_region& place, std::string what) {
    const auto& [line, column] = place.begin;
    if (fault_ && std::tie(fault_->line, fault_->column) <= std::tie(line, column)) return;
    fault_ = SettingsFault{line, column, std::move(what)};
  }

  Settings settings_;
  std::optional<SettingsFault> fault_;
};

}  // namespace

std::string describeFault(const std::string& file, const SettingsFault& fault) {
  if (fault.line == 0) return file + ": " + fault.text;
  return file + ":" + std::to_string(fault.line) + ":" + std::to_string(fault.column) + ": " +
         fault.text;
}

std::variant<Settings, SettingsFault> parseSettings(std::string_view text) try {
  return Reader().read(toml::parse(text));
} catch (const toml::parse_error& e) {
  const auto& [line, column] = e.source().begin;
  return SettingsFault{line, column, printable(e.description())};
}
