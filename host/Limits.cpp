#include "host/Limits.h"

namespace pimbsr::host {

static constexpr Limit rows[] = {
    {"packets-per-second", &Screening::packetsPerSecond},
    {"hellos-per-second", &Screening::hellosPerSecond},
    {"advertisements-per-second", &Screening::advertisementsPerSecond},
    {"neighbors-per-interface", &Screening::neighborsPerInterface},
    {"learned-zones", &Screening::learnedZones},
    {"fragment-rps", &Screening::fragmentRps},
    {"rps", &Screening::rps},
    {"ranges-per-zone", &Screening::rangesPerZone},
    {"rps-per-range", &Screening::rpsPerRange},
    {"rps-per-sender", &Screening::rpsPerSender},
    {"ranges-per-sender", &Screening::rangesPerSender},
};

std::span<Limit const> limits() { return rows; }

void copyLimits(Screening const& from, Screening& to) {
  for (Limit const& limit : rows) to.*limit.value = from.*limit.value;
}

}  // namespace pimbsr::host
