#include "launcher/runtime_errors.h"

#include <cstdlib>
#include <gtest/gtest.h>

namespace ve {
namespace {

TEST(RuntimeErrors, AreReportedWithoutABox) {
  const int before = _set_error_mode(_OUT_TO_MSGBOX);
  SuppressCrtErrorDialog();
  EXPECT_EQ(_set_error_mode(_REPORT_ERRMODE), _OUT_TO_STDERR);
  _set_error_mode(before);
}

}  // namespace
}  // namespace ve
