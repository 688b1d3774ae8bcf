#pragma once

#include <map>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "runtime/NboAttrLogRow.h"
#include "runtime/Notifiee.h"

namespace Zet {

/// Carries a log's bytes to where copies are. A host derives from it: a file, a connection. The bytes of a
/// call are whole messages, and the calls must arrive in their order.
class PIMBSR_API MsgChannel : public PtrInterface {
 public:
  /// Takes bytes, which live as long as the call. An exception says that none of them was taken; the log
  /// then sends a snapshot instead.
  virtual void send(std::span<U8 const> bytes) = 0;
};

/// Marks an object as active as long as the scope exists: one that works on a log and must not begin again
/// on the same stack. The end of the scope clears the mark, also when an exception leaves it.
class PIMBSR_API ClearIsActiveAnchor {
 public:
  /// Sets the object's mark and holds the object.
  explicit ClearIsActiveAnchor(PtrInterface& object) : object_(&object) {
    object.hasNotificationActiveIs(true);
  }
  ~ClearIsActiveAnchor() { object_->hasNotificationActiveIs(false); }
  ClearIsActiveAnchor(ClearIsActiveAnchor const&) = delete;
  ClearIsActiveAnchor& operator=(ClearIsActiveAnchor const&) = delete;

 private:
  Ptr<PtrInterface> object_;
};

}  // namespace Zet

/// The sending side of the attribute log.
///
/// A message is a U32 with the number of bytes that follow, the U32 number of the flow, a byte with what it
/// does, the U32 number of an object, the S32 number of an attribute, and what these need:
///
///   snapshot  fingerprint of the model (U32), name of the root's type, content of the root
///   value     the value
///   member    key, value
///   object    numbers that ended, key, arguments of the maker, number and content of the new object
///   del       numbers that ended, key
///
/// The content of an object is that of its attributes in the order of their rows: a value; a U32 count with
/// as many keys and values, or keys and objects; a bool and the object if there is one. An object is the
/// arguments of its maker, its number and its content. Numbers count from 1, the root's; a list of those that
/// ended is preceded by its U32 count.
namespace Zet::NboAttrLog {

/// What a message does, as its byte.
enum class Op : U8 {
  snapshot = 1,  ///< gives the whole tree
  value = 2,     ///< changes a plain value
  member = 3,    ///< adds or changes a plain value under a key
  object = 4,    ///< makes or replaces an object
  del = 5        ///< removes what is under a key, or the only object
};

inline constexpr U32 rootId = 1;  ///< number of the root's object

/// A number that depends on all that gives the bytes of a message their meaning: two programs with the same
/// number understand each other. It depends on the types with their bases; on the attributes that the log
/// carries, with number, name, kind, shape, type, key and the parameters of makers; on the fields of value
/// types; and on the enumerators with their numbers.
PIMBSR_API U32 modelFingerprint();
/// That of certain types, in their order.
PIMBSR_API U32 modelFingerprint(std::span<ZetType const* const> types);

/// The log of one tree of entities: watches it and sends each change. It counts the root, and no other object
/// of the tree.
///
/// Messages are gathered until flush() hands them to the channel. An error of its own, such as memory that is
/// used up, never reaches the setter: it discards what was gathered, and the next flush() sends a snapshot.
class PIMBSR_API FlowOut : public PtrInterface {
 public:
  /// Gathers at most `maxPending` bytes; more than that are given up for a snapshot.
  FlowOut(U32 number, ValidPtr<MsgChannel> const& channel, std::size_t maxPending = std::size_t{1} << 26);
  ~FlowOut() override;

  /// Follows another tree, or none for null; the next flush() begins with a snapshot. C is a class with
  /// zetHasAttrLogInterface.
  template <class C>
  void rootIs(Ptr<C const> const& root) {
    static_assert(C::zetHasAttrLogInterface());
    rootIs(root.ptr(), adaptChild<C>);
  }
  /// The next flush() sends the whole tree: for a copy that is new, or that asks for it.
  void snapshotIs() { needsSnapshot_ = true; }
  /// Whether the next flush() sends the whole tree; true at first.
  bool needsSnapshot() const { return needsSnapshot_; }
  /// Hands all messages to the channel. It may be called at any time, also from a handler; from within itself
  /// it does nothing.
  void flush();
  /// Bytes gathered since the last flush().
  std::size_t pending() const { return out_->size(); }
  /// How often an error, a full buffer or a channel that took nothing was made good by a snapshot.
  U64 failures() const { return failures_; }

 private:
  friend class Sa;

  void rootIs(Notifier const* root, Attached (*adapt)(FlowOut&, PtrInterface const&));
  void detach();
  void putSnapshot();
  /// Gives up what was gathered; the adapters do nothing until the snapshot.
  void fail() noexcept;
  U32 newId();

