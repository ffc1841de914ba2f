#include "figures.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>

namespace qvr::bench {

namespace {

constexpr const char *TABLE_BEGIN = "<!-- bench/compare writes this table -->\n";
constexpr const char *TABLE_END = "<!-- end of the table -->\n";

std::string number(double value) {
  char text[32];
  std::snprintf(text, sizeof text, value < 9.995 ? "%.2f" : value < 99.95 ? "%.1f" : "%.0f", value);
  return text;
}

double miss_of(const figure_t &figure, double value) {
  if (figure.target == 0) return 0;
  return figure.bound == bound_t::at_most ? value / figure.target : figure.target / value;
}

std::string target_text(const figure_t &figure) {
  if (figure.target == 0) return "";
  const char *word = figure.bound == bound_t::at_most ? "at most " : "at least ";
  std::string text = word + number(figure.target);
  if (!figure.unit.empty()) text += " " + figure.unit;
  return miss(figure) > 1 ? text + ", **missed**" : text;
}

}  // namespace

double median(std::vector<double> values) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  std::size_t middle = values.size() / 2;
  return values.size() % 2 != 0 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

double miss(const figure_t &figure) {
  return miss_of(figure, median(figure.values));
}

double least_miss(const figure_t &figure) {
  if (figure.values.empty()) return 0;
  auto [low, high] = std::minmax_element(figure.values.begin(), figure.values.end());
  return miss_of(figure, figure.bound == bound_t::at_most ? *low : *high);
}

std::string table_text(const std::vector<figure_t> &figures) {
  std::string text = "| what | median | lowest to highest | target | of |\n|---|---|---|---|---|\n";
  for (const figure_t &figure : figures) {
    auto [low, high] = std::minmax_element(figure.values.begin(), figure.values.end());
    std::string value = number(median(figure.values));
    if (!figure.unit.empty()) value += " " + figure.unit;
    text += "| " + figure.what + " | " + value + " | " + number(*low) + " to " + number(*high) +
            " | " + target_text(figure) + " | " + figure.of + " |\n";
  }
  return text;
}

bool write_table(const std::string &file, const std::string &table) {
  std::ifstream in(file, std::ios::binary);
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::size_t begin = text.find(TABLE_BEGIN), end = text.find(TABLE_END);
  if (begin == std::string::npos || end == std::string::npos || end < begin) return false;
  begin += std::char_traits<char>::length(TABLE_BEGIN);
  text.replace(begin, end - begin, table);
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  out << text;
  return static_cast<bool>(out.flush());
}

}  // namespace qvr::bench
