#include <string>

#include <gtest/gtest.h>

#include "platform/log/Redact.h"

namespace {

using Redact::RedactID;
using Redact::RedactTokens;

// A token whose first and last four characters are upper case and whose middle is lower
// case, so that any middle character in clear is easy to spot.
std::string MarkedToken(std::size_t size) {
    std::string token;
    for (std::size_t i = 0; i < size; ++i) {
        bool const end = i < 4 || i + 4 >= size;
        token.push_back(static_cast<char>((end ? 'A' : 'a') + i % 26));
    }
    return token;
}

std::string Numbered(std::size_t size) {
    std::string text;
    for (std::size_t i = 0; i < size; ++i) text.push_back(static_cast<char>('0' + i % 10));
    return text;
}

TEST(RedactIDTest, KeepsTheLastFourCharactersOfALongId) {
    EXPECT_EQ(RedactID("1234567890", '-'), "------7890");
    EXPECT_EQ(RedactID("abcdefgh", '-'), "----efgh");
    EXPECT_EQ(RedactID("0123456789abcdef0123456789abcdef", '-'),
              "----------------------------cdef");
}

TEST(RedactIDTest, NeverShowsMoreThanHalfOfAShortId) {
    EXPECT_EQ(RedactID("a", '-'), "-");
    EXPECT_EQ(RedactID("ab", '-'), "-b");
    EXPECT_EQ(RedactID("abc", '-'), "--c");
    EXPECT_EQ(RedactID("abcd", '-'), "--cd");
    EXPECT_EQ(RedactID("abcdef", '-'), "---def");
    EXPECT_EQ(RedactID("abcdefg", '-'), "----efg");
}

TEST(RedactIDTest, MasksWithTheFillCharacter) {
    EXPECT_EQ(RedactID("1234567890", '*'), "******7890");
    EXPECT_EQ(RedactID("1234567890", 'x'), "xxxxxx7890");
}

TEST(RedactIDTest, EmptyIdGivesEmptyString) {
    EXPECT_EQ(RedactID("", '-'), "");
}

TEST(RedactIDTest, KeepsTheLengthAndIsDeterministic) {
    for (std::size_t size = 0; size < 40; ++size) {
        std::string const id = Numbered(size);
        std::string const masked = RedactID(id, '#');
        EXPECT_EQ(masked.size(), size);
        EXPECT_EQ(masked, RedactID(id, '#'));
        std::size_t const clear = std::min<std::size_t>(4, size / 2);
        EXPECT_EQ(masked.substr(0, size - clear), std::string(size - clear, '#'));
        EXPECT_EQ(masked.substr(size - clear), id.substr(size - clear));
    }
}

TEST(RedactTokensTest, LongTokenIsCutToTheBoundWithFourInClearAtEachEnd) {
    std::string const token = MarkedToken(1000);
    std::string const masked = RedactTokens(token, 350);

    ASSERT_EQ(masked.size(), 350u);
    EXPECT_EQ(masked.substr(0, 4), token.substr(0, 4));
    EXPECT_EQ(masked.substr(346), token.substr(996));
    EXPECT_EQ(masked.substr(4, 342), std::string(342, '*'));
}

TEST(RedactTokensTest, TokenWithinTheBoundKeepsItsLength) {
    std::string const token = MarkedToken(40);
    EXPECT_EQ(RedactTokens(token, 350),
              token.substr(0, 4) + std::string(32, '*') + token.substr(36));
    std::string const exact = MarkedToken(350);
    EXPECT_EQ(RedactTokens(exact, 350),
              exact.substr(0, 4) + std::string(342, '*') + exact.substr(346));
}

TEST(RedactTokensTest, ThirtyTwoCharacterTokenKeepsFourAtEachEnd) {
    std::string const token = Numbered(32);
    EXPECT_EQ(RedactTokens(token, 350), "0123************************8901");
}

TEST(RedactTokensTest, MediumTokenKeepsTwoAtEachEnd) {
    EXPECT_EQ(RedactTokens(Numbered(16), 350), "01************45");
    EXPECT_EQ(RedactTokens(Numbered(31), 350), "01***************************90");
}

TEST(RedactTokensTest, ShortTokenShowsNothing) {
    EXPECT_EQ(RedactTokens("a", 350), "*");
    EXPECT_EQ(RedactTokens(Numbered(15), 350), std::string(15, '*'));
    EXPECT_EQ(RedactTokens(Numbered(15), 10), std::string(10, '*'));
}

TEST(RedactTokensTest, BoundNoLargerThanTheClearPartGivesOnlyMask) {
    std::string const token = MarkedToken(1000);
    EXPECT_EQ(RedactTokens(token, 8), std::string(8, '*'));
    EXPECT_EQ(RedactTokens(token, 5), std::string(5, '*'));
    EXPECT_EQ(RedactTokens(token, 0), "");
    EXPECT_EQ(RedactTokens(Numbered(20), 4), "****");
    EXPECT_EQ(RedactTokens(Numbered(20), 3), "***");
}

TEST(RedactTokensTest, BoundJustAboveTheClearPartKeepsOneMaskCharacter) {
    EXPECT_EQ(RedactTokens(Numbered(40), 9), "0123*6789");
    EXPECT_EQ(RedactTokens(Numbered(20), 5), "01*89");
}

TEST(RedactTokensTest, EmptyTokenGivesEmptyString) {
    EXPECT_EQ(RedactTokens("", 350), "");
    EXPECT_EQ(RedactTokens("", 0), "");
}

TEST(RedactTokensTest, MiddleOfTheTokenNeverAppearsInClear) {
    for (std::size_t size : {32u, 33u, 100u, 349u, 350u, 351u, 1000u, 5000u}) {
        std::string const token = MarkedToken(size);
        for (unsigned int n : {0u, 1u, 8u, 9u, 10u, 64u, 350u, 10000u}) {
            std::string const masked = RedactTokens(token, n);
            EXPECT_EQ(masked.size(), std::min<std::size_t>(size, n));
            for (char c : masked) {
                EXPECT_FALSE(c >= 'a' && c <= 'z')
                    << "size " << size << " n " << n << ": " << masked;
            }
        }
    }
}

TEST(RedactTokensTest, IsDeterministic) {
    std::string const token = MarkedToken(777);
    EXPECT_EQ(RedactTokens(token, 350), RedactTokens(token, 350));
    EXPECT_EQ(RedactTokens(token, 350), RedactTokens(std::string(token), 350));
}

}  // namespace
