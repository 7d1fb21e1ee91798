// Compression of a sorted list of tuples into rows of Cartesian products: first
// the tuples that differ only in the last value become one row, then rows equal
// outside one column are united, column after column.
#include "impl/tuple_set.h"

#include <algorithm>
#include <utility>

namespace zelk {

void tuple_set::insert(const std::vector<std::vector<int>>& tuples) {
  if (tuples.empty()) return;
  const std::size_t width = rows.empty() ? tuples.front().size() : rows.front().size();
  if (width == 0) {
    rows.emplace_back();
    return;
  }
  for (const std::vector<int>& tuple : tuples) {
    // The caller's order puts tuples that share all but the last value next to
    // each other, so one look at the last row finds them.
    if (!rows.empty() && tuple.size() == width && is_equal_prefix(width - 1, rows.back(), tuple)) {
      rows.back()[width - 1].insert(tuple[width - 1]);
    } else {
      push_back(tuple);
    }
  }
  merge_tuples();
}

void tuple_set::push_back(const std::vector<int>& tuple) {
  row_type row(tuple.size());
  // insert, not singleton: a bad value must report itself as an insertion.
  for (std::size_t i = 0; i < tuple.size(); ++i) row[i].insert(tuple[i]);
  rows.push_back(row);
}

bool tuple_set::is_equal_prefix(std::size_t n, const row_type& row, const std::vector<int>& tuple) {
  if (row.size() < n || tuple.size() < n) return false;
  for (std::size_t i = 0; i < n; ++i) {
    // contains() is false for a value outside 0..31: push_back reports those.
    if (!row[i].is_singleton() || !row[i].contains(tuple[i])) return false;
  }
  return true;
}

bool tuple_set::is_equal_ignoring_column(std::size_t column, const row_type& a, const row_type& b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (i != column && a[i] != b[i]) return false;
  }
  return true;
}

void tuple_set::merge_tuples() {
  const std::size_t width = rows.empty() ? 0 : rows.front().size();
  for (std::size_t column = 0; column < width && rows.size() > 1; ++column) {
    std::sort(rows.begin(), rows.end(), order_ignoring_column(column));
    for (std::size_t i = rows.size() - 1; i >= 1; --i) {
      if (!is_equal_ignoring_column(column, rows[i - 1], rows[i])) continue;
      rows[i - 1][column] |= rows[i][column];
      // Filling the hole from the back keeps the pass linear; the row moved into
      // place i is not looked at again in this column.
      std::swap(rows[i], rows.back());
      rows.pop_back();
    }
  }
}

bool tuple_set::order_ignoring_column::operator()(const row_type& a, const row_type& b) const {
  if (a.size() != b.size()) return a.size() > b.size();
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (i == m_column || a[i] == b[i]) continue;
    const small_model::iset only_a = a[i] - b[i];
    if (only_a.empty()) return false;
    const small_model::iset only_b = b[i] - a[i];
    if (only_b.empty()) return true;
    return only_a.min() < only_b.min();
  }
  return false;
}

}  // namespace zelk
