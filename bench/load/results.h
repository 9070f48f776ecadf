#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "bench/load/measured_server.h"

/// All figures of a benchmark: for each figure (such as "rps 50") and server the values of all
/// rounds, in the order of the rounds.
class Results {
 public:
  void add(const std::string& figure, ServerKind server, double value) {
    values[{figure, server}].push_back(value);
  }

  bool has(const std::string& figure, ServerKind server) const {
    return values.count({figure, server}) != 0;
  }

  /// Throws std::out_of_range when there is no such figure, as do the next two.
  double median(const std::string& figure, ServerKind server) const;

  /// The medians over the rounds of a figure of one server divided by, or less, that of another,
  /// which leaves out what the machine did differently between the rounds.
  double ratio(const std::string& figure, ServerKind server, const std::string& other_figure,
               ServerKind other) const;
  double difference(const std::string& figure, ServerKind server, ServerKind other) const;

 private:
  using Values = std::vector<double>;

  const Values& of(const std::string& figure, ServerKind server) const {
    return values.at({figure, server});
  }

  std::map<std::pair<std::string, ServerKind>, Values> values;
};
