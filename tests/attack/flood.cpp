// A fast sender of the packets of attacks, for the tests in this folder. It sends along one interface of the
// network namespace that it runs in, for a bounded time, and prints what it sent as a line of JSON.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <sstream>

#include "tests/attack/Frames.h"
#include "tests/attack/Sender.h"

namespace {

using namespace attack;

constexpr double maxRun = 7200;  // seconds
constexpr U32 maxFrames = 1000000;

struct Options {
  std::string interface;
  std::string kind;
  std::string source = "10.0.1.1", destination = "224.0.0.13", bsr = "10.0.1.1", rp = "10.9.0.1";
  std::string range = "224.0.0.0/4", mac = "01:00:5e:00:00:0d";
  double rate = 0;
  double seconds = 1;
  U64 max = 0;
  Plan plan;
};

std::vector<U8> macOf(std::string const& text) {
  std::vector<U8> mac;
  std::istringstream in(text);
  for (std::string part; std::getline(in, part, ':');)
    mac.push_back(static_cast<U8>(std::stoul(part, nullptr, 16)));
  if (mac.size() != 6) throw std::invalid_argument("no Ethernet address: " + text);
  return mac;
}

void declare(CLI::App& app, Options& o) {
  app.add_option("interface", o.interface, "interface to send along")->required();
  std::vector<std::string> names{"none"};
  for (std::string_view kind : kinds()) names.emplace_back(kind);
  app.add_option("kind", o.kind, "what to send; none sends nothing and measures the system's lateness")
      ->required()
      ->check(CLI::IsMember(names));
  app.add_option("--rate", o.rate, "packets in a second; 0 for as fast as possible")
      ->check(CLI::Range(0.0, 1e8));
  app.add_option("--seconds", o.seconds, "for how long")->check(CLI::Range(0.0, maxRun));
  app.add_option("--max", o.max, "packets at most; 0 for no bound");
  app.add_option("--source", o.source, "IP source, the first one if there are several");
  app.add_option("--sources", o.plan.sources, "sources in a row")->check(CLI::Range(1u, maxFrames));
  app.add_option("--destination", o.destination, "IP destination");
  app.add_option("--mac", o.mac, "Ethernet destination");
  app.add_option("--bsr", o.bsr, "BSR of Bootstrap Messages");
  app.add_option("--priority", o.plan.priority, "of the BSR or of the RP");
  app.add_option("--range", o.range, "group range");
  app.add_option("--rp", o.rp, "first RP");
  app.add_option("--holdtime", o.plan.holdtime, "seconds");
  app.add_option("--count", o.plan.count, "RPs, ranges, zones, tags or messages")
      ->check(CLI::Range(1u, maxFrames));
  app.add_option("--bits", o.plan.bits, "bits of the hash that chosen keys share")
      ->check(CLI::Range(0u, 28u));
  app.add_option("--seed", o.plan.seed, "of what is random");
}

void complete(Options& o) {
  o.plan.source = IpAddr::parse(o.source.c_str());
  o.plan.destination = IpAddr::parse(o.destination.c_str());
  o.plan.bsr = IpAddr::parse(o.bsr.c_str());
  o.plan.rp = IpAddr::parse(o.rp.c_str());
  o.plan.range = Prefix::parse(o.range.c_str());
  o.plan.mac = macOf(o.mac);
}

void run(Options& o) {
  complete(o);
  std::vector<Frame> const frames = o.kind == "none" ? std::vector<Frame>() : framesOf(o.kind, o.plan);
  std::printf("{\"ready\":%zu}\n", frames.size());
  std::fflush(stdout);
  Sent const sent = send(o.interface, frames, o.rate, o.seconds, o.max);
  std::printf("{\"packets\":%llu,\"bytes\":%llu,\"seconds\":%.6f,\"worstLateness\":%.6f}\n",
              static_cast<unsigned long long>(sent.packets), static_cast<unsigned long long>(sent.bytes),
              sent.seconds, sent.worstLateness);
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Sends the packets of an attack along an interface");
  Options options;
  declare(app, options);
  CLI11_PARSE(app, argc, argv);
  try {
    run(options);
  } catch (std::exception const& error) {
    std::fprintf(stderr, "flood: %s\n", error.what());
    return 1;
  }
  return 0;
}
