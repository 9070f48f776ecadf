#include "bench/load/results.h"

#include <algorithm>

namespace {

double median_of(std::vector<double> list) {
  std::sort(list.begin(), list.end());
  const std::size_t half = list.size() / 2;
  return list.size() % 2 == 1 ? list[half] : (list[half - 1] + list[half]) / 2;
}

}  // namespace

double Results::median(const Key& key) const { return median_of(values.at(key)); }

double Results::ratio(const Key& upper, const Key& lower) const {
  std::vector<double> quotients = values.at(upper);
  const std::vector<double>& divisors = values.at(lower);
  for (std::size_t round = 0; round < quotients.size(); ++round)
    quotients[round] /= divisors.at(round);
  return median_of(quotients);
}
