#include "bench/load/results.h"

#include <algorithm>
#include <functional>

namespace {

double median_of(std::vector<double> list) {
  std::sort(list.begin(), list.end());
  const std::size_t half = list.size() / 2;
  return list.size() % 2 == 1 ? list[half] : (list[half - 1] + list[half]) / 2;
}

template <typename Combine>
double median_of_pairs(std::vector<double> left, const std::vector<double>& right,
                       Combine combine) {
  for (std::size_t round = 0; round < left.size(); ++round)
    left[round] = combine(left[round], right.at(round));
  return median_of(left);
}

}  // namespace

double Results::median(const std::string& figure, ServerKind server) const {
  return median_of(of(figure, server));
}

double Results::ratio(const std::string& figure, ServerKind server, const std::string& other_figure,
                      ServerKind other) const {
  return median_of_pairs(of(figure, server), of(other_figure, other), std::divides<>());
}

double Results::difference(const std::string& figure, ServerKind server, ServerKind other) const {
  return median_of_pairs(of(figure, server), of(figure, other), std::minus<>());
}
