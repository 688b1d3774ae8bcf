#pragma once

#include <map>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "runtime/Activity.h"
#include "runtime/NboAttrLogSa.h"

/// The receiving side of the attribute log: applies to copies what logs send.
namespace Zet::NboAttrLog {

/// The objects of one copy by the numbers that its log gave them.
using Objects = std::map<U32, Ptr<PtrInterface>>;

/// What one message changes in one attribute.
struct Update {
  Op op;                  ///< what the message does
  AttributeId attribute;  ///< which one of the object
  In in;                  ///< what follows the header
  Objects& objects;       ///< of the copy; gains what is made and loses what has ended
};

/// Carries out an update of an object. Raises: RangeException, once all else of the update is done, for a
/// value that its setter rejects and holds nevertheless, as the original does; other exceptions for what is
/// no update of this object.
PIMBSR_API void deserializeAttr(PtrInterface& object, Update& update);
/// A constant object has no updates: raises "write-update from readonly proxy: " with the attribute's name.
[[noreturn]] PIMBSR_API void deserializeAttr(PtrInterface const& object, Update const& update);

/// Divides the bytes of a channel among the copies of the flows in it.
///
/// Bytes may come in pieces of any size. Nothing that they hold ends the process or makes the copy hold more
/// than a fixed multiple of what has come.
class PIMBSR_API Demuxer : public PtrInterface {
 public:
  /// A message longer than `maxMessage` bytes breaks the channel.
  explicit Demuxer(std::size_t maxMessage = std::size_t{1} << 26) : maxMessage_(maxMessage) {}

  /// Lets a flow feed a copy, from the next snapshot on; null ends that. The flow alone should write to a
  /// copy; others are handed it as a constant object.
  void copyIs(U32 flow, Ptr<PtrInterface> const& copy);
  /// Lets nothing change an object: each update that arrives is rejected by its text.
  void readOnlyIs(U32 flow, Ptr<PtrInterface const> const& object);

  /// Takes the next bytes of the channel. From within itself, such as from a handler of a copy, it keeps them
  /// for the call that is under way. It raises nothing: a message that can't be kept breaks the channel.
  void bytes(std::span<U8 const> bytes);
  /// Forgets a part of a message and that the channel is broken: for a new one.
  void reset();

  /// The framing is lost; bytes are ignored until reset().
  bool isBroken() const { return isBroken_; }
  /// Messages that came whole, those included that were ignored or could not be applied.
  U64 messages() const { return messages_; }
  /// Values that their setters rejected, and hold as the original does.
  U64 outOfRange() const { return outOfRange_; }
  /// Messages that could not be applied.
  U64 rejected() const { return rejected_; }
  /// The text of the last exception.
  std::string const& lastError() const { return lastError_; }

  /// A copy may differ from its original until a snapshot comes. It is called once until then, and not again
  /// because of an error in that snapshot. One that raises is called again with the next change of the flow,
  /// as is one after a snapshot for which there was no memory.
  virtual void onSnapshotNeeded(U32) {}

 private:
  /// What is done about a copy that may differ from its original. All but `none` ignore changes.
  enum class Repair : U8 {
    none,   ///< nothing, it is equal
    due,    ///< a snapshot is to be asked for with the next change
    asked,  ///< a snapshot was asked for
    failed  ///< the last snapshot had an error; none is asked for
  };

  struct Copy {
    Ptr<PtrInterface> object;
    Ptr<PtrInterface const> readOnly;
    Objects objects;
    Repair repair = Repair::none;
  };

  void take(std::span<U8 const> bytes);
  bool beginsWithMessage(std::span<U8 const> bytes) const;
  bool keepRest(std::span<U8 const> bytes);
  std::size_t takeMessages(std::span<U8 const> bytes);
  void takeMessage(In in);
  void takeBody(U32 flow, Op op, In in);
  void apply(Copy& copy, Op op, U32 id, AttributeId attribute, In in);
  void takeSnapshot(Copy& copy, In in);
  void reject(U32 flow, Op op, char const* error, bool isForGood) noexcept;
  void askIfDue(U32 flow, Copy& copy) noexcept;
  void breakChannel(char const* error) noexcept;
  void noteError(char const* error) noexcept;

  std::size_t maxMessage_;
  std::map<U32, Copy> copies_;
  std::vector<U8> kept_;  ///< the beginning of a message whose rest has not come
  bool isBroken_ = false;
  U64 messages_ = 0;
  U64 outOfRange_ = 0;
  U64 rejected_ = 0;
  std::string lastError_;
};

}  // namespace Zet::NboAttrLog
