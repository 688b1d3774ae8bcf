#pragma once

#include <vector>

#include "runtime/HashMap.h"

namespace test {

/// A key whose hash a test chooses.
struct ChosenKey {
  Zet::U32 hash = 0;
  Zet::U32 id = 0;
  friend auto operator<=>(ChosenKey const&, ChosenKey const&) = default;
};
inline Zet::U32 rhash(ChosenKey const& key) { return key.hash; }

class ChosenMember : public Zet::Keyed<ChosenKey, Zet::PtrInterface> {
 public:
  explicit ChosenMember(ChosenKey const& key) : Zet::Keyed<ChosenKey, Zet::PtrInterface>(key) {}
};

using ChosenMap = Zet::HashMap<ChosenMember, ChosenKey>;

inline void add(ChosenMap& map, ChosenKey const& key) { map.insert(Zet::make<ChosenMember>(key)); }

inline std::vector<ChosenKey> walk(ChosenMap const& map) {
  std::vector<ChosenKey> keys;
  for (auto at = map.iterator(); at; ++at) keys.push_back(at.key());
  return keys;
}

}  // namespace test
