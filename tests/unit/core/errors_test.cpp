#include "core/errors.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <type_traits>

namespace ve {
namespace {

/// Which of two handlers takes the exception, the first being for `First`.
template <class First, class Thrown>
bool IsCaughtAs(const Thrown& thrown) {
  try {
    throw thrown;
  } catch (const First&) {
    return true;
  } catch (...) {
    return false;
  }
}

template <class Throwing>
std::string UpdaterMessage(Throwing throwing) {
  try {
    throwing();
  } catch (const sdk::UpdaterException& error) {
    return error.what();
  }
  return "nothing was thrown";
}

TEST(Errors, AMappedFileExceptionIsCaughtAsEachOfItsBases) {
  const file::MappedFileException error("x");
  EXPECT_TRUE(IsCaughtAs<file::FileException>(error));
  EXPECT_TRUE(IsCaughtAs<VERuntimeError>(error));
  EXPECT_TRUE(IsCaughtAs<std::runtime_error>(error));
  EXPECT_FALSE(IsCaughtAs<sdk::UpdaterException>(error));
}

TEST(Errors, UpdaterAndFileExceptionsAreUnrelated) {
  EXPECT_TRUE(IsCaughtAs<VERuntimeError>(sdk::UpdaterException("x")));
  EXPECT_FALSE(IsCaughtAs<file::FileException>(sdk::UpdaterException("x")));
  EXPECT_TRUE(IsCaughtAs<VERuntimeError>(file::FileException("x")));
  EXPECT_FALSE(IsCaughtAs<sdk::UpdaterException>(file::FileException("x")));
  EXPECT_FALSE(IsCaughtAs<file::MappedFileException>(file::FileException("x")));
}

TEST(Errors, AFilesystemErrorIsNotAVERuntimeError) {
  const std::filesystem::filesystem_error error("file_size", std::error_code());
  EXPECT_FALSE(IsCaughtAs<VERuntimeError>(error));
  EXPECT_TRUE(IsCaughtAs<std::exception>(error));
}

TEST(Errors, ACopyKeepsTheMessage) {
  const file::MappedFileException error("the message");
  const file::MappedFileException copy(error);
  EXPECT_STREQ(copy.what(), "the message");
  EXPECT_STREQ(error.what(), "the message");
}

TEST(Errors, AnExceptionIsItsMessageAndNothingElse) {
  EXPECT_EQ(sizeof(VERuntimeError), sizeof(std::runtime_error));
  EXPECT_EQ(sizeof(sdk::UpdaterException), sizeof(std::runtime_error));
  EXPECT_EQ(sizeof(file::FileException), sizeof(std::runtime_error));
  EXPECT_EQ(sizeof(file::MappedFileException), sizeof(std::runtime_error));
  EXPECT_FALSE(std::is_default_constructible_v<VERuntimeError>);
  EXPECT_FALSE(std::is_default_constructible_v<sdk::UpdaterException>);
  EXPECT_FALSE(std::is_default_constructible_v<file::FileException>);
  EXPECT_FALSE(std::is_default_constructible_v<file::MappedFileException>);
}

TEST(Errors, AMessageIsComposedFromOneToFourValues) {
  EXPECT_EQ(UpdaterMessage([] { sdk::ThrowUpdaterException("a {}", 1); }), "a 1");
  EXPECT_EQ(UpdaterMessage([] { sdk::ThrowUpdaterException("{} {}", 1U, "b"); }), "1 b");
  EXPECT_EQ(UpdaterMessage([] { sdk::ThrowUpdaterException("{}{}{}", "a", "b", "c"); }), "abc");
  EXPECT_EQ(UpdaterMessage([] {
              sdk::ThrowUpdaterException("{}{}{}{}", std::string("a"), std::string_view("b"), -3,
                                         18446744073709551615ULL);
            }),
            "ab-318446744073709551615");
}

TEST(Errors, WideValuesGoIntoMessagesAsUtf8) {
  EXPECT_EQ(UpdaterMessage([] {
              sdk::ThrowUpdaterException("'{}' '{}'", L"\x00E9", std::wstring(L"\x20AC"));
            }),
            "'\xC3\xA9' '\xE2\x82\xAC'");
  EXPECT_EQ(UpdaterMessage([] {
              sdk::ThrowUpdaterException("'{}'", std::filesystem::path(L"\x20AC\\\x00E9"));
            }),
            "'\xE2\x82\xAC\\\xC3\xA9'");
}

TEST(Errors, APlaceholderThatCannotBeServedStillThrowsTheIntendedException) {
  EXPECT_EQ(UpdaterMessage([] { sdk::ThrowUpdaterException("{} {} {7}", "a"); }),
            "a {INVALID} {INVALID}");
}

}  // namespace
}  // namespace ve
