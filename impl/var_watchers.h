// The watchers of one variable: which constraints wait for which events (keyed by
// watch_type) or for the loss of which values (keyed by value).
//
// Nodes come from one process-wide pool, so watch and unwatch never reach the
// system allocator in the steady state. A handle is the list position of a node;
// nodes never move, so handles stay valid while other keys come and go.
//
// Lists may change while they are walked: a walk holds a for_each_cleaner, which
// defers the removal of emptied key entries until the outermost walk ends. The walk
// keeps the key index (entries may be appended, and the vector may grow) and takes
// the next list position before it calls a constraint.
#ifndef ZELK_IMPL_VAR_WATCHERS_H
#define ZELK_IMPL_VAR_WATCHERS_H

#include <cstdint>
#include <list>
#include <utility>
#include <vector>

#include "impl/pool_alloc.h"
#include "impl/small_iset.h"

namespace zelk {

class var_watchers_base {
 public:
  [[noreturn]] static void throw_nonexistent_watch();

  static constexpr unsigned int NO_FILTER = 0xFFFFFFFFu;
  // filter_var and filter_bits, set by the watcher: while the domain of filter_var
  // lies within filter_bits, the constraint would answer "valid" and change nothing,
  // so the walk need not call it (a clause's other watched literal holding).
  struct watcher_info_type {
    unsigned int constraint;
    unsigned int filter_var = NO_FILTER;
    std::uint32_t filter_bits = 0;
  };
  // A watch record stays packed: the walks read it for every watcher.
  static_assert(sizeof(watcher_info_type) == 12);
  typedef std::list<watcher_info_type, pool_alloc<watcher_info_type>> list_type;

  // One watched key and its watchers. Moving keeps the nodes (and thus the handles).
  struct key_watchers {
    key_watchers(int k) : key(k) {}
    key_watchers(key_watchers&& other) noexcept = default;
    key_watchers& operator=(key_watchers&& other) noexcept = default;
    key_watchers(const key_watchers&) = delete;
    key_watchers& operator=(const key_watchers&) = delete;

    int key;
    list_type watchers;
  };
};

// The position of one watcher. A default handle is the end of a static empty list:
// a propagator keeps one in each empty watch slot.
class watch_handle_t {
 public:
  typedef var_watchers_base::list_type::iterator iterator;
  watch_handle_t() : m_it(null_watch_list.end()) {}
  explicit watch_handle_t(iterator it) : m_it(it) {}
  iterator position() const { return m_it; }
  bool is_null() const { return m_it == null_watch_list.end(); }
  bool operator==(const watch_handle_t& other) const { return m_it == other.m_it; }
  bool operator!=(const watch_handle_t& other) const { return m_it != other.m_it; }

  static var_watchers_base::list_type null_watch_list;

 private:
  iterator m_it;
};

template <class K>
class var_watchers_impl : public var_watchers_base {
 public:
  explicit var_watchers_impl(bool add_at_back) : m_add_at_back(add_at_back) {}
  var_watchers_impl(var_watchers_impl&&) noexcept = default;
  var_watchers_impl& operator=(var_watchers_impl&&) noexcept = default;

  watch_handle_t allocate_watch(int key, unsigned int constraint) {
    key_watchers* kw = find_key_watchers(key);
    if (!kw) {
      m_keys.emplace_back(key);
      kw = &m_keys.back();
    }
    ++m_count;
    if (m_add_at_back) {
      kw->watchers.push_back(watcher_info_type{constraint});
      return watch_handle_t(std::prev(kw->watchers.end()));
    }
    kw->watchers.push_front(watcher_info_type{constraint});
    return watch_handle_t(kw->watchers.begin());
  }

  // Raises std::out_of_range "Can't deallocate nonexistent watch" for an unknown key
  // or the null handle.
  void deallocate_watch(int key, watch_handle_t handle);

  // Walks all keys from the last to the first, each list from the back, and
  // deallocates the watchers for which pred(watcher_info_type) holds.
  template <class Predicate>
  void deallocate_watches(Predicate pred) {
    for (std::size_t k = m_keys.size(); k-- > 0;) {
      list_type& list = m_keys[k].watchers;
      for (auto it = list.end(); it != list.begin();) {
        --it;
        if (pred(*it)) {
          auto victim = it;
          ++it;
          list.erase(victim);
          --m_count;
        }
      }
      if (list.empty() && !m_iterating) remove_key_at(k);
    }
  }

