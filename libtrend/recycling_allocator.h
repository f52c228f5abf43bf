// Memory for the many equal lists that a query makes.
#pragma once

#include <cstddef>
#include <new>

namespace toolkit::trend {

/// An allocator for containers of which many of one size come and go, like the samples of rows. It
/// keeps the blocks given back, as long as they are of the same size as the last one, and hands
/// them out again. Each thread has its own.
template <typename T>
class RecyclingAllocator {
 public:
  using value_type = T;

  RecyclingAllocator() = default;
  template <typename U>
  RecyclingAllocator(const RecyclingAllocator<U>& /*other*/) {}

  T* allocate(std::size_t count) {
    if (count != kept_.count || kept_.first == nullptr) {
      return static_cast<T*>(::operator new(count * sizeof(T)));
    }
    Block* block = kept_.first;
    kept_.first = block->next;
    return reinterpret_cast<T*>(block);
  }

  void deallocate(T* memory, std::size_t count) noexcept {
    if (count != kept_.count) {
      release();
      kept_.count = count;
      // Its end, that of the thread, releases what was kept.
      static_cast<void>(&cleaner_);
    }
    kept_.first = new (memory) Block{kept_.first};
  }

  friend bool operator==(const RecyclingAllocator&, const RecyclingAllocator&) { return true; }

 private:
  struct Block {
    Block* next;
  };
  struct Kept {
    std::size_t count = 0;  ///< how many T each block has room for
    Block* first = nullptr;
  };
  struct Cleaner {
    ~Cleaner() { release(); }
  };
  static_assert(sizeof(T) >= sizeof(Block) && alignof(T) >= alignof(Block));
  static_assert(alignof(T) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);

  static void release() noexcept {
    while (kept_.first != nullptr) {
      Block* block = kept_.first;
      kept_.first = block->next;
      ::operator delete(block);
    }
  }

  static inline thread_local constinit Kept kept_;
  static inline thread_local Cleaner cleaner_;
};

}  // namespace toolkit::trend
