// What a fill answers does not depend on there being a place to fill.
#include <gtest/gtest.h>

#include "morva/port.h"

TEST(WideFill, OfNullAnswersTheCountAsAnyOtherDoes) {
  EXPECT_EQ(skMemTSet(nullptr, 1, 1), 1u);
  EXPECT_EQ(skMemTSet(nullptr, 1, 40), 40u);
}
