#include "platform/text.h"

#include <gtest/gtest.h>

#include <string>

namespace pelmar {
namespace {

using namespace std::string_literals;

#define FFFD "\xEF\xBF\xBD"

TEST(IsUtf8, TakesTheFirstAndTheLastSequenceOfEachRange) {
  const std::string wellFormed[] = {
      ""s,
      "\x00"s,
      "\x7F"s,
      "\xC2\x80"s,
      "\xDF\xBF"s,
      "\xE0\xA0\x80"s,
      "\xE0\xBF\xBF"s,
      "\xE1\x80\x80"s,
      "\xEC\xBF\xBF"s,
      "\xED\x80\x80"s,
      "\xED\x9F\xBF"s,
      "\xEE\x80\x80"s,
      "\xEF\xBF\xBF"s,
      "\xF0\x90\x80\x80"s,
      "\xF0\xBF\xBF\xBF"s,
      "\xF1\x80\x80\x80"s,
      "\xF3\xBF\xBF\xBF"s,
      "\xF4\x80\x80\x80"s,
      "\xF4\x8F\xBF\xBF"s,
      "M\xD0\xB0\xE4\xBA\x8C\xF0\x90\x8C\x82"s,
  };
  for (const auto& bytes : wellFormed) {
    EXPECT_TRUE(isUtf8(bytes)) << testing::PrintToString(bytes);
    EXPECT_EQ(repairedUtf8(bytes), bytes) << testing::PrintToString(bytes);
    EXPECT_EQ(repairedUtf8(bytes + "a" + bytes), bytes + "a" + bytes);
  }
}

struct IllFormed {
  const char* bytes;
  const char* repaired;
};

// The bytes before and behind an ill-formed run never suffer.
void expectRepaired(const IllFormed& text) {
  EXPECT_FALSE(isUtf8(text.bytes)) << testing::PrintToString(text.bytes);
  EXPECT_EQ(repairedUtf8(text.bytes), text.repaired) << testing::PrintToString(text.bytes);
  EXPECT_EQ(repairedUtf8("\xC3\xA9"s + text.bytes + "z"), "\xC3\xA9"s + text.repaired + "z");
}

TEST(RepairedUtf8, ReplacesATruncatedSequenceOnce) {
  constexpr IllFormed kTexts[] = {
      {"\xC2", FFFD},         {"\xDF", FFFD},         {"\xE0\xA0", FFFD},
      {"\xE2\x82", FFFD},     {"\xE2", FFFD},         {"\xED\x9F", FFFD},
      {"\xEF\xBF", FFFD},     {"\xF0", FFFD},         {"\xF0\x9F", FFFD},
      {"\xF0\x9F\x98", FFFD}, {"\xF4\x8F\xBF", FFFD}, {"\xE2\x82\xE2\x82", FFFD FFFD},
  };
  for (const auto& text : kTexts) expectRepaired(text);
}

TEST(RepairedUtf8, ReplacesEachByteThatNoSequenceBeginsWith) {
  constexpr IllFormed kTexts[] = {
      {"\x80", FFFD},
      {"\xBF", FFFD},
      {"\x80\xBF\x80", FFFD FFFD FFFD},
      {"\xFE", FFFD},
      {"\xFF\xFF", FFFD FFFD},
      {"\xF5\x80\x80\x80", FFFD FFFD FFFD FFFD},
      {"\xF4\x90\x80\x80", FFFD FFFD FFFD FFFD},
  };
  for (const auto& text : kTexts) expectRepaired(text);
}

TEST(RepairedUtf8, ReplacesEachByteOfAnOverlongSequence) {
  constexpr IllFormed kTexts[] = {
      {"\xC0\x80", FFFD FFFD},
      {"\xC1\xBF", FFFD FFFD},
      {"\xE0\x80\x80", FFFD FFFD FFFD},
      {"\xE0\x9F\xBF", FFFD FFFD FFFD},
      {"\xF0\x80\x80\x80", FFFD FFFD FFFD FFFD},
      {"\xF0\x8F\xBF\xBF", FFFD FFFD FFFD FFFD},
  };
  for (const auto& text : kTexts) expectRepaired(text);
}

TEST(RepairedUtf8, ReplacesEachByteOfASurrogate) {
  expectRepaired({"\xED\xA0\x80", FFFD FFFD FFFD});
  expectRepaired({"\xED\xBF\xBF", FFFD FFFD FFFD});
  expectRepaired({"\xED\xA0\xBD\xED\xB8\x80", FFFD FFFD FFFD FFFD FFFD FFFD});
}

// The Unicode standard, section 3.9, tables 3-8 to 3-11.
TEST(RepairedUtf8, ReplacesMaximalSubpartsAsTheStandardShows) {
  constexpr IllFormed kTexts[] = {
      {"\xC0\xAF\xE0\x80\xBF\xF0\x81\x82\x41", FFFD FFFD FFFD FFFD FFFD FFFD FFFD FFFD "A"},
      {"\xED\xA0\x80\xED\xBF\xBF\xED\xAF\x41", FFFD FFFD FFFD FFFD FFFD FFFD FFFD FFFD "A"},
      {"\xF4\x91\x92\x93\xFF\x41\x80\xBF\x42", FFFD FFFD FFFD FFFD FFFD "A" FFFD FFFD "B"},
      {"\xE1\x80\xE2\xF0\x91\x92\xF1\xBF\x41", FFFD FFFD FFFD FFFD "A"},
      {"\x61\xF1\x80\x80\xE1\x80\xC2\x62\x80\x63\x80\xBF\x64",
       "a" FFFD FFFD FFFD "b" FFFD "c" FFFD FFFD "d"},
  };
  for (const auto& text : kTexts) expectRepaired(text);
}

TEST(RepairedUtf8, KeepsNulBytes) { EXPECT_EQ(repairedUtf8("a\0\xFFz"s), "a\0" FFFD "z"s); }

TEST(TrimmedBlanks, TakesTabsAndSpaceSeparatorsOffBothEnds) {
  const char* const blanks[] = {" ",
                                "\t",
                                "\xC2\xA0",
                                "\xE1\x9A\x80",
                                "\xE2\x80\x80",
                                "\xE2\x80\x83",
                                "\xE2\x80\x8A",
                                "\xE2\x80\xAF",
                                "\xE2\x81\x9F",
                                "\xE3\x80\x80"};
  for (const std::string blank : blanks) {
    EXPECT_EQ(trimmedBlanks(blank), "") << testing::PrintToString(blank);
    EXPECT_EQ(trimmedBlanks(blank + "a" + blank + "b" + blank + " \t"), "a" + blank + "b");
    EXPECT_EQ(trimmedBlanks(" " + blank + "\xC3\xA9"), "\xC3\xA9");
    EXPECT_EQ(trimmedBlanks("\xF0\x9F\x98\x80" + blank + blank), "\xF0\x9F\x98\x80");
  }
}

TEST(TrimmedBlanks, LeavesLineBreaksAndInvisibleCharacters) {
  const char* const kept[] = {"\n",           "\r",           "\r\n",         "\v",
                              "\f",           "\xC2\x85",     "\xE2\x80\x8B", "\xE2\x80\xA8",
                              "\xE2\x80\xA9", "\xEF\xBB\xBF", "\xE1\xA0\x8E", "\x1F"};
  for (const std::string text : kept) {
    EXPECT_EQ(trimmedBlanks(text), text) << testing::PrintToString(text);
    EXPECT_EQ(trimmedBlanks("\t" + text + " a " + text + " "), text + " a " + text);
  }
}

TEST(TrimmedBlanks, LeavesTextWithoutBlanksAtItsEnds) {
  EXPECT_EQ(trimmedBlanks(""), "");
  EXPECT_EQ(trimmedBlanks("a b"), "a b");
  EXPECT_EQ(trimmedBlanks("\0 \0"s), "\0 \0"s);
}

struct Cut {
  const char* text;
  std::size_t count;
  const char* first;
};

TEST(FirstCharacters, CountsAsciiByTheByte) {
  constexpr Cut kCuts[] = {
      {"", 0, ""},       {"", 5, ""},       {"abc", 0, ""},         {"abc", 2, "ab"},
      {"abc", 3, "abc"}, {"abc", 4, "abc"}, {"a\nb\tc", 3, "a\nb"},
  };
  for (const auto& [text, count, first] : kCuts) {
    EXPECT_EQ(firstCharacters(text, count), first) << text << ' ' << count;
  }
}

TEST(FirstCharacters, CountsUserPerceivedCharacters) {
  constexpr Cut kCuts[] = {
      // precomposed and three-byte letters
      {"\xC3\xA9\xE4\xBA\x8Cx", 1, "\xC3\xA9"},
      {"\xC3\xA9\xE4\xBA\x8Cx", 2, "\xC3\xA9\xE4\xBA\x8C"},
      // a letter and its combining accents
      {"e\xCC\x81\xCC\xA3x", 1, "e\xCC\x81\xCC\xA3"},
      {"abe\xCC\x81", 2, "ab"},
      {"abe\xCC\x81", 3, "abe\xCC\x81"},
      {"ab\xCC\x81", 2, "ab\xCC\x81"},
      // Hangul syllables of conjoining jamo
      {"\xE1\x84\x92\xE1\x85\xA1\xE1\x86\xAB\xE1\x84\x80", 1,
       "\xE1\x84\x92\xE1\x85\xA1\xE1\x86\xAB"},
      // flags are pairs of regional indicators
      {"\xF0\x9F\x87\xA9\xF0\x9F\x87\xAA\xF0\x9F\x87\xAB\xF0\x9F\x87\xB7", 1,
       "\xF0\x9F\x87\xA9\xF0\x9F\x87\xAA"},
      // a skin tone, a family joined by zero-width joiners, a keycap
      {"\xF0\x9F\x91\x8D\xF0\x9F\x8F\xBDx", 1, "\xF0\x9F\x91\x8D\xF0\x9F\x8F\xBD"},
      {"\xF0\x9F\x91\xA9\xE2\x80\x8D\xF0\x9F\x91\xA7x", 1,
       "\xF0\x9F\x91\xA9\xE2\x80\x8D\xF0\x9F\x91\xA7"},
      {"1\xEF\xB8\x8F\xE2\x83\xA3x", 1, "1\xEF\xB8\x8F\xE2\x83\xA3"},
      // a CR LF pair is one, other combinations are two
      {"\r\nx", 1, "\r\n"},
      {"a\r\nb", 2, "a\r\n"},
      {"a\r\nb", 3, "a\r\nb"},
      {"\n\r", 1, "\n"},
      {"\r\r\n", 1, "\r"},
      // an accent does not combine with a line break
      {"\n\xCC\x81", 1, "\n"},
      // U+FFFD stands for itself
      {FFFD FFFD "x", 2, FFFD FFFD},
  };
  for (const auto& [text, count, first] : kCuts) {
    EXPECT_EQ(firstCharacters(text, count), first) << testing::PrintToString(text) << ' ' << count;
  }
}

TEST(FirstCharacters, LooksBehindTheCutForWhatBelongsToTheLastCharacter) {
  const std::string letters(1999, 'a');
  EXPECT_EQ(firstCharacters(letters + "e\xCC\x81z", 2000), letters + "e\xCC\x81");
  EXPECT_EQ(firstCharacters(letters + "e", 2000), letters + "e");
  EXPECT_EQ(firstCharacters(letters + "\r\nz", 2000), letters + "\r\n");
}

}  // namespace
}  // namespace pelmar
