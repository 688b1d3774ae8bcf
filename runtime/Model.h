#pragma once

#include <ostream>
#include <string>

#include "runtime/Collections.h"
#include "runtime/Entity.h"
#include "runtime/Machine.h"
#include "runtime/NboAttrLogDemuxer.h"
#include "runtime/Reflection.h"

/// The behaviour of attributes, written once: what each accessor that is made from a declaration calls.
/// "change" is what follows a change that was stored: the class's own handler, then the notifiees.
namespace Zet {

/// The range of an attribute, and the text that a value outside it raises.
template <class T>
struct Range {
  T min;             ///< the lowest value allowed
  T max;             ///< the highest value allowed
  char const* text;  ///< that of the exception
  /// Raises RangeException with the text for a value outside.
  void check(T const& value) const {
    if (value < min || max < value) throwRangeException(text);
  }
};

/// A setter of a plain attribute: an equal value is no change; else store, then notify.
template <class T, class Change>
void setValue(T& stored, T const& value, Change const& change) {
  if (stored == value) return;
  stored = value;
  change();
}

/// The same with a range. It stores before it tests, so a value out of range stays stored and isn't notified.
template <class T, class Change>
void setValue(T& stored, T const& value, Range<T> const& range, Change const& change) {
  if (stored == value) return;
  stored = value;
  range.check(value);
  change();
}

/// A setter of one member of a value collection.
template <class V, class K, class Change>
void setMember(ValueMap<V, K>& map, K const& key, V const& value, Change const& change) {
  ValueMember<V, K>* member = map.find(key);
  if (member != nullptr && member->value == value) return;
  if (member != nullptr) {
    member->value = value;
  } else {
    map.insert(make<ValueMember<V, K>>(key, value));
  }
  change(key);
}

/// Removes a member and gives back its value; the default, and no change, for an absent key.
template <class V, class K, class Change>
V delMember(ValueMap<V, K>& map, K const& key, Change const& change) {
  Ptr<ValueMember<V, K>> removed = map.remove(key);
  if (!removed) return V();
  change(removed->fwkKey());
  return removed->value;
}

/// The value under a key; the default for an absent one.
template <class V, class K>
V memberValue(ValueMap<V, K> const& map, K const& key) {
  ValueMember<V, K>* member = map.find(key);
  return member == nullptr ? V() : member->value;
}

/// Removes an owned member; an absent key does nothing.
template <class V, class K, class Change>
void delObject(HashMap<V, K>& map, K const& key, Change const& change) {
  Ptr<V> removed = map.remove(key);
  if (removed) change(removed->fwkKey());
}

/// Removes all members one by one, each as by itself.
template <class V, class K, class Del>
void delAll(HashMap<V, K>& map, Del const& del) {
  for (auto at = map.iterator(); at; ++at) del(K(at.key()));
}

/// Get-or-create of a single owned object: `test` may reject the one held, `change` reports a new one.
template <class T, class Test, class Make, class Change>
Ptr<T> getOrMake(Ptr<T> const& held, Test const& test, Make const& make, Change const& change) {
  if (held) {
    test(*held);
    return held;
  }
  Ptr<T> made = make();
  change();
  return made;
}

/// The same of an owned member of a collection.
template <class T, class K, class Test, class Make, class Change>
Ptr<T> getOrMake(HashMap<T, K> const& map, K const& key, Test const& test, Make const& make,
                 Change const& change) {
  if (Ptr<T> found = map.find(key); found) {
    test(*found);
    return found;
  }
  Ptr<T> made = make();
  change(key);
  return made;
}

/// Removes a single owned object; null does nothing.
template <class T, class Change>
void delSingle(Ptr<T>& held, Change const& change) {
  if (Ptr<T> gone = std::move(held); gone) change();
}

/// The name of a member that is called after its key: the key's plain text.
template <class K>
Name nameOf(K const& key) {
  if constexpr (requires { key.stringValue(); }) {
    return Name(key.stringValue());
  } else if constexpr (std::is_convertible_v<K, String8>) {
    return Name(key);
  } else {
    return Name(valueToStrep(key));
  }
}

/// Get-or-create found a member: it must have been made with the same argument. The text ends with the held
/// value.
template <class T>
void checkSameArgument(char const* attribute, T const& held, T const& given) {
  if (held == given) return;
  throwNameInUseException("Reinstantiating the pointer interface where constructor parameter attribute _" +
                          std::string(attribute) + " has a different value of " +
                          std::string(strep(held).view()));
}

/// The mutator of a collection of nested reactors raises on a null member.
[[noreturn]] PIMBSR_API void throwNullReactor(char const* type, char const* attribute);

}  // namespace Zet
