// Ref<T>: the one holder for the library's reference-counted objects (anything with
// AddRef() and Dispose(): library objects and the host's transport objects alike).
// It owns exactly one reference and gives it back on scope exit, so exit paths need
// no hand-written Dispose() and no try/catch that exists only to release.
#pragma once

#include <utility>

namespace QxUtils {

template <typename T>
class Ref {
 public:
  Ref() = default;
  Ref(std::nullptr_t) {}  // NOLINT(google-explicit-constructor): reads like a pointer

  // Takes over a reference the caller already owns (a factory's result).
  static Ref Adopt(T* object) { return Ref(object); }
  // Adds a reference of its own; the caller keeps the one it had.
  static Ref Share(T* object) {
    if (object) object->AddRef();
    return Ref(object);
  }

  Ref(Ref&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  Ref& operator=(Ref&& other) noexcept {
    if (this != &other) Reset(std::exchange(other.object_, nullptr));
    return *this;
  }
  Ref(const Ref&) = delete;
  Ref& operator=(const Ref&) = delete;
  ~Ref() { Reset(); }

  T* get() const { return object_; }
  T* operator->() const { return object_; }
  T& operator*() const { return *object_; }
  explicit operator bool() const { return object_ != nullptr; }
  bool operator==(std::nullptr_t) const { return object_ == nullptr; }

  // Hands the owned reference to the caller (an out parameter, a factory's result).
  [[nodiscard]] T* Release() { return std::exchange(object_, nullptr); }

  // Gives back the owned reference, if any, and adopts `object`.
  void Reset(T* object = nullptr) {
    T* old = std::exchange(object_, object);
    if (old) old->Dispose();
  }

  // For out-parameter factories: `Create(..., ref.Out())` adopts what they return.
  T** Out() {
    Reset();
    return &object_;
  }

 private:
  explicit Ref(T* object) : object_(object) {}
  T* object_ = nullptr;
};

template <typename T>
Ref<T> AdoptRef(T* object) {
  return Ref<T>::Adopt(object);
}

template <typename T>
Ref<T> ShareRef(T* object) {
  return Ref<T>::Share(object);
}

}  // namespace QxUtils
