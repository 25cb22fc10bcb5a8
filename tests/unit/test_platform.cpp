#include <gtest/gtest.h>
#include <sys/types.h>

#include <cstdlib>
#include <ctime>
#include <string>

#include "base/timestamp.h"
#include "cipher/cipher.h"
#include "support.h"

// A build that came out with the wrong word size; files of 2 GiB and more and dates after 2038 on every target;
// the cipher record other tools allocate, 72 bytes on 32-bit x86.
TEST(Platform, WordSizeWideOffsetsAndTimesAndTheCipherRecord) {
    EXPECT_EQ(sizeof(void*), static_cast<size_t>(VELT_EXPECTED_POINTER_BYTES));
    EXPECT_TRUE(sizeof(off_t) == 8 && sizeof(std::time_t) == 8);
    EXPECT_EQ(cipherCtxSize(), sizeof(void*) == 4 ? 72u : sizeof(CipherCtx));
}

TEST(TimeStamp, ClockOfTheCLocaleBeyond2038) {
    setenv("TZ", "UTC", 1);
    tzset();
    for (const auto& r : testsupport::rows(VELT_VECTORS_DIR "/timestamps.txt")) {
        std::string out(256, 'x');
        formatTimeStamp(static_cast<std::time_t>(std::stoll(r[0])), out.data(), std::stoul(r[1]));
        EXPECT_EQ(out.c_str(), r[2] == "-" ? "" : r[2]) << r[0];
    }
}