  /// Starts a message; the end() that follows fills in its length.
  Out& begin(Op op, U32 object, AttributeId attribute) {
    begun_ = out_->size();
    putHeader(out_->add(headerSize), 0, op, object, attribute);
    return *out_;
  }
  /// A whole message with one number, whose length is known before.
  template <std::unsigned_integral T>
  void putValue(U32 object, AttributeId attribute, T number) {
    constexpr std::size_t size = headerSize + sizeof number;
    U8* to = out_->add(size);
    putHeader(to, size - 4, Op::value, object, attribute);
    number = networkOrder(number);
    std::memcpy(to + headerSize, &number, sizeof number);
    if (out_->size() > maxPending_) throwFull();
  }
  void putHeader(U8* to, U32 length, Op op, U32 object, AttributeId attribute) const {
    U32 const header[] = {networkOrder(length), networkOrder(number_)};
    U32 const names[] = {networkOrder(object), networkOrder(static_cast<U32>(attribute))};
    std::memcpy(to, header, sizeof header);
    to[8] = static_cast<U8>(op);
    std::memcpy(to + 9, names, sizeof names);
  }
  void end() {
    std::size_t const size = out_->size();
    out_->overwrite(begun_, static_cast<U32>(size - begun_ - 4));
    if (size > maxPending_) throwFull();
  }
  /// Takes the begun message back.
  void cancel() { out_->sizeIs(begun_); }
  [[noreturn]] static void throwFull();
  void putGone(Out& out);

  static constexpr std::size_t headerSize = 17;

  U32 number_;
  Ptr<MsgChannel> channel_;
  std::size_t maxPending_;
  Ptr<Out> out_ = make<Out>();
  std::size_t begun_ = 0;
  U32 lastId_ = 0;
  bool needsSnapshot_ = true;
  U64 failures_ = 0;
  std::vector<U32> gone_;  ///< numbers of objects that ended since the last message that lists them

  Ptr<Notifier const> root_;
  Attached (*adapt_)(FlowOut&, PtrInterface const&) = nullptr;
  Attached attached_;
};

/// The adapter of one object: sends its changes, and holds the adapters of the objects in it.
class PIMBSR_API Sa {
 public:
  Sa(Sa const&) = delete;
  Sa& operator=(Sa const&) = delete;
  /// The object's number in messages.
  U32 id() const { return id_; }
  /// Writes all that the log carries of the object, and gives each object in it an adapter.
  void putContent(Out& out);
  /// Whether it is attached to that object; for null, whether it is to none.
  bool isOf(PtrInterface const* object) const { return attachedTo() == object; }
  /// Ends this adapter and those in it: they hear nothing more and forget the log.
  void end();

 protected:
  /// Takes the next number of the flow; raises InternalException if all 32-bit ones are used up.
  Sa(FlowOut& flow, Notifier const& object);
  virtual ~Sa() = default;
  /// Detaches from the object.
  virtual void detach() = 0;
  /// The object; null if it has gone.
  virtual PtrInterface const* attachedTo() const = 0;

  /// A plain value has changed to `value`.
  template <class T>
  void sendValue(AttributeId attribute, T const& value) {
    if (flow_->needsSnapshot_) return;  // which will have it
    try {
      if constexpr (PlainNumber<T>) {
        flow_->putValue(id_, attribute, formNumber(value));
      } else {
        put(flow_->begin(Op::value, id_, attribute), value);
        flow_->end();
      }
    } catch (...) {
      flow_->fail();
    }
  }
  /// The member of a key was added, changed or removed; without keys the key is null.
  void sendMember(AttributeId attribute, void const* key);

 private:
  void putMember(AttributeRow const& row, void const* key);
  void putObject(AttributeRow const& row, void const* key, PtrInterface const& child);
  void putDel(AttributeRow const& row, void const* key);
  void putChild(Out& out, AttributeRow const& row, std::string const& key, PtrInterface const& child);
  void putRow(Out& out, AttributeRow const& row);
  std::string keyText(RowForm const& form, void const* key) const;

  FlowOut* flow_;  ///< outlives this adapter, or ends it
  Notifier const& object_;
  U32 id_;
  /// By attribute and form of the key.
  std::map<std::pair<AttributeId, std::string>, Attached> children_;
};

/// The part of an adapter that follows from the notifiees of a class.
template <class N>
class SaOf : public N, public Sa {
 protected:
  /// Attaches to an object of class C, without a reference to it.
  template <class C>
  SaOf(FlowOut& flow, C const& object) : Sa(flow, object) {
    this->isWeakReferenceIs(true);
    this->notifierIs(Ptr<C const>(&object));
  }
  /// Detaches from the object; twice is as once.
  void detach() override { this->attach(nullptr); }
  /// The object; null if it has gone.
  PtrInterface const* attachedTo() const override { return this->attached(); }
  /// Its parent reports that the object has gone.
  void onZeroReferences() override { detach(); }
};

}  // namespace Zet::NboAttrLog
