#pragma once

#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "bench/load/measured_server.h"

/// All figures of a benchmark: for each series (such as "connections"), place on its axis (such as
/// 50), server and metric (such as "rps") the values of all rounds, in the order of the rounds.
class Results {
 public:
  struct Key {
    std::string series;
    int x;
    ServerKind server;
    std::string metric;

    bool operator<(const Key& other) const {
      return std::tie(series, x, server, metric) <
             std::tie(other.series, other.x, other.server, other.metric);
    }
  };

  void add(const Key& key, double value) { values[key].push_back(value); }

  /// Throws std::out_of_range when there is no such figure.
  double median(const Key& key) const;

  /// The median over the rounds of one figure divided by another, which leaves out what the machine
  /// did differently between the rounds.
  double ratio(const Key& upper, const Key& lower) const;

  const std::map<Key, std::vector<double>>& all() const { return values; }

 private:
  std::map<Key, std::vector<double>> values;
};
