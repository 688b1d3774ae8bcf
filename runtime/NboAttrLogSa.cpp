#include "runtime/NboAttrLogSa.h"

#include <string_view>

#include "runtime/Reflection.h"

namespace Zet::NboAttrLog {

namespace {

/// Hashes what gives the bytes of messages their meaning.
class Fingerprint {
 public:
  void add(ZetType const& type) {
    for (char const* text : {type.name, type.kind, type.base != nullptr ? type.base->name : ""}) add(text);
    bool const isEnumeration = std::string_view(type.kind) == "enumeration";
    for (AttributeRow const& row : type.rows) {
      bool const isCarried = row.log != nullptr || row.kind == AttributeKind::field;
      if (isCarried || isEnumeration) add(row);
      if (isEnumeration) add(row.start);
    }
  }
  U32 hash() const { return hash_; }

 private:
  void add(AttributeRow const& row) {
    add(static_cast<U32>(row.id));
    add(static_cast<U32>(row.kind));
    for (char const* text : {row.name, row.type, row.keyType, row.maker}) add(text);
    if (row.log != nullptr) add(static_cast<U32>(row.log->shape));
  }
  void add(char const* text) { add(String8(text).hash()); }
  void add(U32 number) { hash_ = mixHash(hash_ ^ number); }

