#include <gtest/gtest.h>
#include <sys/types.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "base/timestamp.h"
#include "cipher/cipher.h"

// Guards against a build that silently came out with the wrong word size.
TEST(Platform, PointerSizeIsTheBuildsTarget) {
    EXPECT_EQ(sizeof(void*), static_cast<size_t>(VELT_EXPECTED_POINTER_BYTES));
}

// Files of 2 GiB and more, dates after 2038, and the cipher record other
// tools allocate (72 bytes on 32-bit x86), on every target.
TEST(Platform, WideOffsetsAndTimesAndTheCipherRecord) {
    EXPECT_EQ(sizeof(off_t), 8u);
    EXPECT_EQ(sizeof(std::time_t), 8u);
    EXPECT_EQ(cipherCtxSize(), sizeof(void*) == 4 ? 72u : sizeof(CipherCtx));
}

TEST(TimeStamp, ClockOfTheCLocaleBeyond2038) {
    setenv("TZ", "UTC", 1);
    tzset();
    const struct {
        std::time_t when;
        size_t cap;
        const char* text;
    } rows[] = {
        {0, 80, "01/01/70_00:00:00"},
        {2147483647, 80, "01/19/38_03:14:07"},
        {2147483648LL, 80, "01/19/38_03:14:08"},
        {4102444799LL, 256, "12/31/99_23:59:59"},
        {4102444800LL, 18, "01/01/00_00:00:00"},
        {4102444800LL, 17, ""},  // one byte short of the text and its NUL
    };
    for (const auto& row : rows) {
        char out[256];
        std::memset(out, 'x', sizeof out);
        formatTimeStamp(row.when, out, row.cap);
        EXPECT_EQ(std::string(out), row.text) << row.when;
    }
}
