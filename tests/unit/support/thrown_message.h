// The message of the exception that a call throws.
#pragma once

#include <gtest/gtest.h>
#include <string>
#include <typeinfo>

namespace ve::test {

/// The message of the exception that `call` throws. Throwing nothing, another class or a class
/// derived from `Exception` fails the test.
template <class Exception, class Call>
[[nodiscard]] std::string ThrownMessage(Call&& call) {
  try {
    call();
  } catch (const Exception& error) {
    EXPECT_STREQ(typeid(error).name(), typeid(Exception).name());
    return error.what();
  }
  ADD_FAILURE() << "nothing was thrown";
  return {};
}

}  // namespace ve::test
