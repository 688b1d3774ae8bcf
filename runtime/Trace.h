#pragma once

#include <iosfwd>
#include <sstream>
#include <string_view>
#include <vector>

#include "runtime/Export.h"
#include "runtime/Types.h"

namespace Zet {

/// Set, it makes every trace statement build its text and write it here too, whatever is enabled: what a test
/// of the texts' coverage listens to. Null by default; the caller owns the stream.
PIMBSR_API extern std::ostream* coverageStream_;

/// The switch of one family of traces: a master enable, off at first, and one enable per level 0 to 9, all on
/// at first. Level 9 is a function's entry, 8 a change done, 4 an accepted message, 1 a dropped one.
class PIMBSR_API TraceHandle {
 public:
  static constexpr int levels = 10;  ///< number of levels, which count from 0

  /// The handle of that name, made on first use and of static life.
  static TraceHandle& handle(std::string_view name);
  /// All handles made so far, by name.
  static std::vector<TraceHandle*> handles();

  /// Its name, of static life.
  char const* name() const { return name_; }
  /// The master enable.
  bool enabled() const { return enabled_; }
  /// Switches the master enable; the levels stay as they are.
  void enabledIs(bool on) { enabled_ = on; }
  /// The enable of level `n`, which must be 0 to 9; that isn't tested here.
  bool level(int n) const { return (levels_ >> n & 1u) != 0; }
  /// A level outside 0 to 9 raises RangeException.
  void levelIs(int n, bool on);

  /// Whether a trace statement of this level has to build its text.
  bool wants(int n) const { return (enabled_ && level(n)) || coverageStream_ != nullptr; }
  /// Whether a text of this level is wanted by coverageStream_ alone.
  bool isOnlyForCoverage(int n) const { return !(enabled_ && level(n)); }

 private:
  explicit TraceHandle(char const* name) : name_(name) {}

  char const* name_;
  bool enabled_ = false;
  U32 levels_ = (1u << levels) - 1;
};

/// A handle as one machine writes to it.
struct TraceSource {
  /// Writes under the handle of that name, which is made if there is none. `block` must outlive the source.
  TraceSource(char const* handleName, char const* block)
      : handle(TraceHandle::handle(handleName)), sourceBlock(block) {}
  /// As of the handle.
  bool wants(int level) const { return handle.wants(level); }

  TraceHandle& handle;      ///< the switch of what is written
  char const* sourceBlock;  ///< name of the machine, as lines show it
};

/// Emits a line whose text is in `stream` to the current context, and to coverageStream_ if that is set.
PIMBSR_API void traceHelper(char const* handleName, char const* traceName, std::ostringstream const& stream,
                            int level, bool coverage, char const* function, int line,
                            char const* sourceBlock);

}  // namespace Zet

/// Writes `text`, a chain of stream operands, under the source's handle. Nothing of it is evaluated when it
/// is off.
#define ZET_TRACE(source, number, text)                                                 \
  do {                                                                                  \
    if ((source).wants(number)) {                                                       \
      std::ostringstream zetTraceText;                                                  \
      zetTraceText << text;                                                             \
      ::Zet::traceHelper((source).handle.name(), "trace", zetTraceText, number,         \
                         (source).handle.isOnlyForCoverage(number), __func__, __LINE__, \
                         (source).sourceBlock);                                         \
    }                                                                                   \
  } while (false)

/// The trace of a function's entry: level 9, its full signature as text.
#define ZET_TRACE_ENTRY(source) ZET_TRACE(source, 9, __PRETTY_FUNCTION__)
