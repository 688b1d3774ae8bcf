#pragma once

#include <functional>
#include <string>
#include <utility>

#include "model/MsgStatus.h"
#include "model/RpSet.h"
#include "model/Status.h"
#include "protocol/BsrNonCandidateSm.h"

namespace test {

/// Watchers that note each change by the name of what changed, so that a test sees the order of the writes
/// and the state at each of them.
using Note = std::function<void(std::string const&)>;

class FollowerWatch : public Routing::Pim::Bsr::BsrNonCandidateSm::NotifieeConst {
 public:
  explicit FollowerWatch(Note note) : note_(std::move(note)) {}
  void onState() override { note_("state"); }
  void onLastBsm() override { note_("lastBsm"); }
  void onLastBsmFragments() override { note_("lastBsmFragments"); }

 private:
  Note note_;
};

class StatusWatch : public Routing::Pim::Bsr::Status::NotifieeConst {
 public:
  explicit StatusWatch(Note note) : note_(std::move(note)) {}
  void onBootstrapRouter(Lanet::IpGenPrefix const&) override { note_("bootstrapRouter"); }
  void onCrpStatus(Lanet::IpGenPrefix const&) override { note_("crpStatus"); }

 private:
  Note note_;
};

class BsmStatusWatch : public Routing::Pim::Bsr::PimBsmStatus::NotifieeConst {
 public:
  explicit BsmStatusWatch(Note note) : note_(std::move(note)) {}
  void onOifIntfId() override { note_("oifIntfId"); }
  void onTxBsm() override { note_("txBsm"); }
  void onWriteCount() override { note_("writeCount"); }

 private:
  Note note_;
};

class RpWatch : public Routing::Pim::RpCandidate::NotifieeConst {
 public:
  explicit RpWatch(Note note) : note_(std::move(note)) {}
  void onPriority() override { note_("priority"); }
  void onHashMaskLen() override { note_("hashMaskLen"); }
  void onHoldTime() override { note_("holdTime"); }
  void onPimMode() override { note_("pimMode"); }
  void onOverride() override { note_("override"); }
  void onSetupTime() override { note_("setupTime"); }
  void onExpires() override { note_("expires"); }
  void onUpTime() override { note_("upTime"); }

 private:
  Note note_;
};

}  // namespace test
