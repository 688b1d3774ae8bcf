#pragma once

#include <map>
#include <string>

#include "runtime/Export.h"
#include "runtime/PtrInterface.h"
#include "runtime/Types.h"

namespace Zet {

class LogHandle;

/// One line of trace as it leaves the engine.
struct TraceLine {
  char const* handle;       ///< name of the TraceHandle
  char const* traceName;    ///< kind of trace, "entry" or "trace"
  int level;                ///< 0 to 9
  bool coverage;            ///< built for coverageStream_ alone, the handle's level being off
  char const* function;     ///< where it was written
  int line;                 ///< line of the source file
  char const* sourceBlock;  ///< the machine that wrote it
  std::string text;         ///< without a line end
};

/// What surrounds one router: its clock, its RNG, and where its trace and log lines go. A host derives
/// from it and enters it around every call into the router's objects; a thread has one current context at a
/// time.
class PIMBSR_API Context {
 public:
  /// A clock starts far from 0, since 0 means "not set" to the machines.
  static constexpr double firstTime = 1e9;

  Context() = default;
  virtual ~Context() = default;
  Context(Context const&) = delete;
  Context& operator=(Context const&) = delete;

  /// The time of the event being served, in seconds. The host sets it once per event.
  double now() const { return now_; }
  /// Moves the clock. A time before the present one has no effect: the clock never runs backwards.
  void nowIs(double seconds) {
    if (seconds > now_) now_ = seconds;
  }

  /// The engine's RNG: a number from 0 to RAND_MAX. By default the C library's sequence.
  virtual int rand();
  /// Seeds rand(). By default it seeds the C library's sequence, which the whole process shares.
  virtual void srand(unsigned seed);

  /// Takes a line of trace; by default it is written to the standard error stream.
  virtual void trace(TraceLine const& line);
  /// Takes a message of the system log, already rate-limited; by default as trace() does.
  virtual void log(LogHandle const& handle, std::string const& text);
  /// Takes one message from the rate limit of a handle; false if none is left at this time. Each context has
  /// limits of its own.
  bool takeFromLogLimit(LogHandle const& handle);

  /// Number of exceptions that were caught from notifiees since the start. A rise shows a value that a setter
  /// rejected after it was stored, or a bug.
  U64 notificationExceptions() const { return notificationExceptions_; }
  /// Counts one more; the runtime does it for each exception that it catches.
  void notificationExceptionsInc() { ++notificationExceptions_; }

  /// The context of this thread; a plain one of its own until a Scope enters another.
  static Context& current();

  /// Makes a context current for as long as the scope exists.
  class PIMBSR_API Scope {
   public:
    /// Makes `context`, which must outlive the scope, current on this thread. The end of the scope puts the
    /// former one back, so scopes must nest.
    explicit Scope(Context& context);
    ~Scope();
    Scope(Scope const&) = delete;
    Scope& operator=(Scope const&) = delete;

   private:
    Context* former_;
  };

 private:
  struct Bucket {
    double tokens;
    double filled;
  };

  double now_ = firstTime;
  U64 notificationExceptions_ = 0;
  std::map<LogHandle const*, Bucket> logBuckets_;
};

/// The time of the event being served, in seconds, on the clock of the current context.
inline double now() { return Context::current().now(); }

}  // namespace Zet
