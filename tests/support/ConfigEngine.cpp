#include "tests/support/ConfigEngine.h"

#include <algorithm>
#include <sstream>

namespace test {

using Lanet::IpAddr;
using Lanet::IpGenPrefix;
using Zet::Ptr;
using Texts = std::vector<std::string>;

ConfigEngine::ConfigEngine()
    : status(Bsr::statusFactory("bsr")),
      config(Bsr::configFactory("bsr")),
      clear(Bsr::clearConfigFactory("bsr")),
      counters(Routing::Pim::Slosh::messageCountersFactory("pim")),
      sources(Ip::SourceIntf::sourceIntfSmFactory()),
      lists(Acl::aclTypeConfigFactory("ip")) {
  status->afIs(Lanet::AddressFamily::ipv4);
}

void ConfigEngine::start() {
  machine = Bsr::configSmFactory(config, clear, status, counters, sources, lists);
}

void ConfigEngine::address(std::string const& intfName, std::string const& text) {
  sources->sourceIntfIs(intf(intfName))->ipAddrIs(IpAddr::parse(text.c_str()));
}

Acl::IpRuleConfig aclRule(std::string const& text) {
  std::size_t blank = text.find(' ');
  Lanet::Prefix range = Lanet::Prefix::parse(text.substr(blank + 1).c_str());
  Acl::IpFilter filter;
  filter.source = range.address();
  filter.sourceMask = IpAddr::fromHost(range.length() == 0 ? 0 : ~Zet::U32{0} << (32 - range.length()));
  return Acl::IpRuleConfig(Acl::ActionInstance(text.substr(0, blank).c_str()), filter);
}

Acl::UniqueId ConfigEngine::write(std::string const& list, std::string const& text) {
  Acl::UniqueId id(++lastId_);
  lists->aclIs(list.c_str())->ipRuleByIdIs(id, aclRule(text));
  return id;
}

void ConfigEngine::rules(std::string const& list, Texts const& texts) {
  Ptr<Acl::AclSubConfig> version = Acl::aclSubConfigFactory();
  for (Zet::U32 i = 0; i < texts.size(); ++i) version->ruleBySequenceIs(10 * (i + 1), write(list, texts[i]));
  lists->aclIs(list.c_str())->currCfgIs(version);
}

void ConfigEngine::rule(std::string const& list, Zet::U32 sequence, std::string const& text) {
  Acl::UniqueId id = write(list, text);
  lists->acl(list.c_str())->currCfg()->ruleBySequenceIs(sequence, id);
}

void ConfigEngine::delRule(std::string const& list, Zet::U32 sequence) {
  lists->acl(list.c_str())->currCfg()->ruleBySequenceDel(sequence);
}

template <class Entry>
static Ptr<Entry> fill(Ptr<Entry> const& entry, Zet::U16 priority, Zet::U32 hashMaskLen) {
  entry->priorityIs(priority);
  entry->hashMaskLenIs(hashMaskLen);
  return entry;
}

Ptr<Bsr::BsrCandidateGroup> ConfigEngine::bsrGroup(std::string const& intfName, std::string const& range,
                                                   Zet::U16 priority, Zet::U32 hashMaskLen) {
  return fill(config->bsrCandidateConfigIs(intf(intfName))->groupIs(prefix(range)), priority, hashMaskLen);
}

Ptr<Bsr::BsrCandidateAcl> ConfigEngine::bsrList(std::string const& intfName, std::string const& list,
                                                Zet::U16 priority, Zet::U32 hashMaskLen) {
  return fill(config->bsrCandidateConfigIs(intf(intfName))->aclIs(list.c_str()), priority, hashMaskLen);
}

Ptr<Bsr::RpCandidateConfig> ConfigEngine::rp(std::string const& intfName) {
  return config->rpCandidateConfigIs(intf(intfName));
}

Ptr<Bsr::IntfConfig> ConfigEngine::border(std::string const& intfName) {
  return config->intfConfigIs(intfName.c_str());
}

// Content of Status -----------------------------------------------------------------------------------

static std::string joined(Texts texts, char const* separator) {
  std::sort(texts.begin(), texts.end());
  std::string all;
  for (std::string const& text : texts) all += (all.empty() ? "" : separator) + text;
  return all;
}

template <class T>
static std::string textOf(T const& value) {
  std::ostringstream out;
  out << value;
  return out.str();
}

/// The keys of a walk; only those whose value is true.
template <class Iterator>
static std::string trueKeys(Iterator at, char const* separator = " ") {
  Texts keys;
  for (; at; ++at) {
    if (at->value) keys.push_back(textOf(at.key()));
  }
  return joined(keys, separator);
}

std::string ConfigEngine::timeouts() const {
  return std::to_string(status->bsTimeout()) + " " + std::to_string(status->szTimeout());
}

std::string ConfigEngine::cbsr() const {
  Texts texts;
  for (auto at = status->cbsrIterator(); at; ++at) {
    std::ostringstream out;
    out << at->zone() << ' ' << at->intfId() << ' ' << at->address() << ' ' << at->priority() << '/'
        << at->hashMaskLen() << '/' << at->bsPeriod();
    texts.push_back(out.str());
  }
  return joined(texts, "; ");
}

std::string ConfigEngine::crp() const {
  Texts texts;
  for (auto at = status->crpIterator(); at; ++at) {
    Texts options;
    for (auto one = at->prefixOptionsIterator(); one; ++one) {
      options.push_back(textOf(one.key()) + "=" + textOf(one->priority()));
    }
    std::ostringstream out;
    out << at->address() << ' ' << at->intfId() << ' ' << at->interval() << ": "
        << trueKeys(at->prefixSetIterator()) << " | " << joined(options, " ");
    texts.push_back(out.str());
  }
  return joined(texts, "; ");
}

std::string ConfigEngine::borders() const {
  Texts texts;
  for (auto at = status->bsBorderIterator(); at; ++at) {
    texts.push_back(textOf(at->prefix()) + ": " + trueKeys(at->intfIdIterator()));
  }
  return joined(texts, "; ");
}

std::string ConfigEngine::permits() const { return trueKeys(status->crpPermitIterator(), "; "); }

std::string ConfigEngine::claims() const {
  Texts texts;
  for (auto at = status->zoneGroupIterator(); at; ++at) {
    texts.push_back(textOf(at.key()) + " " + textOf(at->value));
  }
  for (auto at = status->zoneAclIterator(); at; ++at) {
    texts.push_back(textOf(at.key()) + " " + textOf(at->value));
  }
  return joined(texts, "; ");
}

std::string ConfigEngine::all() const {
  return "timeouts " + timeouts() + "\ncbsr " + cbsr() + "\ncrp " + crp() + "\nborders " + borders() +
         "\npermits " + permits() + "\nclaims " + claims() + "\n";
}

std::string ConfigEngine::groups(std::string const& list) const {
  auto record = machine->bsrConfigAcl(list.c_str());
  return record ? trueKeys(record->grpPrefixIterator()) : "none";
}

std::string ConfigEngine::senders(std::string const& list) const {
  auto record = machine->bsrConfigAcl(list.c_str());
  return record ? trueKeys(record->prefixIterator()) : "none";
}

Zet::U32 ConfigEngine::bsrCount(std::string const& intfName, std::string const& range) const {
  auto counts = machine->cbsrPfxRefCount(intf(intfName));
  return counts ? counts->counter(prefix(range)) : 0;
}

Zet::U32 ConfigEngine::rpCount(std::string const& intfName, std::string const& range) const {
  auto counts = machine->crpPfxRefCount(intf(intfName));
  return counts ? counts->counter(prefix(range)) : 0;
}

Zet::U32 ConfigEngine::borderCount(std::string const& intfName, std::string const& range) const {
  auto counts = machine->borderPfxRefCount(intf(intfName));
  return counts ? counts->counter(prefix(range)) : 0;
}

Zet::U32 ConfigEngine::filterCount(std::string const& range) const {
  return machine->crpFilterAclPfxRefCount(prefix(range));
}

}  // namespace test
