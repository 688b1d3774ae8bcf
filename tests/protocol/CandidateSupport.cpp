#include "tests/protocol/CandidateSupport.h"

#include <sstream>

namespace test {

using Zet::Ptr;

Bsm superior() { return {.bsr = "10.0.0.9", .priority = 20, .tag = 500, .hashMaskLen = 24}; }

Bsm inferior() { return {.bsr = "10.0.0.1", .priority = 1, .tag = 600, .hashMaskLen = 16}; }

void CandidateTest::configure(Candidacy const& given, std::string const& zone) {
  Ptr<Bsr::BsrCandidate> entry = engine.status->cbsrIs(prefix(zone));
  entry->priorityIs(given.priority);
  entry->hashMaskLenIs(given.hashMaskLen);
  entry->bsPeriodIs(given.bsPeriod);
  entry->addressIs(addr(given.address));
}

void CandidateTest::restart(std::function<void()> const& change) {
  engine.stop();
  change();
  engine.start();
}

void CandidateTest::toElected() {
  toPending();
  engine.runTo(5);
}

void CandidateTest::toCandidate() {
  toPending();
  hear(superior());
}

Ptr<Bsr::BsrCandidate> CandidateTest::candidate(std::string const& zone) const {
  return engine.status->cbsr(prefix(zone));
}

Ptr<Bsr::BsrCandidateSm> CandidateTest::machine(std::string const& zone) const {
  return engine.root->candidateSm(prefix(zone));
}

static void showBsr(std::ostream& out, Ptr<Bsr::ElectedBsrStatus> const& bsr) {
  if (bsr) {
    out << bsr->ipAddr() << '/' << bsr->priority() << '/' << bsr->hashMaskLen();
  } else {
    out << '-';
  }
}

std::string CandidateTest::show(std::string const& zone) const {
  Ptr<Bsr::BsrCandidateSm> shown = machine(zone);
  Ptr<Bsr::ElectedBsrStatus> given = engine.elected(zone);
  double timer = shown->zetBsTimer()->timeMin();
  auto time = [this](double at) { return Kiv::isTimeSet(at) ? std::to_string(engine.since(at)) : "-"; };
  auto brief = [](std::string text) {
    return text.ends_with(".000000") ? text.substr(0, text.size() - 7) : text;
  };
  std::ostringstream out;
  out << shown->state() << " timer " << brief(time(timer)) << " expiry "
      << brief(time(given ? given->expiryTime() : 0.0)) << (shown->candidate()->elected() ? " elected" : "")
      << " stored ";
  showBsr(out, shown->storedBsr());
  out << " status ";
  showBsr(out, given);
  out << " keeps ";
  if (auto kept = shown->lastBsm()) {
    out << kept->fragmentTag();
  } else {
    out << '-';
  }
  return out.str();
}

Ptr<Routing::Pim::RpCandidate> CandidateTest::putRp(std::string const& address, std::string const& range,
                                                    std::string const& zone) {
  auto rpSet = engine.status->crpStatusIs(prefix(zone))->statusIs("");
  auto rp = rpSet->crpSetIs(prefix(range))->rpIs(addr(address));
  rp->priorityIs(7);
  rp->holdTimeIs(1000);
  rp->expiresIs(Zet::now() + 1000);
  return rp;
}

int CandidateTest::traceAt(std::string const& beginning) const {
  for (std::size_t i = 0; i < context.traces.size(); ++i) {
    if (context.traces[i].text.starts_with(beginning)) return static_cast<int>(i);
  }
  return -1;
}

namespace {

using Lines = std::vector<std::string>;

class WatchMachine : public Bsr::BsrCandidateSm::NotifieeConst {
 public:
  explicit WatchMachine(Lines& lines) : lines_(lines) {}
  void onState() override {
    std::ostringstream out;
    out << "state " << notifier()->state();
    lines_.push_back(out.str());
  }
  void onLastBsm() override { lines_.push_back("message kept"); }
  void onLastBsmFragments() override { lines_.push_back("fragments kept"); }

 private:
  Lines& lines_;
};

class WatchBsr : public Bsr::ElectedBsrStatus::NotifieeConst {
 public:
  WatchBsr(Lines& lines, std::string who) : lines_(lines), who_(std::move(who)) {}
  void onSetupTime() override { lines_.push_back(who_ + " set up"); }
  void onIpAddr() override { lines_.push_back(who_ + " address"); }
  void onPriority() override { lines_.push_back(who_ + " priority"); }
  void onHashMaskLen() override { lines_.push_back(who_ + " mask"); }
  void onExpiryTime() override { lines_.push_back(who_ + " expiry"); }

 private:
  Lines& lines_;
  std::string who_;
};

class WatchStatus : public Bsr::Status::NotifieeConst {
 public:
  explicit WatchStatus(Lines& lines) : lines_(lines) {}
  void watchEntry(Ptr<Bsr::ElectedBsrStatus const> const& entry) {
    if (!entry_) entry_ = Zet::make<WatchBsr>(lines_, "entry");
    entry_->notifierIs(entry);
  }
  void onBootstrapRouter(Lanet::IpGenPrefix const& zone) override {
    auto entry = notifier()->bootstrapRouter(zone);
    lines_.push_back(entry ? "entry made" : "entry gone");
    watchEntry(entry);
  }
  void onCrpStatus(Lanet::IpGenPrefix const& zone) override {
    lines_.push_back(notifier()->crpStatus(zone) ? "RP set made" : "RP set gone");
  }

 private:
  Lines& lines_;
  Ptr<WatchBsr> entry_;
};

class WatchSending : public Bsr::PimBsmStatus::NotifieeConst {
 public:
  explicit WatchSending(Lines& lines) : lines_(lines) {}
  void onWriteCount() override { lines_.push_back("sent"); }

 private:
  Lines& lines_;
};

}  // namespace

Diary::Diary(CandidateTest& test) {
  auto machine = Zet::make<WatchMachine>(lines);
  machine->notifierIs(test.machine());
  auto stored = Zet::make<WatchBsr>(lines, "stored");
  stored->notifierIs(test.machine()->storedBsr());
  auto status = Zet::make<WatchStatus>(lines);
  status->notifierIs(test.engine.status);
  status->watchEntry(test.engine.elected(globalZone));
  auto sending = Zet::make<WatchSending>(lines);
  sending->notifierIs(test.engine.bsmStatus);
  watchers_ = {machine, stored, status, sending};
}

}  // namespace test
