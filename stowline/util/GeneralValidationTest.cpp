// What the service accepts from people.
#include "stowline/util/General.h"

#include <gtest/gtest.h>

#include <chrono>

namespace stowline {
namespace {

TEST(Email, NeedsADomainThatEndsInLetters)
{
    for (const char* valid : {"ann@example.com", "a.b-c_d@mail.sub_1.example.org", "a@b.co"})
        EXPECT_TRUE(General::isEmailValid(valid)) << valid;
    for (const char* wrong :
         {"", "ann", "ann@example", "a@first_label.com", "a@example.c", "a@example.c0m", ".a@b.com",
          "a..b@c.com", "a@b.com ", "a@b.com\n", "é@b.com"})
        EXPECT_FALSE(General::isEmailValid(wrong)) << wrong;
    using namespace std::string_view_literals;
    EXPECT_FALSE(General::isEmailValid("a@b.com\0"sv));
    EXPECT_FALSE(General::isEmailValid("a\xff@b.com"));
}

TEST(Password, IsSixToTwentyOfAFewCharacters)
{
    EXPECT_TRUE(General::isPasswordValid("abc123"));
    EXPECT_TRUE(General::isPasswordValid("!@#$%^&*()"));
    EXPECT_TRUE(General::isPasswordValid(std::string(20, 'x')));
    for (const auto& wrong :
         {std::string(), std::string("abc12"), std::string(21, 'x'), std::string("abc 123"),
          std::string("abc-123"), std::string("pässwort")})
        EXPECT_FALSE(General::isPasswordValid(wrong)) << wrong;
}

TEST(FullName, StartsWithALetter)
{
    EXPECT_TRUE(General::isFullnameValid("Al"));
    EXPECT_TRUE(General::isFullnameValid("Ann-Marie B. Smith"));
    EXPECT_TRUE(General::isFullnameValid(std::string(30, 'x')));
    for (const auto& wrong : {std::string(), std::string("A"), std::string(" Ann"),
                              std::string(31, 'x'), std::string("Ann2"), std::string("Åsa")})
        EXPECT_FALSE(General::isFullnameValid(wrong)) << wrong;
}

TEST(SecretAnswer, MayHoldWhiteSpaceButNotFirst)
{
    EXPECT_TRUE(General::isSecretAnswerValid("my cat"));
    EXPECT_TRUE(General::isSecretAnswerValid("a\tb"));
    EXPECT_TRUE(General::isSecretAnswerValid(std::string(20, '!')));
    for (const auto& wrong : {std::string(), std::string("ab"), std::string(" ab"),
                              std::string(21, 'x'), std::string("a-b")})
        EXPECT_FALSE(General::isSecretAnswerValid(wrong)) << wrong;
}

TEST(Regex, MustMatchTheWholeString)
{
    EXPECT_TRUE(General::string("abc", "[a-c]+"));
    EXPECT_FALSE(General::string("abcd", "[a-c]+"));
    EXPECT_FALSE(General::string("abc\n", "^[a-c]+$"));
    EXPECT_TRUE(General::string("", ""));
    EXPECT_TRUE(General::string("grüße", "\\w+"));
}

TEST(Regex, APatternThatIsNoneMatchesNothing)
{
    EXPECT_FALSE(General::string("(", "("));
    EXPECT_FALSE(General::string("a", "[a"));
    EXPECT_FALSE(General::string("a", "a{1000000000000}"));
}

TEST(Regex, NeitherPatternNorInputHangsTheCaller)
{
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(General::string(std::string(40, 'a') + "!", "(a|aa)+(a|aa)+(a|aa)+$"));
    EXPECT_FALSE(General::string(std::string(5000, 'a'), "(a*)*(a*)*b"));
    // Not a measurement: without a limit these would take years.
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::minutes(1));
}

TEST(Validators, AMillionCharactersAnswerPromptly)
{
    const std::string letters(1000000, 'a');
    std::string labels = "a@";
    for (int i = 0; i < 500000; ++i)
        labels += "a.";
    const auto start = std::chrono::steady_clock::now();
    for (const std::string& input : {letters, labels, labels + "c_m", letters + "@" + letters}) {
        EXPECT_FALSE(General::isEmailValid(input));
        EXPECT_FALSE(General::isPasswordValid(input));
        EXPECT_FALSE(General::isFullnameValid(input));
        EXPECT_FALSE(General::isSecretAnswerValid(input));
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::minutes(1));
}

} // namespace
} // namespace stowline
