#include "cli/replay/ReplayJson.h"

#include <nlohmann/json.hpp>
#include <ostream>

namespace pimbsr::cli {

using host::CounterView;
using host::RangeView;
using host::ZoneView;
/// An object keeps its members in the order in which they are added.
using Json = nlohmann::ordered_json;

template <class Value>
static std::string textOf(Value const& value) {
  return std::string(value.stringValue().view());
}

static Json jsonOf(MessageCounts const& messages) {
  Json dropped = Json::object();
  for (auto const& [reason, drop] : messages.dropped) dropped[reason] = drop.count;
  return {{"pim", messages.pim},     {"bsm", messages.bsm},     {"crpAdv", messages.crpAdv},
          {"hello", messages.hello}, {"other", messages.other}, {"malformed", messages.malformed},
          {"dropped", dropped}};
}

static Json jsonOf(RangeView const& range) {
  Json rps = Json::array();
  for (host::RpView const& rp : range.rps) {
    rps.push_back({{"address", textOf(rp.address)}, {"priority", rp.priority}, {"holdTime", rp.holdTime}});
  }
  return {{"group", textOf(range.range)}, {"rps", rps}};
}

static Json jsonOf(ZoneView const& zone) {
  Json bsr;  // null
  if (zone.bsr) {
    bsr = {{"address", textOf(zone.bsr->address)},
           {"priority", zone.bsr->priority},
           {"hashMaskLen", zone.bsr->hashMaskLen}};
  }
  Json rpSet = Json::array();
  for (RangeView const& range : zone.rpSet) rpSet.push_back(jsonOf(range));
  return {{"zone", textOf(zone.zone)}, {"bsr", bsr}, {"rpSet", rpSet}};
}

static Json jsonOf(std::vector<CounterView> const& counters) {
  Json object = Json::object();
  for (CounterView const& counter : counters) {
    object[counter.name] = counter.parts.empty() ? Json(counter.value) : jsonOf(counter.parts);
  }
  return object;
}

void ReplayJson::onEnd(ReplayResult const& result) {
  if (!result.complete) return;
  Json zones = Json::array();
  for (ZoneView const& zone : result.zones) zones.push_back(jsonOf(zone));
  Json document = {
      {"messages", jsonOf(result.messages)}, {"zones", zones}, {"counters", jsonOf(result.counters)}};
  out_ << document.dump(2) << '\n';
}

}  // namespace pimbsr::cli
