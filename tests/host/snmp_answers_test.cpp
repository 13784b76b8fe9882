// What the host may answer a GET with instead of asking the agent: only what the
// agent said in the last second, to the same credentials, before any SET.
#include "snmp_answers.h"

#include <gtest/gtest.h>

namespace NorvaneHost {
namespace {

using Known = SnmpAnswers::Known;
const std::string kPublic = "v2 public";

std::vector<oid> Row(oid n) { return {1, 3, 6, 1, 2, 1, 43, 11, 1, 1, 9, 1, n}; }

Known Find(SnmpAnswers& answers, const std::vector<oid>& name, uint64_t now, const std::string& who = kPublic) {
  Norvane::Variant value;
  return answers.Find(who, name, now, value.Ptr());
}

TEST(SnmpAnswers, ASpanVouchesForWhatLiesBetweenItsRows) {
  SnmpAnswers answers;
  // The agent listed rows 3 and 5 after row 2, then something else.
  std::vector<SnmpAnswers::Row> rows(2);
  rows[0] = {Row(3), Norvane::Variant::FromInt32(30)};
  rows[1] = {Row(5), Norvane::Variant::FromInt32(50)};
  answers.KeepSpan(kPublic, Row(2), rows, false, 1000);
  struct Case {
    std::vector<oid> name;
    uint64_t now;
    Known known;
  };
  const Case cases[] = {
      {Row(2), 1000, Known::kUnknown},  // the row the span starts after was not listed
      {Row(3), 1000, Known::kPresent},
      {Row(4), 1000, Known::kAbsent},
      {Row(5), 1000, Known::kPresent},
      {Row(6), 1000, Known::kUnknown},  // beyond the last row the agent listed
      {{1, 3, 6, 1, 2, 1, 43, 11, 1, 1, 9, 1, 4, 7}, 1000, Known::kAbsent},
      {Row(4), 1000 + SnmpAnswers::kLifeMs, Known::kAbsent},
      {Row(4), 1001 + SnmpAnswers::kLifeMs, Known::kUnknown},
      {Row(3), 1001 + SnmpAnswers::kLifeMs, Known::kUnknown},
  };
  for (const auto& c : cases) EXPECT_EQ(c.known, Find(answers, c.name, c.now)) << c.name.back() << " at " << c.now;
  Norvane::Variant value;
  ASSERT_EQ(Known::kPresent, answers.Find(kPublic, Row(5), 1000, value.Ptr()));
  EXPECT_EQ(50, value.Get().lVal);
  // Other credentials may see other objects.
  EXPECT_EQ(Known::kUnknown, Find(answers, Row(4), 1000, "v2 private"));
  // A span that reached the end of the agent's objects vouches up to there.
  answers.KeepSpan(kPublic, Row(9), {}, true, 1000);
  EXPECT_EQ(Known::kAbsent, Find(answers, {2, 1}, 1000));
  answers.Forget();
  EXPECT_EQ(Known::kUnknown, Find(answers, Row(3), 1000));
  EXPECT_EQ(Known::kUnknown, Find(answers, Row(4), 1000));
}

TEST(SnmpAnswers, MissingObjectsAndSilenceAreKeptToo) {
  SnmpAnswers answers;
  Norvane::Variant text = Norvane::Variant::FromString(u"NX-4100");
  answers.Keep(kPublic, Row(1), &text.Get(), 0);
  answers.Keep(kPublic, Row(2), nullptr, 0);
  EXPECT_EQ(Known::kPresent, Find(answers, Row(1), 10));
  EXPECT_EQ(Known::kAbsent, Find(answers, Row(2), 10));
  answers.KeepSilence("v2 other", 0);
  EXPECT_EQ(Known::kSilent, Find(answers, Row(1), 10, "v2 other"));
  EXPECT_EQ(Known::kUnknown, Find(answers, Row(1), 2000, "v2 other"));
}

TEST(SnmpAnswers, AFullStoreDropsSpansWithTheirRows) {
  SnmpAnswers answers;
  std::vector<SnmpAnswers::Row> rows(2);
  rows[0] = {Row(1), Norvane::Variant::FromInt32(1)};
  rows[1] = {Row(3), Norvane::Variant::FromInt32(3)};
  answers.KeepSpan(kPublic, Row(0), rows, false, 0);
  // Fresh objects fill the store; the span's rows go, and so must the span, or
  // row 1 would be reported missing.
  for (oid n = 0; n < SnmpAnswers::kMaxObjects; ++n) answers.Keep("v2 other", {1, n}, nullptr, 0);
  EXPECT_EQ(Known::kUnknown, Find(answers, Row(1), 0));
  EXPECT_EQ(Known::kUnknown, Find(answers, Row(2), 0));
}

}  // namespace
}  // namespace NorvaneHost
