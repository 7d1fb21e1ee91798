// Fixed-size block allocator for node-based containers (watch lists, literal
// vectors, formula nodes, tree nodes).
//
// One free list per element type, shared by every container of that type and
// never given back to the system: after the first blocks are reserved, a steady
// allocate/deallocate pattern of single elements never reaches operator new.
// Single-threaded by design, like the rest of the engine.
#ifndef ZELK_IMPL_POOL_ALLOC_H
#define ZELK_IMPL_POOL_ALLOC_H

#include <cstddef>
#include <cstdint>
#include <new>

namespace zelk {

struct pool_alloc_info {
  // A free element holds the link to the next one.
  struct free_node {
    free_node* next;
  };

  // constexpr, so that the pools are ready before any dynamic initialisation.
  constexpr explicit pool_alloc_info(std::uint32_t element_bytes)
      : element_size(round_up(element_bytes)),
        elements_per_block(1000u / element_size ? 1000u / element_size : 1u),
        block_size(elements_per_block * element_size) {}

  // Takes one block from the system and links all its elements, in order, into
  // the (empty) free list.
  void reserve_block() {
    if (free_list_head) return;
    char* block = static_cast<char*>(::operator new[](block_size));
    for (std::uint32_t i = 0; i < elements_per_block; ++i) {
      free_node* node = reinterpret_cast<free_node*>(block + std::size_t(i) * element_size);
      node->next = i + 1 < elements_per_block
                       ? reinterpret_cast<free_node*>(block + std::size_t(i + 1) * element_size)
                       : nullptr;
    }
    free_list_head = reinterpret_cast<free_node*>(block);
    ++blocks_reserved;
  }

  // Every element can hold an aligned link: sizes are multiples of a pointer, at least 8.
  static constexpr std::uint32_t round_up(std::uint32_t bytes) {
    const std::uint32_t a = sizeof(free_node);
    return bytes < a ? a : (bytes + a - 1) / a * a;
  }

  free_node* free_list_head = nullptr;
  std::uint32_t element_size;
  std::uint32_t elements_per_block;
  std::uint32_t block_size;
  std::uint64_t blocks_reserved = 0;
};

template <class T>
class pool_alloc {
 public:
  typedef T value_type;
  typedef T* pointer;
  typedef const T* const_pointer;
  typedef std::size_t size_type;
  typedef std::ptrdiff_t difference_type;
  template <class U>
  struct rebind {
    typedef pool_alloc<U> other;
  };

  pool_alloc() noexcept = default;
  template <class U>
  pool_alloc(const pool_alloc<U>&) noexcept {}

  T* allocate(std::size_t n) {
    if (n == 1) {
      if (!m_info.free_list_head) m_info.reserve_block();
      pool_alloc_info::free_node* node = m_info.free_list_head;
      m_info.free_list_head = node->next;
      return reinterpret_cast<T*>(node);
    }
    if (n == 0) return nullptr;
    return static_cast<T*>(::operator new[](n * sizeof(T)));
  }

  void deallocate(T* p, std::size_t n) noexcept {
    if (n == 1) {
      pool_alloc_info::free_node* node = reinterpret_cast<pool_alloc_info::free_node*>(p);
      node->next = m_info.free_list_head;
      m_info.free_list_head = node;
      return;
    }
    if (p) ::operator delete[](p);
  }

  template <class U>
  bool operator==(const pool_alloc<U>&) const noexcept {
    return true;
  }
  template <class U>
  bool operator!=(const pool_alloc<U>&) const noexcept {
    return false;
  }

  static pool_alloc_info m_info;
};

// Elements must be able to hold the free-list link and keep their alignment.
template <class T>
constinit pool_alloc_info pool_alloc<T>::m_info(std::uint32_t(sizeof(T)));

}  // namespace zelk

#endif
