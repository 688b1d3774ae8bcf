#include "runtime/NboAttrLogDemuxer.h"

#include <exception>
#include <new>

#include "runtime/Reflection.h"

namespace Zet::NboAttrLog {

namespace {

/// Applies contents and updates to the objects of one copy.
class Applier {
 public:
  explicit Applier(Objects& objects) : objects_(objects) {}

  void takeContent(PtrInterface& object, In& in) {
    forLogged(object.fwkType(), [&](AttributeRow const& row) { takeRow(object, row, in); });
  }
  void take(PtrInterface& object, AttributeRow const& row, Op op, In& in);
  /// Raises the first exception of a setter.
  void finish() const {
    if (outOfRange_) std::rethrow_exception(outOfRange_);
  }

 private:
  void takeRow(PtrInterface& object, AttributeRow const& row, In& in);
  void takeMembers(PtrInterface& object, RowForm const& form, In& in);
  void takeChild(PtrInterface& object, RowForm const& form, In& in, bool anew);
  void takeGone(In& in);
  /// Runs a setter. One that rejects a value keeps it, as it does in the original, and the rest goes on.
  template <class Set>
  void set(Set const& call) {
    try {
      call();
    } catch (RangeException const&) {
      if (!outOfRange_) outOfRange_ = std::current_exception();
    }
  }

  Objects& objects_;
  std::exception_ptr outOfRange_;
};

/// The forms of all keys that a collection has.
class KeyTexts : public KeyVisitor {
 public:
  explicit KeyTexts(RowForm const& form) : form_(form) {}
  void onKey(void const* key) override {
    Out out;
    form_.putKey(key, out);
    texts.emplace(reinterpret_cast<char const*>(out.bytes().data()), out.size());
  }
  std::set<std::string, std::less<>> texts;