  U32 hash_ = 0;
};

}  // namespace

// Messages have numbers of attributes and no names, and values have no types: a copy of another model would
// take one for another.
U32 modelFingerprint(std::span<ZetType const* const> types) {
  Fingerprint made;
  for (ZetType const* type : types) made.add(*type);
  return made.hash();
}

// Types come in the order of their names, so that two programs that link them in another order agree.
U32 modelFingerprint() {
  static U32 const made = modelFingerprint(zetTypes());
  return made;
}

// The flow ----------------------------------------------------------------------------------------------

FlowOut::FlowOut(U32 number, ValidPtr<MsgChannel> const& channel, std::size_t maxPending)
    : number_(number), channel_(channel), maxPending_(maxPending) {}

FlowOut::~FlowOut() { detach(); }

void FlowOut::rootIs(Notifier const* root, Attached (*adapt)(FlowOut&, PtrInterface const&)) {
  detach();
  out_->sizeIs(0);
  root_ = root;
  adapt_ = adapt;
}

// Numbers begin anew and none is reported as gone: the next snapshot makes the copy forget all of them.
void FlowOut::detach() {
  needsSnapshot_ = true;
  if (attached_.sa != nullptr) attached_.sa->end();
  attached_ = {};
  gone_.clear();
  lastId_ = 0;
}

void FlowOut::putSnapshot() {
  detach();
  out_->sizeIs(0);
  attached_ = adapt_(*this, *root_);
  Out& out = begin(Op::snapshot, attached_.sa->id(), 0);
  put(out, modelFingerprint());
  put(out, String8(root_->fwkType().name));
  attached_.sa->putContent(out);
  end();
  needsSnapshot_ = false;  // only now the adapters report
}

// After any failure the copy lacks a change, and a snapshot repairs any lack.
void FlowOut::flush() {
  if (!root_ || hasNotificationActive()) return;
  ClearIsActiveAnchor anchor(*this);
  try {
    if (needsSnapshot_) putSnapshot();
    if (out_->size() == 0) return;
    // Handlers in the channel may change the tree: what that adds is for the next flush.
    Ptr<Out> sent = std::exchange(out_, make<Out>());
    channel_->send(sent->bytes());
    if (out_->size() == 0) {
      sent->sizeIs(0);
      out_ = sent;  // its memory is large enough for the next time
    }
  } catch (...) {
    fail();
  }
}

void FlowOut::fail() noexcept {
  out_->sizeIs(0);
  needsSnapshot_ = true;
  ++failures_;
}

// A number that is used again would lead a change to another object, which no copy could notice.
U32 FlowOut::newId() {
  if (++lastId_ == 0) throwInternalException("numbers of objects used up");
  return lastId_;
}

void FlowOut::throwFull() { throwInternalException("too many bytes wait for the channel"); }

// These numbers precede the next object or removal: only those make objects end, so no message of its own is
// needed, and the copy keeps no object longer than that.
void FlowOut::putGone(Out& out) {
  put(out, static_cast<U32>(gone_.size()));
  for (U32 id : gone_) put(out, id);
  gone_.clear();
}

// Adapters ----------------------------------------------------------------------------------------------

Sa::Sa(FlowOut& flow, Notifier const& object) : flow_(&flow), object_(object), id_(flow.newId()) {}

// An adapter may live on for the length of a walk over the notifiees of its object, so its end isn't left to
// its destructor.
void Sa::end() {
  if (flow_ != nullptr && !flow_->needsSnapshot_) flow_->gone_.push_back(id_);
  flow_ = nullptr;
  for (auto& [place, child] : children_) child.sa->end();
  children_.clear();
  detach();
}

void Sa::sendMember(AttributeId attribute, void const* key) {
  if (flow_->needsSnapshot_) return;
  try {
    putMember(*object_.fwkType().row(attribute), key);
  } catch (...) {
    flow_->fail();
  }
}

// Keys are of many types, which the adapters of members are not; the bytes that name a key in a message
// identify it here too.
std::string Sa::keyText(RowForm const& form, void const* key) const {
  if (form.putKey == nullptr) return {};
  Out out;
  form.putKey(key, out);
  return std::string(reinterpret_cast<char const*>(out.bytes().data()), out.size());
}

void Sa::putMember(AttributeRow const& row, void const* key) {
  RowForm const& form = *row.log;
  if (form.shape == Shape::values) {
    Out& out = flow_->begin(Op::member, id_, row.id);
    form.putKey(key, out);
    if (form.putMember(object_, key, out)) return flow_->end();
    flow_->cancel();  // a handler has removed the value since: that is the state to send
    return putDel(row, key);
  }
  PtrInterface const* child = form.child(object_, key);
  auto at = children_.find({row.id, keyText(form, key)});
  if (at != children_.end()) {
    // One that was replaced by a handler of its removal is reported twice; the second time nothing is new.
    if (child != nullptr && at->second.sa->isOf(child)) return;
    at->second.sa->end();
    children_.erase(at);
  }
  if (child != nullptr) {
    putObject(row, key, *child);
  } else {
    putDel(row, key);
  }
}

void Sa::putObject(AttributeRow const& row, void const* key, PtrInterface const& child) {
  Out& out = flow_->begin(Op::object, id_, row.id);
  flow_->putGone(out);
  std::string const text = keyText(*row.log, key);
  putRaw(out, text);
  putChild(out, row, text, child);
  flow_->end();
}

void Sa::putDel(AttributeRow const& row, void const* key) {
  Out& out = flow_->begin(Op::del, id_, row.id);
  flow_->putGone(out);
  putRaw(out, keyText(*row.log, key));
  flow_->end();
}

/// The arguments of its maker, its number and its content; a key is before it.
void Sa::putChild(Out& out, AttributeRow const& row, std::string const& key, PtrInterface const& child) {
  row.log->putMake(child, out);
  Attached made = row.log->adapt(*flow_, child);
  put(out, made.sa->id());
  made.sa->putContent(out);
  children_.emplace(std::pair(row.id, key), std::move(made));
}

void Sa::putContent(Out& out) {
  forLogged(object_.fwkType(), [&](AttributeRow const& row) { putRow(out, row); });
}

namespace {

/// Calls a function for each key of a walk.
template <class Call>
class Keys : public KeyVisitor {
 public:
  explicit Keys(Call const& call) : call_(call) {}
  void onKey(void const* key) override {
    ++count;
    call_(key);
  }
  U32 count = 0;

 private:
  Call const& call_;
};

}  // namespace

void Sa::putRow(Out& out, AttributeRow const& row) {
  RowForm const& form = *row.log;
  if (form.shape == Shape::value) return form.put(object_, out);
  if (form.walk == nullptr) {
    PtrInterface const* child = form.child(object_, nullptr);
    put(out, child != nullptr);
    if (child != nullptr) putChild(out, row, {}, *child);
    return;
  }
  // A walk doesn't know the number of members before its end.
  std::size_t const place = out.size();
  put(out, U32{0});
  auto one = [&](void const* key) {
    form.putKey(key, out);
    if (form.shape == Shape::values) {
      form.putMember(object_, key, out);
    } else {
      putChild(out, row, keyText(form, key), *form.child(object_, key));
    }
  };
  Keys keys(one);
  form.walk(object_, keys);
  out.overwrite(place, keys.count);
}

}  // namespace Zet::NboAttrLog
