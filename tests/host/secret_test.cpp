// A pass phrase leaves no readable bytes where it was held once it is dropped,
// moved away or replaced.
#include "secret.h"

#include <gtest/gtest.h>

#include <new>
#include <string_view>

namespace {

using NorvaneHost::Secret;

// Short enough to live inside the string object itself, where a leftover
// copy can be read without touching freed memory.
constexpr std::string_view kPhrase = "hunter2hunter";

// Whether the phrase's tail is there: an emptied string overwrites only its
// first bytes.
bool Holds(const void* bytes, size_t size, std::string_view phrase = kPhrase) {
  return std::string_view(static_cast<const char*>(bytes), size).find(phrase.substr(phrase.size() - 6)) !=
         std::string_view::npos;
}

TEST(Secret, NoCopyOfThePhraseStaysBehind) {
  struct Case {
    const char* name;
    bool moves;
    void (*drop)(Secret* held, Secret* other);
  } cases[] = {
      {"destroyed", false,
       [](Secret* held, Secret*) {
         held->~Secret();
         new (held) Secret();
       }},
      {"moved into a new one", true, [](Secret* held, Secret* other) { new (other) Secret(std::move(*held)); }},
      {"moved over another", true, [](Secret* held, Secret* other) { *new (other) Secret() = std::move(*held); }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    alignas(Secret) unsigned char held[sizeof(Secret)], other[sizeof(Secret)];
    auto* secret = new (held) Secret(std::string(kPhrase));
    ASSERT_EQ(secret->Text(), kPhrase);
    c.drop(secret, reinterpret_cast<Secret*>(other));
    EXPECT_FALSE(Holds(held, sizeof held));
    std::launder(reinterpret_cast<Secret*>(held))->~Secret();
    if (c.moves) {
      auto* moved = std::launder(reinterpret_cast<Secret*>(other));
      EXPECT_EQ(moved->Text(), kPhrase);
      moved->~Secret();
    }
  }
  std::string given(kPhrase);
  Secret taken(std::move(given));
  EXPECT_FALSE(Holds(given.data(), given.capacity()));
  // A shorter phrase over a longer one leaves no tail behind its end.
  Secret longer(std::string(kPhrase) + "-and-more"), shorter(std::string("12345678"));
  const char* buffer = longer.Text().data();
  size_t capacity = longer.Text().capacity();
  longer = shorter;
  ASSERT_EQ(longer.Text().data(), buffer);
  EXPECT_FALSE(Holds(buffer, capacity, std::string(kPhrase) + "-and-more"));
}

}  // namespace
