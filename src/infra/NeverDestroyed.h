// An object for a function's static variable that other static objects may use to the very end of the
// process.
#pragma once

template <class T>
class NeverDestroyed {
public:
  NeverDestroyed() : object_() {}
  ~NeverDestroyed() {}
  NeverDestroyed(NeverDestroyed const&) = delete;
  NeverDestroyed& operator=(NeverDestroyed const&) = delete;

  T& operator*() { return object_; }

private:
  union {
    T object_;
  };
};
