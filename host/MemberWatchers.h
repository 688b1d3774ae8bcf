#pragma once

#include <map>

#include "runtime/Ptr.h"

namespace pimbsr::host {

/// A reactor for each member of a keyed collection, as long as the member is in it.
template <class Key, class Watcher>
class MemberWatchers {
 public:
  /// Has the key's watcher watch the member; `make` makes one if there is none yet. Null removes it.
  template <class Member, class Make>
  void follow(Key const& key, Zet::Ptr<Member> const& member, Make const& make) {
    if (!member) return remove(key);
    Zet::Ptr<Watcher>& watcher = watchers_[key];
    if (!watcher) watcher = make();
    watcher->notifierIs(member);
  }

  /// Ends all of them.
  void clear() {
    for (auto& [key, watcher] : watchers_) watcher->notifierIs(nullptr);
    watchers_.clear();
  }

 private:
  void remove(Key const& key) {
    auto at = watchers_.find(key);
    if (at == watchers_.end()) return;
    at->second->notifierIs(nullptr);
    watchers_.erase(at);
  }

  std::map<Key, Zet::Ptr<Watcher>> watchers_;
};

}  // namespace pimbsr::host
