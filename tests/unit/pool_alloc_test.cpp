// Block allocator: block geometry, the order in which elements are handed out and
// reused, sharing of one pool per element type, and what goes to operator new[].
//
// The global array operators are replaced to see the blocks being reserved. Each
// test uses element types of its own, so that the static pools start empty
// whatever the order of the tests.
#include "impl/pool_alloc.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <list>
#include <new>
#include <set>
#include <vector>

namespace {

struct array_calls {
  int news = 0;
  int deletes = 0;
  std::size_t last_size = 0;
  void* last_pointer = nullptr;
};
array_calls g_array_calls;

}  // namespace

// Out of line, so that the compiler does not pair the inlined free() with new[].
[[gnu::noinline]] void* operator new[](std::size_t size) {
  void* p = std::malloc(size ? size : 1);
  if (!p) throw std::bad_alloc();
  ++g_array_calls.news;
  g_array_calls.last_size = size;
  g_array_calls.last_pointer = p;
  return p;
}
[[gnu::noinline]] void operator delete[](void* p) noexcept {
  if (p) ++g_array_calls.deletes;
  std::free(p);
}
[[gnu::noinline]] void operator delete[](void* p, std::size_t) noexcept { operator delete[](p); }

namespace zelk {
namespace {

template <int N>
struct bytes {
  unsigned char data[N];
};
template <int TAG>
struct word {
  std::uint64_t value;
};

TEST(pool_alloc, block_geometry) {
  const pool_alloc_info& info24 = pool_alloc<bytes<24>>::m_info;
  EXPECT_EQ(info24.element_size, 24u);
  EXPECT_EQ(info24.elements_per_block, 41u);
  EXPECT_EQ(info24.block_size, 984u);
  const pool_alloc_info& info8 = pool_alloc<word<0>>::m_info;
  EXPECT_EQ(info8.element_size, 8u);
  EXPECT_EQ(info8.elements_per_block, 125u);
  EXPECT_EQ(info8.block_size, 1000u);
  // Smaller elements still hold the free-list link, and sizes keep pointer alignment.
  EXPECT_EQ(pool_alloc<char>::m_info.element_size, 8u);
  EXPECT_EQ(pool_alloc<bytes<20>>::m_info.element_size, 24u);
  // Elements larger than the target block size get a block of one.
  EXPECT_EQ(pool_alloc<bytes<1200>>::m_info.elements_per_block, 1u);
  EXPECT_EQ(pool_alloc<bytes<1200>>::m_info.block_size, 1200u);
}

TEST(pool_alloc, hands_out_a_block_in_order_and_reuses_last_freed_first) {
  typedef bytes<24> element;
  pool_alloc<element> alloc;
  const int news_before = g_array_calls.news;
  element* first = alloc.allocate(1);
  EXPECT_EQ(g_array_calls.news, news_before + 1);
  EXPECT_EQ(g_array_calls.last_size, 984u);
  EXPECT_EQ(static_cast<void*>(first), g_array_calls.last_pointer);

  std::vector<element*> taken{first};
  for (int i = 1; i < 41; ++i) {
    taken.push_back(alloc.allocate(1));
    EXPECT_EQ(taken.back(), first + i);
  }
  EXPECT_EQ(g_array_calls.news, news_before + 1);
  // The 42nd element needs a second block.
  element* second_block = alloc.allocate(1);
  EXPECT_EQ(g_array_calls.news, news_before + 2);
  EXPECT_EQ(static_cast<void*>(second_block), g_array_calls.last_pointer);
  EXPECT_EQ(pool_alloc<element>::m_info.blocks_reserved, 2u);

  // Freed elements come back last in, first out.
  alloc.deallocate(taken[5], 1);
  alloc.deallocate(taken[17], 1);
  EXPECT_EQ(alloc.allocate(1), taken[17]);
  EXPECT_EQ(alloc.allocate(1), taken[5]);
  // Then the rest of the second block, in order.
  EXPECT_EQ(alloc.allocate(1), second_block + 1);

  // Blocks are never given back: freeing everything and taking it again costs nothing.
  taken.push_back(second_block);
  taken.push_back(second_block + 1);
  for (element* p : taken) alloc.deallocate(p, 1);
  const int news_after = g_array_calls.news, deletes_after = g_array_calls.deletes;
  for (std::size_t i = 0; i < taken.size(); ++i) (void)alloc.allocate(1);
  EXPECT_EQ(g_array_calls.news, news_after);
  EXPECT_EQ(g_array_calls.deletes, deletes_after);
}

TEST(pool_alloc, other_counts_go_to_operator_new_array) {
  typedef word<1> element;
  pool_alloc<element> alloc;
  const int news_before = g_array_calls.news, deletes_before = g_array_calls.deletes;
  EXPECT_EQ(alloc.allocate(0), nullptr);
  alloc.deallocate(nullptr, 0);
  EXPECT_EQ(g_array_calls.news, news_before);
  EXPECT_EQ(g_array_calls.deletes, deletes_before);

  element* three = alloc.allocate(3);
  EXPECT_EQ(g_array_calls.news, news_before + 1);
  EXPECT_EQ(g_array_calls.last_size, 3 * sizeof(element));
  EXPECT_EQ(static_cast<void*>(three), g_array_calls.last_pointer);
  alloc.deallocate(three, 3);
  EXPECT_EQ(g_array_calls.deletes, deletes_before + 1);
  // Nothing of this touched the pool of single elements.
  EXPECT_EQ(pool_alloc<element>::m_info.free_list_head, nullptr);
  EXPECT_EQ(pool_alloc<element>::m_info.blocks_reserved, 0u);
}

TEST(pool_alloc, one_pool_per_type_shared_by_all_allocators) {
  typedef word<2> element;
  pool_alloc<element> a;
  pool_alloc<element> b(a);
  pool_alloc<bytes<8>> other_type(a);
  EXPECT_TRUE(a == b);
  EXPECT_FALSE(a != other_type);
  element* p = a.allocate(1);
  b.deallocate(p, 1);
  EXPECT_EQ(b.allocate(1), p);
  // A different type of the same size has its own pool.
  EXPECT_EQ(pool_alloc<bytes<8>>::m_info.free_list_head, nullptr);
}

TEST(pool_alloc, serves_standard_containers) {
  // A list node of this element is bigger than the element: the list rebinds the
  // allocator to its node type, and that type gets the pool.
  std::list<word<3>, pool_alloc<word<3>>> list;
  const int news_before = g_array_calls.news;
  for (std::uint64_t i = 0; i < 200; ++i) list.push_back(word<3>{i});
  std::uint64_t expected = 0;
  for (const word<3>& w : list) EXPECT_EQ(w.value, expected++);
  list.clear();
  const int news_full = g_array_calls.news;
  EXPECT_GT(news_full, news_before);
  for (std::uint64_t i = 0; i < 200; ++i) list.push_front(word<3>{i});
  EXPECT_EQ(g_array_calls.news, news_full);
  EXPECT_EQ(pool_alloc<word<3>>::m_info.blocks_reserved, 0u);

  std::vector<unsigned long, pool_alloc<unsigned long>> numbers;
  for (unsigned long i = 0; i < 1000; ++i) numbers.push_back(i * i);
  for (unsigned long i = 0; i < 1000; ++i) ASSERT_EQ(numbers[i], i * i);
  std::set<unsigned int, std::less<unsigned int>, pool_alloc<unsigned int>> tree;
  for (unsigned int i = 0; i < 300; ++i) tree.insert((i * 37) % 300);
  EXPECT_EQ(tree.size(), 300u);
  EXPECT_EQ(*tree.begin(), 0u);
  EXPECT_EQ(*tree.rbegin(), 299u);
}

}  // namespace
}  // namespace zelk
