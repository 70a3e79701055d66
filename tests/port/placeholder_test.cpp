#include <gtest/gtest.h>

#include "morva/port.h"

TEST(Placeholder, AnswersThatTheOperationIsNotSupported) {
  EXPECT_EQ(skUnsup(), 0x803fc004u);
  EXPECT_EQ(skUnsup(), MORVA_UNSUPPORTED);
}
