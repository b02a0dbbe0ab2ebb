#pragma once
#include <atomic>
#include <memory>

/// An object that is made when somebody asks for it first, also where its owner is const.
///
/// Any number of threads may ask at once. Each of them may make one; the first one that is published stays, and all
/// get that one. Whoever replaces, moves or destroys the object must be alone with it, as with any other member.
template <class T>
class Util_OnDemand {
public:
  Util_OnDemand() = default;
  explicit Util_OnDemand(std::unique_ptr<T> object) noexcept : object_(object.release()) {}
  Util_OnDemand(Util_OnDemand&& other) noexcept : object_(other.Release().release()) {}
  Util_OnDemand& operator=(Util_OnDemand&& other) noexcept {
    Reset(other.Release());
    return *this;
  }
  ~Util_OnDemand() { delete alone(); }

  /// The object, or null while there is none.
  T* Get() const noexcept { return object_.load(std::memory_order_acquire); }
  /// The object; the first time it is what `make` returns as a std::unique_ptr that isn't null.
  template <class Make>
  T& GetOr(Make make) const {
    if (T* const known = Get()) return *known;
    std::unique_ptr<T> made = make();
    T* first = nullptr;
    if (object_.compare_exchange_strong(first, made.get(), std::memory_order_acq_rel, std::memory_order_acquire))
      return *made.release();
    return *first;
  }
  /// Replaces the object.
  void Reset(std::unique_ptr<T> object = nullptr) noexcept {
    T* const old = alone();
    object_.store(object.release(), std::memory_order_relaxed);
    delete old;
  }
  /// Hands the object over, if there is one; there is none then.
  std::unique_ptr<T> Release() noexcept {
    std::unique_ptr<T> object(alone());
    object_.store(nullptr, std::memory_order_relaxed);
    return object;
  }

private:
  T* alone() const noexcept { return object_.load(std::memory_order_relaxed); }

  mutable std::atomic<T*> object_{nullptr};
};
