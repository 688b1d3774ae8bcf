#include "runtime/Log.h"

#include <algorithm>

#include "runtime/Context.h"

namespace Zet {

LogHandle::LogHandle(char const* name, LogSeverity severity, char const* format, char const* explanation,
                     char const* recommendedAction, double interval, double burst, U8 rateFlags)
    : name_(name),
      severity_(severity),
      format_(format),
      explanation_(explanation),
      recommendedAction_(recommendedAction),
      interval_(interval),
      burst_(burst),
      rateFlags_(rateFlags) {}

bool LogHandle::take() const {
  if (interval_ <= 0.0) return true;
  Context& context = Context::current();
  auto [at, fresh] = context.logBuckets_.try_emplace(this, Context::Bucket{burst_, context.now()});
  Context::Bucket& bucket = at->second;
  bucket.tokens = std::min(burst_, bucket.tokens + (context.now() - bucket.filled) / interval_);
  bucket.filled = context.now();
  if (bucket.tokens < 1.0) return false;
  bucket.tokens -= 1.0;
  return true;
}

void log(LogHandle const& handle, String8 const& argument) {
  if (!handle.take()) return;
  String8 text = format(handle.format(), argument.charPtr());
  Context::current().log(handle, std::string(text.view()));
}

}  // namespace Zet
