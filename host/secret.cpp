#include "secret.h"

#include "text.h"

namespace NorvaneHost {

// Copies, never moves, from another string: moving a short string copies its
// bytes out of the inline buffer and leaves them there.
Secret::Secret(std::string&& text) : text_(text) { Wipe(text); }

Secret::Secret(const Secret& other) : text_(other.text_) {}

Secret::Secret(Secret&& other) {
  text_.reserve(other.text_.capacity());
  text_.assign(other.text_);
  Wipe(other.text_);
}

Secret& Secret::operator=(const Secret& other) {
  if (this != &other) {
    Wipe(text_);
    text_.assign(other.text_);
  }
  return *this;
}

Secret& Secret::operator=(Secret&& other) {
  if (this != &other) {
    Wipe(text_);
    text_.assign(other.text_);
    Wipe(other.text_);
  }
  return *this;
}

Secret::~Secret() { Wipe(text_); }

}  // namespace NorvaneHost
