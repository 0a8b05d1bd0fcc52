#include "filemode/stream_bytes.hpp"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <optional>
#include <utility>
#include <vector>

namespace vormelt::filemode {
namespace {

constexpr std::size_t kMinCapacity = 4096;
// Mappings given up wait here for the next stream that grows large, up to this much: their
// pages are resident already, where a new mapping's would each be faulted in and zeroed again.
constexpr std::size_t kPoolLimit = 16 << 20;

struct Mapping {
  void* data;
  std::size_t capacity;
};

struct MappingPool {
  std::mutex mutex;
  std::vector<Mapping> mappings;
  std::size_t bytes = 0;
};

MappingPool& Pool() {
  static MappingPool pool;
  return pool;
}

// The smallest pooled mapping of at least `capacity`, else the largest one there is (it grows
// the least).
std::optional<Mapping> TakePooled(std::size_t capacity) {
  MappingPool& pool = Pool();
  std::lock_guard lock(pool.mutex);
  if (pool.mappings.empty()) return std::nullopt;
  const auto better = [capacity](const Mapping& a, const Mapping& b) {
    const bool aFits = a.capacity >= capacity;
    if (aFits != (b.capacity >= capacity)) return aFits;
    return aFits ? a.capacity < b.capacity : a.capacity > b.capacity;
  };
  const auto best = std::min_element(pool.mappings.begin(), pool.mappings.end(), better);
  const Mapping mapping = *best;
  *best = pool.mappings.back();
  pool.mappings.pop_back();
  pool.bytes -= mapping.capacity;
  return mapping;
}

void GiveBack(Mapping mapping) {
  MappingPool& pool = Pool();
  {
    std::lock_guard lock(pool.mutex);
    if (pool.bytes + mapping.capacity <= kPoolLimit) {
      pool.mappings.push_back(mapping);
      pool.bytes += mapping.capacity;
      return;
    }
  }
  ::munmap(mapping.data, mapping.capacity);
}

std::size_t PageSize() {
  static const auto size = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  return size;
}

std::size_t RoundToPages(std::size_t n) {
  const std::size_t page = PageSize();
  return (n + page - 1) / page * page;
}

}  // namespace

StreamBytes::~StreamBytes() { Clear(); }

StreamBytes::StreamBytes(StreamBytes&& other) noexcept
    : data_(std::exchange(other.data_, nullptr)),
      size_(std::exchange(other.size_, 0)),
      capacity_(std::exchange(other.capacity_, 0)),
      mapped_(std::exchange(other.mapped_, false)) {}

StreamBytes& StreamBytes::operator=(StreamBytes&& other) noexcept {
  if (this != &other) {
    Clear();
    data_ = std::exchange(other.data_, nullptr);
    size_ = std::exchange(other.size_, 0);
    capacity_ = std::exchange(other.capacity_, 0);
    mapped_ = std::exchange(other.mapped_, false);
  }
  return *this;
}

void StreamBytes::ReleasePool() {
  MappingPool& pool = Pool();
  std::vector<Mapping> mappings;
  {
    std::lock_guard lock(pool.mutex);
    mappings.swap(pool.mappings);
    pool.bytes = 0;
  }
  for (const Mapping& mapping : mappings) ::munmap(mapping.data, mapping.capacity);
}

void StreamBytes::Clear() {
  if (mapped_) {
    GiveBack({data_, capacity_});
  } else {
    std::free(data_);
  }
  data_ = nullptr;
  size_ = capacity_ = 0;
  mapped_ = false;
}

void StreamBytes::Reserve(std::size_t capacity) {
  if (capacity <= capacity_) return;
  if (capacity < kMapThreshold) {
    void* grown = std::realloc(data_, capacity);
    if (!grown) throw std::bad_alloc();
    data_ = static_cast<std::uint8_t*>(grown);
    capacity_ = capacity;
    return;
  }
  capacity = RoundToPages(capacity);
  if (mapped_) {
    void* grown = ::mremap(data_, capacity_, capacity, MREMAP_MAYMOVE);
    if (grown == MAP_FAILED) throw std::bad_alloc();
    data_ = static_cast<std::uint8_t*>(grown);
    capacity_ = capacity;
    return;
  }
  void* mapped = MAP_FAILED;
  if (const std::optional<Mapping> pooled = TakePooled(capacity)) {
    mapped = pooled->data;
    if (pooled->capacity >= capacity) {
      capacity = pooled->capacity;
    } else {
      mapped = ::mremap(pooled->data, pooled->capacity, capacity, MREMAP_MAYMOVE);
      if (mapped == MAP_FAILED) ::munmap(pooled->data, pooled->capacity);
    }
  }
  if (mapped == MAP_FAILED) {
    mapped = ::mmap(nullptr, capacity, PROT_READ | PROT_WRITE,
                    MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  }
  if (mapped == MAP_FAILED) {
    // Out of mappings (each large stream takes one): the heap still serves, at the cost of
    // copying on growth.
    void* grown = std::realloc(data_, capacity);
    if (!grown) throw std::bad_alloc();
    data_ = static_cast<std::uint8_t*>(grown);
    capacity_ = capacity;
    return;
  }
  if (size_ != 0) std::memcpy(mapped, data_, size_);
  std::free(data_);
  data_ = static_cast<std::uint8_t*>(mapped);
  capacity_ = capacity;
  mapped_ = true;
}

void StreamBytes::Append(std::span<const std::uint8_t> bytes) {
  if (bytes.empty()) return;
  if (bytes.size() > capacity_ - size_) {
    // Doubling keeps appending amortised constant time.
    std::size_t capacity = capacity_ < kMinCapacity ? kMinCapacity : capacity_ * 2;
    if (capacity < size_ + bytes.size()) capacity = size_ + bytes.size();
    Reserve(capacity);
  }
  std::memcpy(data_ + size_, bytes.data(), bytes.size());
  size_ += bytes.size();
}

void StreamBytes::Truncate(std::size_t size) {
  if (size < size_) size_ = size;
}

void StreamBytes::ReleaseBelow(std::size_t end) {
  if (!mapped_) return;
  const std::size_t pages = end / PageSize() * PageSize();
  if (pages != 0) ::madvise(data_, pages, MADV_DONTNEED);
}

}  // namespace vormelt::filemode
