#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdio>
#include <limits>
#include <random>
#include <string>

#include "db/dbListings.h"

namespace {

std::string printfG(double value) {
  char text[64];
  std::snprintf(text, sizeof text, "%g", value);
  return text;
}

std::string ourG(double value) {
  std::string text;
  kraDB::appendG(text, value);
  return text;
}

TEST(DbListings, RealsAreWrittenExactlyAsPrintfG) {
  const double inf = std::numeric_limits<double>::infinity();
  const double edges[] = {0.0,      -0.0,     1.0,          -1.0,
                          0.0001,   0.00001,  9.9999949e-5, 9.9999951e-5,
                          999999.0, 999999.5, 1000000.0,    123456.5,
                          2.5,      0.5e-300, 5e-324,       1.7976931348623157e308,
                          inf,      -inf,     std::nan(""), -std::nan(""),
                          1e-7,     4e-9,     1234567.0,    -0.000123456789};
  for (double value : edges) {
    SCOPED_TRACE(printfG(value));
    EXPECT_EQ(ourG(value), printfG(value));
  }
  std::mt19937_64 random(17);
  for (int i = 0; i < 200000; ++i) {
    // Random bit patterns cover every exponent; scaled decimals cover rounding ties.
    const double value = i % 2 == 0 ? std::bit_cast<double>(random())
                                    : static_cast<double>(random() % 2000001) *
                                          std::pow(10.0, static_cast<int>(random() % 30) - 15);
    ASSERT_EQ(ourG(value), printfG(value));
  }
}

}  // namespace
