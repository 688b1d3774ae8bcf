#pragma once

#include <algorithm>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "runtime/NboAttrLogDemuxer.h"
#include "runtime/Reflection.h"

namespace test {

/// All that the attribute log carries of an object and of those in it, a line for each attribute.
std::string logged(Zet::PtrInterface const& object, std::string const& indent = "");

/// A channel that keeps what it is given, or takes nothing.
class Tape : public Zet::MsgChannel {
 public:
  void send(std::span<Zet::U8 const> bytes) override;
  std::vector<Zet::U8> bytes;
  int sends = 0;
  bool fails = false;
  std::function<void()> onSend;
};

/// A demuxer that notes the flows of which it asks a snapshot, and then runs a function.
class AskingDemuxer : public Zet::NboAttrLog::Demuxer {
 public:
  using Demuxer::Demuxer;
  void onSnapshotNeeded(Zet::U32 flow) override {
    asked.push_back(flow);
    if (onAsk) onAsk();
  }
  std::vector<Zet::U32> asked;
  std::function<void()> onAsk;
};

/// An entity and its copy, with a log between them.
template <class C>
struct Mirror {
  static constexpr Zet::U32 flow = 7;

  Mirror(Zet::Ptr<C> original, Zet::Ptr<C> made) : source(original), copy(made) {
    out->template rootIs<C>(source);
    demuxer->copyIs(flow, copy);
  }
  /// Flushes, and feeds the copy in pieces of so many bytes; 0 for all at once.
  void sync(std::size_t piece = 0) {
    tape->bytes.clear();
    out->flush();
    std::span<Zet::U8 const> left(tape->bytes);
    while (!left.empty()) {
      std::size_t const size = piece == 0 ? left.size() : std::min(piece, left.size());
      demuxer->bytes(left.first(size));
      left = left.subspan(size);
    }
  }
  /// Messages of the last sync().
  unsigned messages() const {
    unsigned count = 0;
    for (std::size_t at = 0; at < tape->bytes.size(); ++count) {
      Zet::NboAttrLog::In in(std::span<Zet::U8 const>(tape->bytes).subspan(at));
      at += 4 + Zet::NboAttrLog::get<Zet::U32>(in);
    }
    return count;
  }
  bool isEqual() const { return logged(*source) == logged(*copy); }

  Zet::Ptr<C> source;
  Zet::Ptr<C> copy;
  Zet::Ptr<Tape> tape = Zet::make<Tape>();
  Zet::Ptr<Zet::NboAttrLog::FlowOut> out = Zet::make<Zet::NboAttrLog::FlowOut>(flow, tape);
  Zet::Ptr<AskingDemuxer> demuxer = Zet::make<AskingDemuxer>();
};

}  // namespace test
