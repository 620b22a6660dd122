#include "udb/validator.h"

#include <string>

#include <gtest/gtest.h>

#include "tk/exception.h"

#include "support/temp_dir.h"

namespace qb {
namespace {

// A rule set of the simplest kind: a limit, illegal characters and reserved
// words given by the test.
class rule_set : public udb_validator {
 public:
  explicit rule_set(std::uint32_t max_len, std::wstring_view illegal = L"",
                    const std::vector<std::wstring>& reserved = {})
      : udb_validator(max_len) {
    add_illegal_chars(illegal);
    add_restricted_names(reserved);
  }
};

// Refuses every name that ends in a digit, so that no suffixed name can pass.
class refuses_suffixes : public udb_validator {
 public:
  [[nodiscard]] bool is_acceptable(const std::wstring& name) const override {
    return name.empty() || name.back() < L'0' || name.back() > L'9';
  }
};

// Refuses names that end in '0', to show that overrides steer the search.
class refuses_trailing_zero : public udb_validator {
 public:
  [[nodiscard]] bool is_acceptable(const std::wstring& name) const override {
    return !name.ends_with(L"0") && udb_validator::is_acceptable(name);
  }
};

TEST(UdbValidator, AcceptsPlainNameAndLogsEntry) {
  test::log_capture log;
  rule_set v(64, L" ");
  EXPECT_TRUE(v.is_acceptable(L"orders"));
  EXPECT_TRUE(log.has_line("udb_validator::is_acceptable(orders)"));
}

TEST(UdbValidator, RefusesTooLongNameFirst) {
  test::log_capture log;
  rule_set v(3, L"x", {L"abcd"});
  EXPECT_FALSE(v.is_acceptable(L"abcd"));
  EXPECT_TRUE(log.has_line("The name is too long"));
  EXPECT_FALSE(log.has_line("The name is restricted"));
}

TEST(UdbValidator, RefusesRestrictedNameIgnoringCase) {
  test::log_capture log;
  rule_set v(0, L"", {L"order"});
  EXPECT_FALSE(v.is_acceptable(L"ORDER"));
  EXPECT_TRUE(log.has_line("The name is restricted"));
}

TEST(UdbValidator, RefusesIllegalCharacterAndNamesIt) {
  test::log_capture log;
  rule_set v(0, L";|");
  EXPECT_FALSE(v.is_acceptable(L"a|b"));
  EXPECT_TRUE(log.has_line("The name contains illegal: |"));
}

TEST(UdbValidator, DuplicateTestLogsEachCandidate) {
  test::log_capture log;
  rule_set v(0);
  v.add_existing_name(L"one");
  v.add_existing_name(L"Two");
  EXPECT_TRUE(v.is_duplicated(L"TWO"));
  EXPECT_TRUE(log.has_line("udb_validator::add_existing_name(one)"));
  EXPECT_TRUE(log.has_line("udb_validator::is_duplicated(TWO)"));
  EXPECT_TRUE(log.has_line("Processing one"));
  EXPECT_TRUE(log.has_line("Processing Two"));
  EXPECT_TRUE(log.has_line("Name is duplicated"));
  EXPECT_FALSE(v.is_duplicated(L"three"));
}

TEST(UdbValidator, AddExistingNameDoesNotTestTheName) {
  rule_set v(2, L"x");
  v.add_existing_name(L"xxxxx");
  v.add_existing_name(L"xxxxx");
  EXPECT_EQ(v.existing().size(), 2U);
}

TEST(UdbValidator, ZeroLimitNeverCutsTheName) {
  rule_set v(0);
  const std::wstring long_name(300, L'n');
  EXPECT_EQ(v.get_safe_name(long_name), long_name);
  v.add_existing_name(long_name);
  EXPECT_EQ(v.get_safe_name(long_name), long_name + L"00000");
}

TEST(UdbValidator, NameOfExactlyTheLimitPassesUntouched) {
  rule_set v(10);
  EXPECT_EQ(v.get_safe_name(L"abcdefghij"), L"abcdefghij");
}

TEST(UdbValidator, NameOneOverTheLimitLosesTwoCharacters) {
  rule_set v(10);
  EXPECT_EQ(v.get_safe_name(L"abcdefghijk"), L"abcdefghi");
}

TEST(UdbValidator, IllegalBlankBecomesUnderscore) {
  test::log_capture log;
  rule_set v(64, L" ");
  EXPECT_EQ(v.get_safe_name(L"A B"), L"A_B");
  EXPECT_TRUE(log.has_line("udb_validator::get_safe_name(A B)"));
}

TEST(UdbValidator, TakenNameGetsFiveDigitCounter) {
  rule_set v(64, L" ");
  v.add_existing_name(L"A_B");
  const std::wstring first = v.get_safe_name(L"A B");
  EXPECT_EQ(first, L"A_B00000");
  v.add_existing_name(first);
  EXPECT_EQ(v.get_safe_name(L"A B"), L"A_B00001");
}

TEST(UdbValidator, RestrictedNameGetsCounterAsWell) {
  rule_set v(64, L"", {L"order"});
  EXPECT_EQ(v.get_safe_name(L"Order"), L"Order00000");
}

TEST(UdbValidator, ClashingNameAtTheLimitIsCutToMakeRoomForCounter) {
  rule_set v(64);
  const std::wstring name(64, L'c');
  v.add_existing_name(name);
  const std::wstring safe = v.get_safe_name(name);
  EXPECT_EQ(safe.size(), 63U);
  EXPECT_EQ(safe, std::wstring(58, L'c') + L"00000");
}

TEST(UdbValidator, CounterRunningOutIsAnInternalError) {
  refuses_suffixes v;
  v.add_existing_name(L"t");
  try {
    (void)v.get_safe_name(L"t");
    FAIL() << "no assertion";
  } catch (const tk_mail_assertion& e) {
    EXPECT_EQ(e.text(), make_err_meggase("udb_vali", 54));
    EXPECT_EQ(e.level(), 2);
  }
}

TEST(UdbValidator, DerivedRulesTakeEffectInsideTheSearch) {
  refuses_trailing_zero v;
  v.add_existing_name(L"t");
  // "t00000" would be next, but the derived rule refuses it.
  EXPECT_EQ(v.get_safe_name(L"t"), L"t00001");
}

TEST(UdbValidator, LimitIsCountedInCharactersNotBytes) {
  rule_set v(4);
  EXPECT_TRUE(v.is_acceptable(L"\u00e4\u00f6\u00fc\u00df"));
  EXPECT_FALSE(v.is_acceptable(L"\u00e4\u00f6\u00fc\u00df\u00e9"));
}

TEST(UdbValidator, RestrictedNameAddedDuringRunRefusesOtherLetterCase) {
  rule_set v(64);
  v.add_restricted_name(L"Customers");
  EXPECT_FALSE(v.is_acceptable(L"customers"));
  EXPECT_EQ(v.get_safe_name(L"customers"), L"customers00000");
}

TEST(UdbValidator, MappedPairIsRememberedAndLogged) {
  test::log_capture log;
  rule_set v(64);
  v.add_mapped_pair(L"a b", L"a_b");
  EXPECT_EQ(v.ref_map().get_mapped_name(L"A B"), L"a_b");
  EXPECT_TRUE(log.has_line("udb_validator::add_mapped_pair(a b,a_b)"));
}

constexpr std::wstring_view k_keywords[] = {L"select", L"from"};

class keyword_rules : public udb_validator {
 public:
  keyword_rules() : udb_validator(64) { add_restricted_names(k_keywords); }
};

TEST(UdbValidator, RestrictedWordsFromAStaticList) {
  const keyword_rules v;
  EXPECT_FALSE(v.is_acceptable(L"FROM"));
  EXPECT_TRUE(v.is_acceptable(L"fromage"));
  EXPECT_EQ(v.restricted().size(), 2U);
}

}  // namespace
}  // namespace qb
