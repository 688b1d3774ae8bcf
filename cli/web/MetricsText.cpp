#include "cli/web/MetricsText.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <string_view>

namespace pimbsr::cli {

namespace {

/// The lines of a metric: its comments once, then the samples of all agents.
struct Metric {
  std::string comments;
  std::string samples;
};

/// Metrics in the order of their first agent.
class Metrics {
 public:
  void add(std::string const& agent, std::string_view text);
  std::string text() const;

 private:
  Metric& metricOf(std::string_view name);

  std::vector<Metric> metrics_;
  std::map<std::string, std::size_t, std::less<>> places_;
};

constexpr std::string_view helpMark = "# HELP ";

/// The name in a comment such as "# HELP NAME ...".
std::string_view nameIn(std::string_view comment) {
  std::string_view rest = comment.substr(helpMark.size());
  return rest.substr(0, rest.find(' '));
}

std::string labeled(std::string_view sample, std::string const& agent) {
  std::size_t at = sample.find_first_of("{ ");
  if (at == sample.npos) return "";
  std::string_view rest = sample.substr(at + (sample[at] == '{' ? 1 : 0));
  bool hasLabels = sample[at] == '{';
  return fmt::format("{}{{agent=\"{}\"{}{}\n", sample.substr(0, at), agent, hasLabels ? "," : "}", rest);
}

Metric& Metrics::metricOf(std::string_view name) {
  auto [place, isNew] = places_.try_emplace(std::string(name), metrics_.size());
  if (isNew) metrics_.emplace_back();
  return metrics_[place->second];
}

void Metrics::add(std::string const& agent, std::string_view text) {
  std::string_view name;
  bool isFirst = false;
  while (!text.empty()) {
    std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(text.size(), line.size() + 1));
    if (line.starts_with(helpMark)) {
      name = nameIn(line);
      isFirst = !places_.contains(name);
    }
    if (line.empty() || name.empty()) continue;
    Metric& metric = metricOf(name);
    if (!line.starts_with('#')) {
      metric.samples += labeled(line, agent);
    } else if (isFirst) {
      metric.comments.append(line) += '\n';
    }
  }
}

std::string Metrics::text() const {
  std::string text;
  for (Metric const& metric : metrics_) text += metric.comments + metric.samples;
  return text;
}

}  // namespace

std::string mergedMetrics(std::vector<AgentMetrics> const& agents) {
  std::string text = "# HELP pimbsr_up 1 if the agent answers.\n# TYPE pimbsr_up gauge\n";
  Metrics metrics;
  for (auto const& [agent, answer] : agents) {
    text += fmt::format("pimbsr_up{{agent=\"{}\"}} {}\n", agent, answer ? 1 : 0);
    if (answer) metrics.add(agent, *answer);
  }
  return text + metrics.text();
}

}  // namespace pimbsr::cli