  key_watchers* find_key_watchers(int key) {
    for (key_watchers& kw : m_keys)
      if (kw.key == key) return &kw;
    return nullptr;
  }
  const key_watchers* find_key_watchers(int key) const {
    for (const key_watchers& kw : m_keys)
      if (kw.key == key) return &kw;
    return nullptr;
  }
  bool watches(int key) const { return find_key_watchers(key) != nullptr; }
  bool is_key_watched_by_constraint(int key, unsigned int constraint) const {
    const key_watchers* kw = find_key_watchers(key);
    if (!kw) return false;
    for (const watcher_info_type& w : kw->watchers)
      if (w.constraint == constraint) return true;
    return false;
  }
  bool empty() const { return m_count == 0; }
  // The count matches the lists, every key is listed once, no empty list outlives a
  // walk, and every watcher names a constraint below `constraints`; false on a fault.
  bool audit(std::size_t constraints) const {
    std::uint32_t count = 0;
    for (std::size_t k = 0; k < m_keys.size(); ++k) {
      if (m_keys[k].watchers.empty() && !m_iterating) return false;
      for (std::size_t j = 0; j < k; ++j)
        if (m_keys[j].key == m_keys[k].key) return false;
      for (const watcher_info_type& w : m_keys[k].watchers) {
        if (w.constraint >= constraints) return false;
        ++count;
      }
    }
    return count == m_count;
  }
  unsigned int count_all_watches() const { return m_count; }

  // Walk access: entries are read through their index, never through a kept pointer.
  std::size_t num_keys() const { return m_keys.size(); }
  key_watchers& key_at(std::size_t i) { return m_keys[i]; }
  const key_watchers& key_at(std::size_t i) const { return m_keys[i]; }
  bool iterating() const { return m_iterating; }

  // Scope guard around every walk. Only the outermost guard cleans up.
  class for_each_cleaner {
   public:
    explicit for_each_cleaner(var_watchers_impl& watchers)
        : m_watchers(watchers.m_iterating ? nullptr : &watchers) {
      if (m_watchers) m_watchers->m_iterating = true;
    }
    ~for_each_cleaner() {
      if (!m_watchers) return;
      m_watchers->m_iterating = false;
      for (std::size_t k = m_watchers->m_keys.size(); k-- > 0;)
        if (m_watchers->m_keys[k].watchers.empty()) m_watchers->remove_key_at(k);
    }
    for_each_cleaner(const for_each_cleaner&) = delete;
    for_each_cleaner& operator=(const for_each_cleaner&) = delete;

   private:
    var_watchers_impl* m_watchers;
  };

  // Predicate for walks over all keys.
  struct cond_always_true {
    bool operator()(const watcher_info_type&) const { return true; }
  };

 private:
  // Moves the last entry into place k; nodes do not move, handles stay valid.
  void remove_key_at(std::size_t k) {
    if (k + 1 != m_keys.size()) m_keys[k] = std::move(m_keys.back());
    m_keys.pop_back();
  }

  std::vector<key_watchers> m_keys;
  std::uint32_t m_count = 0;
  bool m_iterating = false;
  bool m_add_at_back;
};

template <class K>
void var_watchers_impl<K>::deallocate_watch(int key, watch_handle_t handle) {
  for (std::size_t k = 0; k < m_keys.size(); ++k) {
    if (m_keys[k].key != key) continue;
    if (handle.is_null()) break;
    m_keys[k].watchers.erase(handle.position());
    --m_count;
    if (m_keys[k].watchers.empty() && !m_iterating) remove_key_at(k);
    return;
  }
  throw_nonexistent_watch();
}

// Event watchers, keyed by watch_type; new watchers go to the front.
class var_event_watchers : public var_watchers_impl<small_iset> {
 public:
  var_event_watchers() : var_watchers_impl<small_iset>(false) {}
};

// Value watchers, keyed by value; new watchers go to the back.
class var_value_watchers : public var_watchers_impl<small_model::iset> {
 public:
  var_value_watchers() : var_watchers_impl<small_model::iset>(true) {}
};

}  // namespace zelk

#endif
