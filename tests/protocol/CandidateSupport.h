#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tests/support/Engine.h"

namespace test {

inline char const* const globalZone = "224.0.0.0/4";
inline char const* const orgZone = "239.0.0.0/8";

/// This router's candidacy in a zone as a test writes it down.
struct Candidacy {
  std::string address = "10.0.0.5";
  Zet::U16 priority = 10;
  Zet::U32 hashMaskLen = 30;
  Zet::U32 bsPeriod = 60;
};

/// A message that beats the default candidacy, and one that loses to it.
Bsm superior();
Bsm inferior();

/// A router with one interface "eth0", and the steps by which its candidacy gets to each state. Times are
/// seconds after the start.
class CandidateTest : public EngineTest {
 public:
  CandidateTest() { engine.addIntf("eth0"); }

  /// Writes the entry's attributes, the address last; it is by that one that a running machine starts.
  void configure(Candidacy const& given = {}, std::string const& zone = globalZone);
  /// Stops the machines, lets `change` work on Status, and makes them anew.
  void restart(std::function<void()> const& change);
  /// pBsr with the timer at 5.
  void toPending() { configure(); }
  /// eBsr since 5, with the timer at 15; one message has left.
  void toElected();
  /// cBsr since 0 after superior(), with the timer at 130; one message has left.
  void toCandidate();
  void hear(Bsm const& message) { engine.receive(message); }

  Zet::Ptr<Bsr::BsrCandidate> candidate(std::string const& zone = globalZone) const;
  Zet::Ptr<Bsr::BsrCandidateSm> machine(std::string const& zone = globalZone) const;
  /// The zone's machine in a line: state, Bootstrap Timer, expiry of the entry, whether elected, the BSR it
  /// stores, the BSR in Status, and the fragment tag of the kept message; "-" means none.
  std::string show(std::string const& zone = globalZone) const;
  /// Puts an RP into a zone's set with a holdtime of 1000 seconds.
  Zet::Ptr<Routing::Pim::RpCandidate> putRp(std::string const& address, std::string const& range = globalZone,
                                            std::string const& zone = globalZone);
  std::size_t sent() const { return engine.outbox->sent.size(); }
  /// The last message that left.
  std::string lastSent() const { return engine.outbox->sent.back().text; }
  /// Position of the first trace with that beginning; -1 if there is none.
  int traceAt(std::string const& beginning) const;

  using EngineTest::context;
  using EngineTest::engine;
};

/// Notes what a zone's machine writes, in the order in which it is heard.
class Diary {
 public:
  /// From the moment when `test` has a machine in the global zone.
  explicit Diary(CandidateTest& test);
  std::vector<std::string> lines;

 private:
  std::vector<Zet::Ptr<Zet::PtrInterface>> watchers_;
};

}  // namespace test
