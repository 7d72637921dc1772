#include <gtest/gtest.h>
TEST(Build, Links) { SUCCEED(); }
