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

/// The key of a line; that of the other subjects of its kind if there is no room for one more.
LogLimit::Key LogLimit::keyOf(LogRecord const& record, double now) {
  Key key(record.event.name, subjectOf(record));
  Kind& kind = kinds_[key.first];
  auto former = buckets_.find(key);
  if (former != buckets_.end()) {
    kind.byUse.erase({former->second.filled, key.second});
  } else if (kind.byUse.size() >= maxSubjects && !makeRoom(kind, key.first, now)) {
    return {key.first, {}};
  }
  kind.byUse.insert({now, key.second});
  return key;
}

void LogLimit::fill(Bucket& bucket, double now) {
  if (bucket.filled != 0) bucket.tokens = std::min(burst, bucket.tokens + (now - bucket.filled) / interval);
  bucket.filled = now;
}

/// The last line that was held back, with the number of those that it stands for.
LogRecord LogLimit::summed(Bucket& bucket, double now) {
  LogRecord record = std::move(bucket.last);
  if (bucket.suppressed > 1) {
    record.text += fmt::format(" ({} lines before this one were suppressed in {:.0f} s)",
                               bucket.suppressed - 1, std::max(1.0, now - bucket.since));
  }
  bucket.suppressed = 0;
  return record;
}

std::optional<LogRecord> LogLimit::take(LogRecord record, double now) {
  Key key = keyOf(record, now);
  Bucket& bucket = buckets_[key];
  fill(bucket, now);
  if (bucket.suppressed == 0 && bucket.tokens >= 1) {
    bucket.tokens -= 1;
    return record;
  }
  if (bucket.suppressed++ == 0) bucket.since = now;
  bucket.last = std::move(record);
  held_.insert(std::move(key));
  return std::nullopt;
}

std::vector<LogRecord> LogLimit::takeDue(double now) {
  std::vector<LogRecord> due;
  for (auto at = held_.begin(); at != held_.end();) {
    Bucket& bucket = buckets_.at(*at);
    double tokens = bucket.tokens + (now - bucket.filled) / interval;
    if (tokens < 1) {
      ++at;
      continue;
    }
    bucket.tokens -= 1;  // what it gained since is added with its next line
    due.push_back(summed(bucket, now));
    at = held_.erase(at);
  }
  return due;
}

std::vector<LogRecord> LogLimit::takeAll() {
  std::vector<LogRecord> all;
  for (Key const& key : std::exchange(held_, {})) {
    Bucket& bucket = buckets_.at(key);
    all.push_back(summed(bucket, bucket.filled));
  }
  return all;
}

}  // namespace pimbsr::agent
