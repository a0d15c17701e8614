#pragma once

#include <cstring>
#include <span>
#include <string>
#include <vector>

#include "base/sysdef/tunables.h"
#include "sysdef/qdTunableTypes.h"
#include "sysdef/qdTunablesBase.h"

/// Size of a tunable's variable in bytes.
inline std::size_t tunableSize(QDTunableType type) {
  switch (type) {
    case QD_TUNABLE_TYPE_BOOL:
      return sizeof(qdtunable::BOOL);
    case QD_TUNABLE_TYPE_U32:
      return sizeof(qdtunable::U32);
    case QD_TUNABLE_TYPE_U64:
      return sizeof(qdtunable::U64);
    case QD_TUNABLE_TYPE_STR:
      return sizeof(qdtunable::STR);
    default:
      return 0;
  }
}

/// Every tunable of both tables, those of the agent suite first.
inline std::vector<QDTunablesS> allTunables() {
  std::vector<QDTunablesS> all(std::begin(tunablesOVT), std::end(tunablesOVT));
  all.insert(all.end(), std::begin(tunablesBase), std::end(tunablesBase));
  return all;
}

/// Puts every tunable back to what it was when the guard was made.
class TunablesGuard {
 public:
  TunablesGuard() {
    for (const QDTunablesS& record : all_) {
      values_.emplace_back(static_cast<const char*>(record.value), tunableSize(record.type));
    }
  }
  TunablesGuard(const TunablesGuard&) = delete;
  TunablesGuard& operator=(const TunablesGuard&) = delete;
  ~TunablesGuard() { restore(); }

  void restore() const {
    for (std::size_t i = 0; i < all_.size(); ++i) {
      std::memcpy(all_[i].value, values_[i].data(), values_[i].size());
    }
  }

  /// The tunables that differ from what they were, as "KEY ".
  [[nodiscard]] std::string changed() const {
    std::string names;
    for (std::size_t i = 0; i < all_.size(); ++i) {
      if (std::memcmp(all_[i].value, values_[i].data(), values_[i].size()) != 0) {
        names += std::string(all_[i].name) + " ";
      }
    }
    return names;
  }

 private:
  std::vector<QDTunablesS> all_ = allTunables();
  std::vector<std::string> values_;
};
