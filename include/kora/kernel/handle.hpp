#pragma once

/// \file
/// THandle<T>: the shared, reference-counted handle through which every model object is
/// passed and kept. It is a thin wrapper over std::shared_ptr that refuses to dereference a
/// null handle (it throws instead), converts from handles of derived classes, and orders and
/// hashes by the address it holds so handles can key ordered and unordered containers.

#include <compare>
#include <cstddef>
#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

namespace kora {

class THandleCommon {
 public:
  /// Throws std::logic_error("THandle: null handle dereferenced").
  [[noreturn]] static void null_handle_error();
};

template <class T>
class THandle {
 public:
  using element_type = T;

  THandle() noexcept = default;
  THandle(std::nullptr_t) noexcept {}  // NOLINT(google-explicit-constructor)

  /// Takes ownership of a freshly allocated object: THandle<Atom>(new FileOrderedAtom3d(...)).
  template <class U>
  requires std::is_convertible_v<U*, T*>
  explicit THandle(U* object) : ptr_(object) {}

  explicit THandle(std::shared_ptr<T> ptr) noexcept : ptr_(std::move(ptr)) {}

  /// A handle to a derived class converts to a handle to its base.
  template <class U>
  requires std::is_convertible_v<U*, T*> THandle(THandle<U> const& other)
  noexcept  // NOLINT(google-explicit-constructor)
      : ptr_(other.shared()) {}
  template <class U>
  requires std::is_convertible_v<U*, T*> THandle(THandle<U>&& other)
  noexcept  // NOLINT(google-explicit-constructor)
      : ptr_(std::move(other).shared()) {}

  T* operator->() const {
    if (!ptr_) THandleCommon::null_handle_error();
    return ptr_.get();
  }
  T& operator*() const {
    if (!ptr_) THandleCommon::null_handle_error();
    return *ptr_;
  }

  T* get() const noexcept { return ptr_.get(); }
  bool is_null() const noexcept { return !ptr_; }
  explicit operator bool() const noexcept { return static_cast<bool>(ptr_); }
  long use_count() const noexcept { return ptr_.use_count(); }
  void reset() noexcept { ptr_.reset(); }

  std::shared_ptr<T> const& shared() const& noexcept { return ptr_; }
  std::shared_ptr<T> shared() && noexcept { return std::move(ptr_); }

  friend bool operator==(THandle const& a, THandle const& b) noexcept { return a.ptr_ == b.ptr_; }
  friend bool operator==(THandle const& a, std::nullptr_t) noexcept { return !a.ptr_; }
  friend std::strong_ordering operator<=>(THandle const& a, THandle const& b) noexcept {
    return std::compare_three_way{}(a.ptr_.get(), b.ptr_.get());
  }

 private:
  std::shared_ptr<T> ptr_;
};

/// Makes a new object and its handle in one allocation.
template <class T, class... Args>
THandle<T> make_handle(Args&&... args) {
  return THandle<T>(std::make_shared<T>(std::forward<Args>(args)...));
}

/// The view of an object as another class in its hierarchy; a null handle when the object is
/// not of that class (or the handle is null).
template <class U, class T>
THandle<U> handle_dynamic_cast(THandle<T> const& handle) {
  return THandle<U>(std::dynamic_pointer_cast<U>(handle.shared()));
}

/// The view of an object as a class known to be in its hierarchy (no run-time check).
template <class U, class T>
THandle<U> handle_static_cast(THandle<T> const& handle) {
  return THandle<U>(std::static_pointer_cast<U>(handle.shared()));
}

}  // namespace kora

template <class T>
struct std::hash<kora::THandle<T>> {
  std::size_t operator()(kora::THandle<T> const& h) const noexcept {
    return std::hash<T*>{}(h.get());
  }
};
