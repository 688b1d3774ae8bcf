#include "agent/base/LogLimit.h"

#include <fmt/format.h>

#include <algorithm>

namespace pimbsr::agent {

/// Seconds without a line after which a subject has all of its burst again.
static constexpr double idleTime = LogLimit::burst * LogLimit::interval;

static std::string subjectOf(LogRecord const& record) {
  std::string text;
  for (auto const& [name, value] : record.subject) text += value + ' ';
  return record.subject.empty() ? record.text : text;
}

/// Forgets the subject that had no line for longest, if that was long enough. Returns whether it did.
bool LogLimit::makeRoom(Kind& kind, std::string_view name, double now) {
  auto oldest = kind.byUse.begin();
  if (now - oldest->first < idleTime) return false;
  Key key(name, oldest->second);
  if (held_.contains(key)) return false;
  buckets_.erase(key);
  kind.byUse.erase(oldest);
  return true;
}

static std::string_view groupOf(LogEvent const& event) {
  return event.group.empty() ? event.name : event.group;
}

/// The key of a line; that of the other subjects of its kind if there is no room for one more.
LogLimit::Key LogLimit::keyOf(LogRecord const& record, double now) {
  Key key(groupOf(record.event), subjectOf(record));
  Kind& kind = kinds_[key.first];
  auto former = buckets_.find(key);
  if (former != buckets_.end()) {
    kind.byUse.erase({former->second.tokens.filled, key.second});
  } else if (kind.byUse.size() >= maxSubjects && !makeRoom(kind, key.first, now)) {
    return {key.first, {}};
  }
  kind.byUse.insert({now, key.second});
  return key;
}

template <class Tokens>
static void fill(Tokens& tokens, double burst, double interval, double now) {
  if (tokens.filled != 0) tokens.count = std::min(burst, tokens.count + (now - tokens.filled) / interval);
  tokens.filled = now;
}

/// Takes a token of a subject and one of its kind if there are both. Returns whether there were.
bool LogLimit::takeToken(Bucket& bucket, Kind& kind, double now) {
  fill(kind.tokens, kindBurst, kindInterval, now);
  if (bucket.tokens.count < 1 || kind.tokens.count < 1) return false;
  bucket.tokens.count -= 1;
  kind.tokens.count -= 1;
  return true;
}

static double whole(double seconds) { return std::max(1.0, seconds); }

/// The last line that was held back, with its age and the number of those before it.
LogRecord LogLimit::summed(Bucket& bucket, double now) {
  LogRecord record = std::move(bucket.last);
  record.text += fmt::format(" ({:.0f} s ago", whole(now - bucket.at));
  if (bucket.suppressed > 1) {
    record.text += fmt::format("; {} lines before this one were suppressed in {:.0f} s",
                               bucket.suppressed - 1, whole(bucket.at - bucket.since));
  }
  record.text += ')';
  bucket.suppressed = 0;
  return record;
}

std::optional<LogRecord> LogLimit::take(LogRecord record, double now) {
  Key key = keyOf(record, now);
  Bucket& bucket = buckets_[key];
  fill(bucket.tokens, burst, interval, now);
  if (bucket.suppressed == 0 && takeToken(bucket, kinds_[key.first], now)) return record;
  if (bucket.suppressed++ == 0) bucket.since = now;
  bucket.at = now;
  bucket.last = std::move(record);
  held_.insert(std::move(key));
  return std::nullopt;
}

/// The last of them is what holds now.
std::vector<LogLimit::Key> LogLimit::heldByAge() const {
  std::vector<Key> keys(held_.begin(), held_.end());
  auto before = [this](Key const& a, Key const& b) { return buckets_.at(a).at < buckets_.at(b).at; };
  std::stable_sort(keys.begin(), keys.end(), before);
  return keys;
}

/// The subject's time of its last line stays as keyOf() knows it: what it gained since is added for the look
/// alone, and again with its next line.
std::vector<LogRecord> LogLimit::takeDue(double now) {
  std::vector<LogRecord> due;
  for (Key const& key : heldByAge()) {
    Bucket& bucket = buckets_.at(key);
    Tokens former = bucket.tokens;
    fill(bucket.tokens, burst, interval, now);
    bool isDue = takeToken(bucket, kinds_.at(key.first), now);
    bucket.tokens = {former.count - (isDue ? 1 : 0), former.filled};
    if (!isDue) continue;
    due.push_back(summed(bucket, now));
    held_.erase(key);
  }
  return due;
}

std::vector<LogRecord> LogLimit::takeAll(double now) {
  std::vector<LogRecord> all;
  for (Key const& key : heldByAge()) all.push_back(summed(buckets_.at(key), now));
  held_.clear();
  return all;
}

}  // namespace pimbsr::agent
