// A set of integer tuples kept as a cover of Cartesian products: each row holds
// one set per column and stands for every tuple that picks one member of each.
// The model loader keeps a relation of forbidden tuples in this form so that a
// row becomes one clause instead of one clause per tuple.
#ifndef ZELK_IMPL_TUPLE_SET_H
#define ZELK_IMPL_TUPLE_SET_H

#include <vector>

#include "impl/small_iset.h"

namespace zelk {

class tuple_set {
 public:
  typedef std::vector<small_model::iset> row_type;

  // All rows have one width. Readers walk them in stored order.
  std::vector<row_type> rows;

  // Adds the tuples, which the caller gives sorted lexicographically and free of
  // duplicates, then merges rows. A value outside 0..31 raises the set's range
  // error "while inserting an element"; the rows added before it stay.
  void insert(const std::vector<std::vector<int>>& tuples);
  // Appends the tuple as a row of singletons.
  void push_back(const std::vector<int>& tuple);

  // True if row[i] is exactly {tuple[i]} for every i below n.
  static bool is_equal_prefix(std::size_t n, const row_type& row, const std::vector<int>& tuple);
  // Unites rows that differ in one column only, column by column. The result
  // covers the same tuples in no more rows, though not in the fewest.
  void merge_tuples();
  // Same length and equal sets in every column but `column`.
  static bool is_equal_ignoring_column(std::size_t column, const row_type& a, const row_type& b);

  // A strict weak order that brings rows equal outside `column` next to each
  // other: longer rows first, then by the first other column where they differ.
  class order_ignoring_column {
   public:
    explicit order_ignoring_column(std::size_t column) : m_column(column) {}
    bool operator()(const row_type& a, const row_type& b) const;

   private:
    std::size_t m_column;
  };
};

}  // namespace zelk

#endif