 private:
  RowForm const& form_;
};

In inOf(std::string const& text) {
  return In(std::span(reinterpret_cast<U8 const*>(text.data()), text.size()));
}

void Applier::takeRow(PtrInterface& object, AttributeRow const& row, In& in) {
  RowForm const& form = *row.log;
  if (form.shape == Shape::value) return set([&] { form.take(object, in); });
  if (form.walk != nullptr) return takeMembers(object, form, in);
  if (get<bool>(in)) return takeChild(object, form, in, false);
  form.takeDel(object, in);
}

// Members that the content doesn't name are removed, so that a copy with another past ends equal.
void Applier::takeMembers(PtrInterface& object, RowForm const& form, In& in) {
  KeyTexts before(form);
  form.walk(object, before);
  for (U32 left = get<U32>(in); left > 0; --left) {
    std::size_t const place = in.place();
    form.skipKey(in);
    auto at = before.texts.find(in.since(place));
    if (at != before.texts.end()) before.texts.erase(at);
    in.placeIs(place);
    if (form.shape == Shape::values) {
      set([&] { form.takeMember(object, in); });
    } else {
      takeChild(object, form, in, false);
    }
  }
  for (std::string const& text : before.texts) {
    In key = inOf(text);
    form.takeDel(object, key);
  }
}

// A child gets its content before it is set, so that a watcher of the place finds it complete.
void Applier::takeChild(PtrInterface& object, RowForm const& form, In& in, bool anew) {
  Ptr<PtrInterface> child = form.takeMake(object, in, anew);
  if (!objects_.emplace(get<U32>(in), child).second) throwMalformed("number of an object used twice");
  takeContent(*child, in);
  if (form.set != nullptr) form.set(object, *child);
}

// These references go before the change that ends the objects: otherwise they would live on here.
void Applier::takeGone(In& in) {
  for (U32 left = get<U32>(in); left > 0; --left) objects_.erase(get<U32>(in));
}

void Applier::take(PtrInterface& object, AttributeRow const& row, Op op, In& in) {
  RowForm const& form = *row.log;
  bool const isObject = form.shape != Shape::value && form.shape != Shape::values;
  if (op == Op::value && form.shape == Shape::value) {
    set([&] { form.take(object, in); });
  } else if (op == Op::member && form.shape == Shape::values) {
    set([&] { form.takeMember(object, in); });
  } else if (op == Op::object && isObject) {
    takeGone(in);
    takeChild(object, form, in, true);
  } else if (op == Op::del && form.shape != Shape::value) {
    takeGone(in);
    form.takeDel(object, in);
  } else {
    throwOpNotSupportedException(row.name, opName(AttributeOp::update), false);
  }
}

AttributeRow const& loggedRow(PtrInterface const& object, AttributeId attribute) {
  AttributeRow const* row = object.fwkType().row(attribute);
  if (row == nullptr || row->log == nullptr) throwUnknownAttrException(std::to_string(attribute));
  return *row;
}

}  // namespace

/// Applies all of a message. A setter's exception is raised at the end; one that comes before is from bytes
/// that no original sends.
template <class Take>
static void takeAll(Objects& objects, In& in, Take const& take) {
  Applier applier(objects);
  try {
    take(applier);
  } catch (RangeException const& e) {
    throwMalformed(e.what());
  }
  in.needEnd();
  applier.finish();
}

void deserializeAttr(PtrInterface& object, Update& update) {
  takeAll(update.objects, update.in, [&](Applier& applier) {
    applier.take(object, loggedRow(object, update.attribute), update.op, update.in);
  });
}

void deserializeAttr(PtrInterface const& object, Update const& update) {
  AttributeRow const* row = object.fwkType().row(update.attribute);
  bool const isWhole = update.op == Op::snapshot || row == nullptr;
  throwInternalException(std::string("write-update from readonly proxy: ") +
                         (isWhole ? object.fwkType().name : row->name));
}

void Demuxer::copyIs(U32 flow, Ptr<PtrInterface> const& copy) { copies_[flow] = {.object = copy}; }

void Demuxer::readOnlyIs(U32 flow, Ptr<PtrInterface const> const& object) {
  copies_[flow] = {.readOnly = object};
}

void Demuxer::reset() {
  isBroken_ = false;
  kept_.clear();
  for (auto& [flow, copy] : copies_) {
    copy.objects.clear();
    copy.repair = Repair::none;
  }
}

static constexpr char const* unknownException = "an exception of unknown type";

// The memory for a text may be missing, which must not end the reading.
void Demuxer::noteError(char const* error) noexcept {
  try {
    lastError_ = error;
  } catch (...) {
    lastError_.clear();
  }
}

void Demuxer::breakChannel(char const* error) noexcept {
  isBroken_ = true;
  ++rejected_;
  noteError(error);
}

/// Whether a message is whole, or known to be too long. The pieces of one that isn't are gathered without a
/// look at those before, so that a message costs its bytes in however many pieces it comes.
bool Demuxer::beginsWithMessage(std::span<U8 const> bytes) const {
  In in(bytes);
  if (in.left() < sizeof(U32)) return false;
  U32 const length = get<U32>(in);
  return length > maxMessage_ || in.left() >= length;
}

// Nothing but the memory for bytes can be missing here: what they were is lost then, and with it the framing.
void Demuxer::bytes(std::span<U8 const> bytes) {
  if (isBroken_) return;
  try {
    take(bytes);
  } catch (std::exception const& e) {
    breakChannel(e.what());
  }
}

// A setter's handler may bring bytes while a message is applied: they wait in kept_, since the rest of the
// present ones comes first. Whole messages are read where they are, and a rest alone is copied.
void Demuxer::take(std::span<U8 const> bytes) {
  bool const isFirst = kept_.empty() && !hasNotificationActive();
  if (!isFirst) kept_.insert(kept_.end(), bytes.begin(), bytes.end());
  if (hasNotificationActive() || (!isFirst && !beginsWithMessage(kept_))) return;
  ClearIsActiveAnchor anchor(*this);
  if (isFirst && !keepRest(bytes)) return;
  bool isMore = true;
  while (isMore && !isBroken_) isMore = keepRest(std::exchange(kept_, {}));
}

/// Applies whole messages and keeps the rest. Whether a handler has brought more bytes meanwhile.
bool Demuxer::keepRest(std::span<U8 const> bytes) {
  auto const rest = bytes.subspan(takeMessages(bytes));
  bool const isMore = !kept_.empty();
  kept_.insert(kept_.begin(), rest.begin(), rest.end());
  return isMore;
}

/// Applies all whole messages; returns the number of bytes that they have.
std::size_t Demuxer::takeMessages(std::span<U8 const> bytes) {
  In in(bytes);
  while (!isBroken_ && in.left() >= sizeof(U32)) {
    std::size_t const place = in.place();
    U32 const length = get<U32>(in);
    if (length > maxMessage_) {  // no original sends it: where the next message begins is unknown
      breakChannel("message too long");
      return bytes.size();
    }
    if (in.left() < length) return place;
    takeMessage(In(in.take(length)));
  }
  return in.place();
}

// After an error in a message the next ones are read. A snapshot with an error is not asked for again, since
// the next one would have it too and the two would go on for ever; one without memory is, but only with a
// change, so that two programs that lack memory don't keep each other busy.
void Demuxer::takeMessage(In in) {
  ++messages_;
  U32 flow = 0;
  Op op{};
  try {
    flow = get<U32>(in);
    op = static_cast<Op>(get<U8>(in));
    takeBody(flow, op, in);
  } catch (RangeException const& e) {
    ++outOfRange_;
    noteError(e.what());
  } catch (std::bad_alloc const& e) {
    reject(flow, op, e.what(), false);
  } catch (std::exception const& e) {
    reject(flow, op, e.what(), true);
  } catch (...) {
    reject(flow, op, unknownException, true);
  }
}

// Until the snapshot comes that repairs a copy, changes may name objects that are not known here.
void Demuxer::takeBody(U32 flow, Op op, In in) {
  U32 const id = get<U32>(in);
  auto const attribute = get<AttributeId>(in);
  auto at = copies_.find(flow);
  bool const isFed = at != copies_.end() && (at->second.object || at->second.readOnly);
  if (!isFed) throwMalformed("unknown flow");
  bool const isApplied = op == Op::snapshot || at->second.repair == Repair::none;
  isApplied ? apply(at->second, op, id, attribute, in) : askIfDue(flow, at->second);
}

void Demuxer::apply(Copy& copy, Op op, U32 id, AttributeId attribute, In in) {
  if (copy.readOnly) {
    Update const update{op, attribute, in, copy.objects};
    deserializeAttr(*copy.readOnly, update);
  }
  if (op == Op::snapshot) return takeSnapshot(copy, in);
  auto at = copy.objects.find(id);
  if (at == copy.objects.end()) throwMalformed("unknown object");
  Ptr<PtrInterface> object = at->second;
  Update update{op, attribute, in, copy.objects};
  deserializeAttr(*object, update);
}

// Model and type are compared before the objects are forgotten, so that the log of another model changes
// nothing.
void Demuxer::takeSnapshot(Copy& copy, In in) {
  if (get<U32>(in) != modelFingerprint()) throwMalformed("log of another model");
  Ptr<PtrInterface> root = copy.object;  // a handler may let the flow feed another copy
  if (!(get<String8>(in) == root->fwkType().name)) throwTypeException(root->fwkType().name);
  copy.objects.clear();
  copy.objects.emplace(rootId, root);
  takeAll(copy.objects, in, [&](Applier& applier) {
    applier.takeContent(*root, in);
    in.needEnd();
    copy.repair = Repair::none;
  });
}

// An error before a snapshot comes is of what the snapshot repairs.
void Demuxer::reject(U32 flow, Op op, char const* error, bool isForGood) noexcept {
  ++rejected_;
  noteError(error);
  auto at = copies_.find(flow);
  if (at == copies_.end() || !at->second.object) return;
  Repair& repair = at->second.repair;
  bool const isSnapshot = op == Op::snapshot;
  if (isSnapshot || repair == Repair::none) repair = isSnapshot && isForGood ? Repair::failed : Repair::due;
  if (!isSnapshot) askIfDue(flow, at->second);
}

// Asks once, since each change fails until the snapshot comes. A host that could not ask is called again with
// the next change: its exception reaches neither the changes that follow nor who brought the bytes.
void Demuxer::askIfDue(U32 flow, Copy& copy) noexcept {
  if (copy.repair != Repair::due) return;
  copy.repair = Repair::asked;  // before the call, in which the host may let the flow feed another copy
  try {
    onSnapshotNeeded(flow);
    return;
  } catch (std::exception const& e) {
    noteError(e.what());
  } catch (...) {
    noteError(unknownException);
  }
  if (copy.repair == Repair::asked) copy.repair = Repair::due;
}

}  // namespace Zet::NboAttrLog
