// UTF-16 <-> wide text at the ODBC boundary.
#include "mss/utf16.h"

#include <gtest/gtest.h>

#include <string>

namespace qb {
namespace {

std::wstring decode(const std::u16string& s) { return odb_from_utf16(s); }

TEST(OdbUtf16, BasicPlaneTextPassesUnchanged) {
  EXPECT_EQ(odb_to_utf16(L"Gr\u00fc\u00dfe \u20ac"), u"Gr\u00fc\u00dfe \u20ac");
  EXPECT_EQ(decode(u"Gr\u00fc\u00dfe \u20ac"), L"Gr\u00fc\u00dfe \u20ac");
  EXPECT_EQ(odb_to_utf16(L""), u"");
  EXPECT_EQ(decode(u""), L"");
}

TEST(OdbUtf16, SupplementaryCharactersBecomeSurrogatePairsAndBack) {
  const std::wstring text = L"a\U0001F600b\U0001D11E\U0010FFFF";
  const std::u16string units = odb_to_utf16(text);
  EXPECT_EQ(units, std::u16string(u"a\xD83D\xDE00" u"b\xD834\xDD1E\xDBFF\xDFFF"));
  EXPECT_EQ(decode(units), text);
  EXPECT_EQ(decode(units).size(), 5U);  // one element a code point
}

TEST(OdbUtf16, LoneSurrogatesAreKeptBothWays) {
  const std::u16string units = u"x\xD800y\xDC00z\xDBFF";  // high, low, high at the end
  const std::wstring text = decode(units);
  EXPECT_EQ(text, (std::wstring{L'x', wchar_t(0xD800), L'y', wchar_t(0xDC00), L'z', wchar_t(0xDBFF)}));
  EXPECT_EQ(odb_to_utf16(text), units);
  // A low surrogate before a high one is two lone surrogates, not a pair.
  EXPECT_EQ(decode(u"\xDC00\xD800"), (std::wstring{wchar_t(0xDC00), wchar_t(0xD800)}));
}

TEST(OdbUtf16, CodePointsBeyondUnicodeBecomeTheReplacementCharacter) {
  const std::wstring text{L'a', wchar_t(0x110000), L'b'};
  EXPECT_EQ(odb_to_utf16(text), u"a\xFFFD" u"b");
}

TEST(OdbUtf16, AppendAddsBehindExistingText) {
  std::wstring out = L"id=";
  const std::u16string units = u"\xD83D\xDE00!";
  odb_append_from_utf16(out, reinterpret_cast<const SQLWCHAR*>(units.data()), units.size());
  EXPECT_EQ(out, L"id=\U0001F600!");
  std::u16string u = u"<";
  odb_append_utf16(u, L"\U0001F600");
  EXPECT_EQ(u, u"<\xD83D\xDE00");
}

// A value read with SQLGetData arrives in pieces; a pair may be split.
TEST(OdbUtf16Decoder, JoinsAPairSplitBetweenPieces) {
  const std::u16string a = u"ab\xD83D";
  const std::u16string b = u"\xDE00" u"cd";
  std::wstring out;
  odb_utf16_decoder d;
  d.append(out, reinterpret_cast<const SQLWCHAR*>(a.data()), a.size());
  EXPECT_EQ(out, L"ab");  // the high surrogate waits
  d.append(out, reinterpret_cast<const SQLWCHAR*>(b.data()), b.size());
  d.finish(out);
  EXPECT_EQ(out, L"ab\U0001F600cd");
}

TEST(OdbUtf16Decoder, KeepsAWaitingHighSurrogateThatFindsNoPartner) {
  const std::u16string a = u"a\xD83D";
  const std::u16string b = u"b";
  std::wstring out;
  odb_utf16_decoder d;
  d.append(out, reinterpret_cast<const SQLWCHAR*>(a.data()), a.size());
  d.append(out, reinterpret_cast<const SQLWCHAR*>(b.data()), b.size());
  EXPECT_EQ(out, (std::wstring{L'a', wchar_t(0xD83D), L'b'}));

  std::wstring end;
  odb_utf16_decoder d2;
  d2.append(end, reinterpret_cast<const SQLWCHAR*>(a.data()), a.size());
  d2.finish(end);
  EXPECT_EQ(end, (std::wstring{L'a', wchar_t(0xD83D)}));
}

TEST(OdbUtf16Decoder, PiecesOfOneUnitEachGiveTheWholeText) {
  const std::u16string units = odb_to_utf16(L"\U0001F600x\u00e9\U0001D11E");
  std::wstring out;
  odb_utf16_decoder d;
  for (const char16_t u : units) d.append(out, reinterpret_cast<const SQLWCHAR*>(&u), 1);
  d.finish(out);
  EXPECT_EQ(out, L"\U0001F600x\u00e9\U0001D11E");
}

}  // namespace
}  // namespace qb

namespace qb {
namespace {

// The decoding written out unit by unit, as the rules say.
std::wstring reference_decode(const std::u16string& units) {
  std::wstring out;
  for (std::size_t i = 0; i < units.size(); ++i) {
    const char32_t u = units[i];
    if (u >= 0xD800 && u <= 0xDBFF && i + 1 < units.size() && units[i + 1] >= 0xDC00 && units[i + 1] <= 0xDFFF) {
      out += static_cast<wchar_t>(0x10000 + ((u - 0xD800) << 10) + (units[i + 1] - 0xDC00));
      ++i;
    } else {
      out += static_cast<wchar_t>(u);
    }
  }
  return out;
}

TEST(OdbUtf16, SurrogatesAtEveryPlaceOfLongRunsDecode) {
  // Runs long enough to be read in blocks, with a pair, a lone high, a lone
  // low and a pair cut by the end at every position.
  const std::u16string base = u"abcdefghijklmnopqrstuvwxyz\u00e4\u20ac0123456789ABCDEFGHIJ";
  const std::u16string inserts[] = {u"\xD83D\xDE00", std::u16string(1, u'\xD800'), std::u16string(1, u'\xDC00'),
                                    u"\xDBFF\xDFFF"};
  for (const std::u16string& insert : inserts) {
    for (std::size_t at = 0; at <= base.size(); ++at) {
      std::u16string units = base;
      units.insert(at, insert);
      ASSERT_EQ(decode(units), reference_decode(units)) << "at " << at;
      std::wstring appended = L"x";
      odb_append_from_utf16(appended, reinterpret_cast<const SQLWCHAR*>(units.data()), units.size());
      ASSERT_EQ(appended, L"x" + reference_decode(units)) << "at " << at;
    }
  }
  const std::u16string cut = base + u'\xD83D';  // a high surrogate last: kept as it is
  EXPECT_EQ(decode(cut), reference_decode(cut));
  EXPECT_EQ(decode(cut).back(), static_cast<wchar_t>(0xD83D));
}

TEST(OdbUtf16Decoder, PairSplitBetweenLongPiecesIsJoined) {
  const std::u16string first = std::u16string(40, u'a') + u'\xD83D';
  const std::u16string second = u'\xDE00' + std::u16string(40, u'b');
  odb_utf16_decoder decoder;
  std::wstring out;
  decoder.append(out, reinterpret_cast<const SQLWCHAR*>(first.data()), first.size());
  decoder.append(out, reinterpret_cast<const SQLWCHAR*>(second.data()), second.size());
  decoder.finish(out);
  EXPECT_EQ(out, std::wstring(40, L'a') + L"\U0001F600" + std::wstring(40, L'b'));
}

}  // namespace
}  // namespace qb
