// tk_singleton<T>: one static pointer per class, set by the first instance.
//
// The long-lived objects of the program (logger, error handler, shell,
// converter, engines) are locals of the entry routine that register here so
// that the rest of the code can reach them. The first instance constructed is
// the one; a second instance of the same class does not displace it, but its
// destructor clears the pointer all the same.
//
// Thread-safety: the pointer is written only during start-up and shut-down, on
// the main thread; every thread may read it. It is atomic so that those reads
// are well defined.
#pragma once

#include <atomic>

namespace qb {

// Throws tk_mail_assertion for a missing instance (source "..\TK/tk_singl").
[[noreturn]] void tk_singleton_missing(int line);

template <class T>
class tk_singleton {
 public:
  tk_singleton(const tk_singleton&) = delete;
  tk_singleton& operator=(const tk_singleton&) = delete;

  // The registered object; a missing one is an internal error.
  static T& instance() {
    T* p = try_instance();
    if (p == nullptr) tk_singleton_missing(64);
    return *p;
  }
  // The same, for the callers that used the stricter accessor.
  static T& checked_instance() {
    T* p = try_instance();
    if (p == nullptr) tk_singleton_missing(71);
    return *p;
  }
  // Null when no instance is registered; used where silence is the rule.
  static T* try_instance() { return static_cast<T*>(pointer_.load(std::memory_order_acquire)); }

 protected:
  // The base pointer is stored, not T*: the derived object is still under
  // construction here, and the downcast happens only when it is read.
  tk_singleton() {
    tk_singleton* expected = nullptr;
    pointer_.compare_exchange_strong(expected, this, std::memory_order_acq_rel);
  }
  ~tk_singleton() { pointer_.store(nullptr, std::memory_order_release); }

 private:
  static inline std::atomic<tk_singleton*> pointer_{nullptr};
};

}  // namespace qb
