#include <gtest/gtest.h>

// Guards against a build that silently came out with the wrong word size.
TEST(Platform, PointerSizeIsTheBuildsTarget) {
    EXPECT_EQ(sizeof(void*), static_cast<size_t>(VELT_EXPECTED_POINTER_BYTES));
}
